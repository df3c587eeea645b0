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
/// offline-synchronised database. It
/// - downloads them into local files, at most `MAX_PARALLEL_JOBS` at once;
/// - keeps their state in the table `kVaroSyncBlobStoreMangager`;
/// - tells where a file is;
/// - records deletions for the sync engine.
///
/// Arguments:
/// - A database is named, not given by its path: see `SQLiteUtil::pathOfDatabase`.
/// - A record is named by its table and its primary keys (column -> value). If they match several
///   records, the first one is read and all of them are linked to its blob. An empty dictionary
///   matches no record.
///
/// Blocks:
/// - Each may be empty and is called at most once, with no lock held, on a thread of the runtime's
///   pool or on the calling thread. It may call any operation. What it throws is logged and goes no
///   further.
/// - A download has one block of each kind. A new one replaces one that still waits.
/// - docs/policy.md lists the cases in which a block is called under `TransferPolicy::kSafe` only.
///
/// Errors have the domain "DownloadTaskErrorDomain" unless said otherwise. After the runtime's
/// shutdown no download is made or changed (5001), and blocks that wait are told so; path look-ups
/// and deletions still work. Thread-safe.
class BinaryDataManager final : public std::enable_shared_from_this<BinaryDataManager> {
 public:
  /// Downloads that run at once. Resumed ones do not count.
  static constexpr std::size_t MAX_PARALLEL_JOBS = 5;

  /// The process's one manager, which is never destroyed.
  [[nodiscard]] static const std::shared_ptr<BinaryDataManager>& sharedInstance();

  /// Makes the task that downloads the record's binary column and, if there is none, its row in the
  /// table. Returns at once. It replaces an earlier task of the same blob, which is forgotten
  /// unless it runs.
  ///
  /// `downloadConfig` is the input of the download:
  /// - "URL", "ScopeName", "ObjectName", "ChunkSize" (bytes of a range), "Headers", "ResponseType"
  ///   and the others that `NetworkTask` reads;
  /// - "onChunkDownloadCompleted": an `OnChunkDownloadCompleted` that is told of the progress;
  /// - "settings" (`OperationSettings`) and "cancellation" (`platform::Cancellation`), taken now
  ///   for all runs of this task. Once cancelled, it fails now and in every later run.
  ///
  /// Errors: 5004 for no such record; in the domain `kInvalidTaskCreationState`, 5002 for a blob
  /// that is being downloaded or is there already.
  void createDownloadTaskForDb(const std::string& databaseName, const std::string& tableName,
                               const std::string& columnName,
                               const platform::Dictionary& primaryKeyTable,
                               const platform::Dictionary& downloadConfig,
                               BlobCreationBlock completion);

  /// Starts the task, or queues it until there is a place. A task that was paused or has failed
  /// runs again and continues the partial file. The block is called at the end with the task's
  /// output ("BlobID", "FilePath", "TotalFileSize"), or with {"FilePath", "state"} if the file was
  /// there already. Errors:
  /// - 5005: no blob id;
  /// - 5003: no task of this blob;
  /// - 4 and 5: the download has ended, but its file or its row is not there;
  /// - domain "DownloadTaskError", code 4, with the task's error context: the download has failed.
  void startDownload(const std::optional<std::string>& blobId, DownloadBlock completion);
  /// Asks a running download to pause. The block is called with the task's output when it has.
  /// Errors: 5005, 5003, and 5001 for a download that does not run.
  void pauseDownload(const std::optional<std::string>& blobId, DownloadBlock completion);
  /// Resumes a paused download. The block is called at the end, as that of `startDownload`, which
  /// it replaces. Errors: 5003, and 5001 for a download that is not paused.
  void resumeDownload(const std::optional<std::string>& blobId, DownloadBlock completion);

  /// Where the file of the record's binary column is. Returns at once. Errors: 5004 for no such
  /// record, 5001 for no usable file.
  void getBinaryDataFilePathForPrimaryKeys(const platform::Dictionary& primaryKeys,
                                           const std::string& db, const std::string& tableName,
                                           const std::string& columnName,
                                           BlobPathBlock completionBlock);

  /// Records the deletion of the record's binary column for the sync engine. Returns at once.
  /// `options`:
  /// - "shouldDeleteBeforeSyncSession": if true, the file is removed now, and the deletion is not
  ///   recorded if that fails;
  /// - "settings": an `OperationSettings`, whose policy counts.
  ///
  /// Errors, domain "DeleteBinaryDomain": 5004 for no such record, 7001 for a failure of the
  /// database; under `TransferPolicy::kSafe` 5001 for a file that could not be removed.
  void deleteBinaryObjectForPrimaryKeys(const platform::Dictionary& primaryKeys,
                                        const std::string& db, const std::string& tableName,
                                        const std::string& columnName,
                                        const platform::Dictionary& options,
                                        BlobDeletionBlock completionBlock);

  /// Stops every download and forgets every task, with its blocks. Rows and files stay as they are.
  void clearBinaryDataManagerState();
  /// Ends the run of every download that has been created. A later start, resume or pause continues
  /// from there. Under `TransferPolicy::kSafe` the blocks that wait are called (5001); otherwise
  /// they wait for the end of the next run.
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
