#pragma once

#include "Platform/Foundation/Block.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// Keys of the contexts of download tasks, and the blocks that travel in them. They are arrays
/// because a dictionary takes its keys as `std::string`.
namespace varo::binary {

class Chunk;

// Input of a download.
inline constexpr char kBlobId[] = "BlobID";
inline constexpr char kChunkSizeKey[] = "ChunkSize";
inline constexpr char kClientID[] = "ClientID";
inline constexpr char kDBName[] = "DBName";
inline constexpr char kDownloadHeaders[] = "Headers";
inline constexpr char kFileParams[] = "FileParams";
inline constexpr char kObjectName[] = "ObjectName";
inline constexpr char kOnChunkDownloadCompleted[] = "onChunkDownloadCompleted";
inline constexpr char kOnlineDownloadTask[] = "OnlineDownloadTask";
inline constexpr char kOnDownloadFailure[] = "onDownloadFailure";
inline constexpr char kOnFileDownloadCompleted[] = "onFileDownloadCompleted";
inline constexpr char kOnFileDownloadStarted[] = "onFileDownloadStarted";
inline constexpr char kOnStreamDownloadCompleted[] = "onStreamDownloadCompleted";
inline constexpr char kPrimaryKeys[] = "primaryKeys";
inline constexpr char kResponseType[] = "ResponseType";
inline constexpr char kScopeName[] = "ScopeName";
inline constexpr char kSessionID[] = "SessionID";
inline constexpr char kStreaming[] = "Streaming";
inline constexpr char kTotalBytesDownloaded[] = "TotalBytesDownloaded";
inline constexpr char kURL[] = "URL";

// Input of a download whose file is claimed by who runs it: the `FileClaim`.
inline constexpr char kFileClaim[] = "FileClaim";

// Input and output: the size of the whole object, bytes.
inline constexpr char kTotalFileSize[] = "TotalFileSize";
// Input and output: the text of the `ObjectValidator` of the object that the bytes belong to.
// Whoever resumes a partial file in another process keeps it beside the file and hands it in again.
inline constexpr char kValidator[] = "Validator";

// Output.
inline constexpr char kDataChunk[] = "DataChunk";
inline constexpr char kFilePath[] = "FilePath";
inline constexpr char kIsAsteriskRecieved[] = "isAsteriskRecieved";

// Error contexts: the user information of the error raised.
inline constexpr char kDataPersistanceError[] = "DataPersistanceError";
inline constexpr char kDownloadError[] = "DownloadError";
inline constexpr char kNetworkError[] = "NetworkError";
inline constexpr char kPersistenceError[] = "PersistenceError";

/// Called after every chunk written: blob id, bytes in the file, size of the whole object (0 while
/// unknown), the caller's "FileParams". On the queue that writes the chunks of all downloads, so it
/// should be quick.
using OnChunkDownloadCompleted =
    platform::Block<void(const std::string& blobId, std::int64_t bytesWritten,
                         std::int64_t totalSize, const platform::Value& fileParams)>;

/// Called for every chunk that is not empty of a streamed download, in order: blob id, chunk, the
/// caller's "FileParams". On the same queue; while it runs, the download asks for no more than a
/// few chunks.
using OnStreamDownloadCompleted =
    platform::Block<void(const std::string& blobId, const std::shared_ptr<Chunk>& chunk,
                         const platform::Value& fileParams)>;

/// The outcome of a start, pause or resume: blob id, error or null, result or none.
using DownloadBlock =
    std::function<void(const std::optional<std::string>& blobId, const platform::ErrorPtr& error,
                       const std::optional<platform::Dictionary>& result)>;

// Of online downloads. `fileParams` is what the caller gave.

/// Called when the download has been started: its name.
using OnFileDownloadStarted =
    platform::Block<void(const std::string& name, const platform::Value& fileParams)>;
/// Called when the file is complete: blob id, absolute path. Of a streamed download, when all has
/// been handed out; then there is no file at the path.
using OnFileDownloadCompleted = platform::Block<void(
    const std::string& blobId, const std::string& filePath, const platform::Value& fileParams)>;
/// Called when the download has failed, or was not started: its name, why.
using OnDownloadFailure = platform::Block<void(
    const std::string& name, const platform::ErrorPtr& error, const platform::Value& fileParams)>;

}  // namespace varo::binary
