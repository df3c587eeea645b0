#pragma once

#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varo::binary {

/// Error or null, blob id or none.
using BlobCreationBlock =
    std::function<void(const platform::ErrorPtr& error, const std::optional<std::string>& blobId)>;
/// Error or null, absolute path of the file or none.
using BlobPathBlock = std::function<void(const platform::ErrorPtr& error,
                                         const std::optional<std::string>& filePath)>;
/// Blob id, whether the deletion was recorded, whether the file was removed, error or null.
using BlobDeletionBlock =
    std::function<void(const std::optional<std::string>& blobId, bool recorded, bool fileRemoved,
                       const platform::ErrorPtr& error)>;

/// The entry point for the binary columns ("blobs") of the records of the application's
/// offline-synchronised database: brings them into local files, at most `MAX_PARALLEL_JOBS` at
/// once, keeps their state in the table `kVaroSyncBlobStoreMangager`, tells where a file is, and
/// records deletions for the sync engine.
///
/// Databases are named, not given by path: see `SQLiteUtil::getDBPath`. A record is named by its
/// table and its primary keys (column -> value). Every block may be empty, is called at most once,
/// on a thread of the runtime's pool or on the calling thread, with no lock held; every operation
/// may be called from inside any block. What a block throws is logged and goes no further.
/// Thread-safe.
class BinaryDataManager final : public platform::TaskListener,
                                public std::enable_shared_from_this<BinaryDataManager> {
 public:
  /// Downloads that run at once. Resumed ones do not count.
  static constexpr std::size_t MAX_PARALLEL_JOBS = 5;

  /// The process's one manager.
  [[nodiscard]] static const std::shared_ptr<BinaryDataManager>& sharedInstance();

  /// Makes the task that downloads the record's binary column, and its row in the table where there
  /// is none. Returns at once. `downloadConfig` is the input of the download: "URL", "ScopeName",
  /// "ObjectName", "ChunkSize" (bytes of a range), "Headers", "ResponseType", and so on; an
  /// `OnChunkDownloadCompleted` under "onChunkDownloadCompleted" hears of the progress. Errors:
  /// 5004, and 5002 for a blob that is being downloaded or is there.
  void createDownloadTaskForDb(const std::string& databaseName, const std::string& tableName,
                               const std::string& columnName,
                               const platform::Dictionary& primaryKeyTable,
                               const platform::Dictionary& downloadConfig,
                               BlobCreationBlock completion);

  /// Starts the task, or puts it into the queue. The block hears of the end: the result is the
  /// task's output ("BlobID", "FilePath", "TotalFileSize"), or {"FilePath", "state"} where the file
  /// was there already.
  void startDownload(const std::optional<std::string>& blobId, DownloadBlock completion);
  /// Asks a running download to pause; the block hears when it has, with the task's output.
  void pauseDownload(const std::optional<std::string>& blobId, DownloadBlock completion);
  /// Goes on with a paused download; the block hears of the end, as that of `startDownload`.
  void resumeDownload(const std::optional<std::string>& blobId, DownloadBlock completion);

  /// Where the file of the record's binary column is. Returns at once. Errors: 5004 for no such
  /// record, 5001 for no usable file.
  void getBinaryDataFilePathForPrimaryKeys(const platform::Dictionary& primaryKeys,
                                           const std::string& db, const std::string& tableName,
                                           const std::string& columnName,
                                           BlobPathBlock completionBlock);

  /// Records the deletion of the record's binary column for the sync engine. Returns at once. With
  /// "shouldDeleteBeforeSyncSession" true in `options` the file is removed now.
  void deleteBinaryObjectForPrimaryKeys(const platform::Dictionary& primaryKeys,
                                        const std::string& db, const std::string& tableName,
                                        const std::string& columnName,
                                        const platform::Dictionary& options,
                                        BlobDeletionBlock completionBlock);

  /// Stops every download and forgets every task.
  void clearBinaryDataManagerState();
  /// Stops the download of every task.
  void invalidateAllBackgroundSessions();

  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;
};

}  // namespace varo::binary
