#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// The entry to the file adapter: lists, uploads, downloads, updates and deletes files on the back
/// end's object service, whose base URL each operation takes.
///
/// Operations return as soon as they are started; outcomes arrive through the blocks, as
/// `BinaryCallback` describes:
/// - success and failure on a thread of the library's pool, progress on the thread that drives the
///   operation. An absent block is an empty one;
/// - a failure is {"code": decimal text, "localizedDescription", "domain", "userInfo"};
/// - that of a download that was started is {"error": what is known, its errors under "Errors"}. A
///   failed look-up of the file is reported in both shapes, under `TransferPolicy::kSafe` in the
///   second one alone;
/// - an exception inside a call is reported to its failure block on the calling thread, before the
///   call returns, as {"error": an `Error` with what it said}.
///
/// Two entries of the options concern every operation. Both are taken when it starts:
/// - "cancellation", a `platform::Cancellation`: ends the operation with one failure,
///   `kCodeOperationCancelled` (6027), and what it has stored meanwhile is gone. A cancel after the
///   end changes nothing;
/// - "settings", an `OperationSettings` in place of the process's.
///
/// Blocks and dictionaries are kept until the operation has ended. Thread-safe; operations may be
/// called from inside any block. After the runtime's shutdown nothing is started any more.
class BinaryFileStorageInterface {
 public:
  BinaryFileStorageInterface() = delete;

  /// Fetches the manager that all operations use. Runs by itself before the first operation.
  static void initialize();

  /// Lists the files' records that match `criteria`, a ready "$filter" expression; all without one.
  /// Success: the service's response ("records"), and "requestContext", the criteria.
  static void getFilesWithUrl(const std::string& url, const std::optional<std::string>& criteria,
                              const std::optional<platform::Dictionary>& headers,
                              const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                              const std::optional<platform::Dictionary>& options);

  /// Uploads a file from a path or from bytes in memory (`InputType` as `getUploadInputType` reads
  /// it). `uploadParams`: "headers"; "metadata" with "file_name" and, optional, "file_namespace",
  /// "security_key" and entries of your own; "file" with "filePath", or with "rawBytes" as bytes or
  /// Base64 text; "chunkSize" in bytes (default 1 MiB). A "chunkSize" in the options wins.
  ///
  /// Progress: {"state": 0} when it starts, then for each chunk state 1, for the last state 2, with
  /// "progressData": "chunkId", "chunkSize", "isLastChunk", "totalBytesToUpload" and
  /// "bytesUploadedTillNow" (bytes). Success: the response to the commit, "commit_properties" and
  /// "requestContext", the metadata. The file is not to be changed before the end.
  static void uploadBinaryWithUrl(const std::string& url, std::string_view InputType,
                                  const std::optional<platform::Dictionary>& uploadParams,
                                  const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                                  const BinaryBlock& onProgress,
                                  const std::optional<platform::Dictionary>& options);

  /// Downloads the file with the "file_id" of `Params`' "metadata" into the downloads directory,
  /// unless a file of its name is there already. Under `TransferPolicy::kSafe`:
  /// - that file must have the size that the record gives, if any;
  /// - "forceDownload" in the options fetches the file in any case.
  ///
  /// `Params`: "headers", "metadata". Success: "file_name", "filePath", "requestContext" and the
  /// entries of the look-up's response. Reports no progress.
  static void downloadWithURL(const std::string& url,
                              const std::optional<platform::Dictionary>& Params,
                              const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                              const BinaryBlock& onProgress,
                              const std::optional<platform::Dictionary>& options);

  /// Replaces the metadata of the file with the "file_id" of `Params`' "metadata" by that.
  /// `Params`: "headers", "metadata". Success: the response and "requestContext", the metadata.
  static void updateWithUrl(const std::string& url,
                            const std::optional<platform::Dictionary>& Params,
                            const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                            const std::optional<platform::Dictionary>& options);

  /// Deletes the file with this identifier, where it also has the entries of `deleteParams` in its
  /// metadata. Success: the service's responses and "requestContext", the parameters with
  /// "file_id".
  ///
  /// The service may accept a delete for later. Then its status is asked for, as PollingSchedule.h
  /// says (26 seconds at most and the time of the requests), before success or failure is reported.
  /// A failure of that has the domain "Network operation failed" and the code "6003"; the errors
  /// that led to it, an array, are under "Errors" in "userInfo".
  static void deleteWithUrl(const std::string& url, const std::optional<std::string>& fileId,
                            const std::optional<platform::Dictionary>& deleteParams,
                            const std::optional<platform::Dictionary>& headers,
                            const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                            const std::optional<platform::Dictionary>& options);

  /// Deletes the files whose metadata has all entries of `deleteCriteria`, as `deleteWithUrl` does.
  /// An empty dictionary is refused. No dictionary at all asks the service to delete without a
  /// selection, as `deleteWithUrl` does without both identifier and parameters; under
  /// `TransferPolicy::kSafe` that is refused, too. "requestContext" is the criteria.
  static void deleteByCriteria(const std::string& url,
                               const std::optional<platform::Dictionary>& deleteCriteria,
                               const std::optional<platform::Dictionary>& headers,
                               const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                               const std::optional<platform::Dictionary>& options);

  /// Gives up an upload: deletes what the service has of the file, as `deleteWithUrl` does with
  /// `abortParams`. Does not stop the upload in this process.
  static void abortWithUrl(const std::string& url, const std::optional<std::string>& fileId,
                           const std::optional<platform::Dictionary>& abortParams,
                           const std::optional<platform::Dictionary>& headers,
                           const BinaryBlock& onSuccess, const BinaryBlock& onFailure,
                           const std::optional<platform::Dictionary>& options);

  /// "UploadInputTypeLocalFilePath" is a path; "UploadInputTypeRawBytes", and any other text, are
  /// raw bytes.
  [[nodiscard]] static UploadInputType getUploadInputType(std::string_view inputType);
};

}  // namespace varo::binary
