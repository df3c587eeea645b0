#pragma once

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstddef>
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
/// Databases are named, not given by path: see `SQLiteUtil::pathOfDatabase`. A record is named by
/// its table and its primary keys (column -> value); where they match several records, the first is
/// read and all are linked to its blob, and no keys at all name no record. Every block may be
/// empty, is called at most once, on a thread of the runtime's pool or on the calling thread, with
/// no lock held; every operation may be called from inside any block. What a block throws is logged
/// and goes no further. A download has one block of each kind: one that is given while another
/// waits takes its place. docs/policy.md lists the cases in which a block is called under
/// `TransferPolicy::kSafe` only.
///
/// Errors have the domain "DownloadTaskErrorDomain" unless said otherwise. After the runtime's
/// shutdown no download is made or changed (5001), and those that wait are told so; paths and
/// deletions work on. Thread-safe.
class BinaryDataManager final : public std::enable_shared_from_this<BinaryDataManager> {
 public:
  /// Downloads that run at once. Resumed ones do not count.
  static constexpr std::size_t MAX_PARALLEL_JOBS = 5;

  /// The process's one manager, which is never destroyed.
  [[nodiscard]] static const std::shared_ptr<BinaryDataManager>& sharedInstance();

  /// Makes the task that downloads the record's binary column, and its row in the table where there
  /// is none. Returns at once. `downloadConfig` is the input of the download: "URL", "ScopeName",
  /// "ObjectName", "ChunkSize" (bytes of a range), "Headers", "ResponseType", and so on; an
  /// `OnChunkDownloadCompleted` under "onChunkDownloadCompleted" hears of the progress. An
  /// `OperationSettings` under "settings" and a `platform::Cancellation` under "cancellation" are
  /// taken now, for all runs of this task: one that is cancelled fails, then and later. The task of
  /// the same blob that was made before is replaced, and forgotten unless it runs. Errors: 5004 for
  /// no such record, and, in the domain `kInvalidTaskCreationState`, 5002 for a blob that is being
  /// downloaded or is there.
  void createDownloadTaskForDb(const std::string& databaseName, const std::string& tableName,
                               const std::string& columnName,
                               const platform::Dictionary& primaryKeyTable,
                               const platform::Dictionary& downloadConfig,
                               BlobCreationBlock completion);

  /// Starts the task, or puts it into the queue; one that has paused or failed runs anew, and goes
  /// on with the bytes that are there. The block hears of the end: the result is the task's output
  /// ("BlobID", "FilePath", "TotalFileSize"), or {"FilePath", "state"} where the file was there
  /// already. Errors: 5005 for no blob id, 5003 for no task, 4 and 5 for a download that has ended
  /// and whose file is not there; domain "DownloadTaskError", code 4, with the task's error
  /// context, for a download that has failed.
  void startDownload(const std::optional<std::string>& blobId, DownloadBlock completion);
  /// Asks a running download to pause; the block hears when it has, with the task's output. Errors:
  /// 5005, 5003, and 5001 for a download that does not run.
  void pauseDownload(const std::optional<std::string>& blobId, DownloadBlock completion);
  /// Goes on with a paused download; the block hears of the end, as that of `startDownload`, whose
  /// own is forgotten. Errors: 5003, and 5001 for a download that is not paused.
  void resumeDownload(const std::optional<std::string>& blobId, DownloadBlock completion);

  /// Where the file of the record's binary column is. Returns at once. Errors: 5004 for no such
  /// record, 5001 for no usable file.
  void getBinaryDataFilePathForPrimaryKeys(const platform::Dictionary& primaryKeys,
                                           const std::string& db, const std::string& tableName,
                                           const std::string& columnName,
                                           BlobPathBlock completionBlock);

  /// Records the deletion of the record's binary column for the sync engine. Returns at once. With
  /// "shouldDeleteBeforeSyncSession" true in `options` the file is removed now; a deletion whose
  /// file cannot be removed is not recorded. Errors: domain "DeleteBinaryDomain", 5004 for no such
  /// record, 7001 for what the database refused; under `TransferPolicy::kSafe` 5001 for a file that
  /// could not be removed. An `OperationSettings` in `options` says which policy counts.
  void deleteBinaryObjectForPrimaryKeys(const platform::Dictionary& primaryKeys,
                                        const std::string& db, const std::string& tableName,
                                        const std::string& columnName,
                                        const platform::Dictionary& options,
                                        BlobDeletionBlock completionBlock);

  /// Stops every download and forgets every task, with its blocks. Rows and files stay as they are.
  void clearBinaryDataManagerState();
  /// Ends the run of every download that has been created. Those that are started, resumed or
  /// paused later go on from there. Under `TransferPolicy::kSafe` the blocks that wait hear of it
  /// (5001); else they wait for the end of the next run.
  void invalidateAllBackgroundSessions();

 private:
  struct Badge {};
  struct Insides;

 public:
  /// For `sharedInstance` alone, as the badge says.
  explicit BinaryDataManager(Badge badge);
  ~BinaryDataManager();

 private:
  const std::unique_ptr<Insides> insides_;
};

}  // namespace varo::binary
