#pragma once

#include <cstdint>
#include <string_view>

namespace varo::binary {

/// What an upload's bytes are given as.
enum class UploadInputType : std::uint32_t { kRawBytes = 0, kLocalFilePath = 1 };

/// Which of a caller's blocks to run.
enum class CallbackType : std::uint32_t { kSuccess = 0, kFailure = 1, kProgress = 2 };

/// Which step of an upload a progress report is about.
enum class OperationState : std::uint32_t {
  kUploadStarted = 0,
  kChunkUploaded = 1,
  kLastChunkUploaded = 2,
};

/// Bytes of a chunk where the caller gives no usable number: 1 MiB.
inline constexpr std::int64_t kDefaultChunkSize = 1'048'576;

/// Starts the line that is logged, at info level, after each status request that finds a delete
/// unfinished; the number of the attempt, from 1, follows. For whoever shows people how it goes.
inline constexpr std::string_view kServiceStillWorking = "The service is still working, attempt ";

inline constexpr std::string_view kEmptyString = "";

/// Names of the accepted upload input types, as callers write them.
inline constexpr std::string_view kUploadInputTypeRawBytes = "UploadInputTypeRawBytes";
inline constexpr std::string_view kUploadInputTypeLocalFilePath = "UploadInputTypeLocalFilePath";

/// Keys of the dictionaries that callers, tasks and the service exchange. They are arrays because a
/// dictionary takes its keys as `std::string`, which a `std::string_view` does not become by
/// itself.
namespace keys {

inline constexpr char kBytesOffset[] = "bytesOffset";
inline constexpr char kBytesUploadedTillNow[] = "bytesUploadedTillNow";
inline constexpr char kCallback[] = "callback";
inline constexpr char kChunkId[] = "chunkId";
inline constexpr char kChunkSize[] = "chunkSize";
inline constexpr char kChunkUpload[] = "chunkupload";
inline constexpr char kCode[] = "code";
inline constexpr char kCommitProperties[] = "commit_properties";
inline constexpr char kCommitUrl[] = "commitUrl";
inline constexpr char kCurrentIteration[] = "currentIteration";
inline constexpr char kDisableIntegrityCheck[] = "disableIntegrityCheck";
inline constexpr char kDomain[] = "domain";
inline constexpr char kDownloadTemplate[] = "download_template";
inline constexpr char kError[] = "error";
inline constexpr char kFile[] = "file";
inline constexpr char kFileId[] = "file_id";
inline constexpr char kFileName[] = "file_name";
inline constexpr char kFileNamespace[] = "file_namespace";
inline constexpr char kFilePath[] = "filePath";
inline constexpr char kFilter[] = "filter";
inline constexpr char kForceDownload[] = "forceDownload";
inline constexpr char kHeaders[] = "headers";
inline constexpr char kIsLastChunk[] = "isLastChunk";
inline constexpr char kLocalizedDescription[] = "localizedDescription";
inline constexpr char kMetadata[] = "metadata";
inline constexpr char kMethod[] = "method";
inline constexpr char kOptions[] = "options";
inline constexpr char kPollingStatus[] = "pollingStatus";
inline constexpr char kPollingSuccessIndicators[] = "pollingSuccessIndicators";
inline constexpr char kPollingUrl[] = "pollingUrl";
inline constexpr char kProgressData[] = "progressData";
inline constexpr char kQueryParams[] = "queryParams";
inline constexpr char kQueryParamsForDownload[] = "queryParamsForDownload";
inline constexpr char kRawBytes[] = "rawBytes";
inline constexpr char kRecords[] = "records";
inline constexpr char kRelativePath[] = "relativepath";
inline constexpr char kRequestContext[] = "requestContext";
inline constexpr char kSecurityKey[] = "security_key";
inline constexpr char kShouldDeleteBeforeSyncSession[] = "shouldDeleteBeforeSyncSession";
inline constexpr char kState[] = "state";
inline constexpr char kTotalBytesToUpload[] = "totalBytesToUpload";
inline constexpr char kUploadMode[] = "uploadMode";
inline constexpr char kUploadParams[] = "uploadParams";
inline constexpr char kUploadTemplate[] = "upload_template";
inline constexpr char kUrl[] = "url";
inline constexpr char kUserInfo[] = "userInfo";

}  // namespace keys
}  // namespace varo::binary
