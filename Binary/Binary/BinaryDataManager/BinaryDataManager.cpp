#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"

#include "Binary/Binary/BinaryDataManager/BlobDownload.h"
#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/BinaryDataManager/DownloadInput.h"
#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/WorkQueue.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <list>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::binary {
namespace {

namespace texts = log_texts::binary_data_manager;

constexpr char kManagerQueue[] = "dataManagerQueue";
constexpr char kFilePathQueue[] = "dataFilePathQueue";
constexpr char kDeletionQueue[] = "dataDeletionQueue";
/// Creations whose rows are made in one transaction. Their commit costs little more than that of
/// one, while others wait for the database, and for the first answer, a few milliseconds longer.
constexpr std::size_t kMaxRowsTogether = 100;

using DownloadPtr = std::shared_ptr<BlobDownload>;
/// By their blob ids.
using Downloads = std::map<std::string, DownloadPtr>;

/// The error of an operation that the engine would refuse without telling anybody; else null.
ErrorPtr shutDownError() {
  if (!platform::Runtime::shared().isShutDown()) return nullptr;
  return downloadError(kCodeInvalidStateForBinaryOperation, kLibraryShutDown);
}

/// Of a pause or resume without a task.
ErrorPtr noTaskError() {
  return std::make_shared<const platform::Error>(std::string(kDownloadTaskErrorDomain),
                                                 kCodeDownloadTaskNotCreated, Dictionary());
}

void refuse(const DownloadBlock& completion, const std::optional<std::string>& blobId,
            const ErrorPtr& error) {
  if (completion) callBlock([&] { completion(blobId, error, std::nullopt); });
}

/// What is thrown on a queue is the operation's failure: there is nobody else who would hear of it.
/// Null where nothing is.
template <typename Step>
ErrorPtr caught(std::string_view domain, std::int32_t code, const Step& step) {
  try {
    step();
    return nullptr;
  } catch (const std::exception& exception) {
    return blobError(domain, code, exception.what());
  }
}

/// Whether the sync engine or another download would be disturbed by one of a blob in this state.
bool isTaken(std::int64_t state) { return blobs::hasFile(state) || blobs::isDeletion(state); }

void invalidate(const Downloads& tasks) {
  logger().logDebug(texts::kInvalidating);
  for (const auto& [blobId, download] : tasks) {
    logger().logDebug(texts::kTaskKey, blobId);
    download->stop();
  }
}

void clearTasksMap(const Downloads& tasks) {
  logger().logDebug(texts::kClearingTasks);
  logger().logDebug(texts::kBeforeTasks, tasks.size());
  logger().logDebug(texts::kInvalidating);
  for (const auto& [blobId, download] : tasks) {
    logger().logDebug(texts::kTaskKey, blobId);
    download->clear();
  }
  logger().logDebug(texts::kAfterTasks, 0);
}

void clearSchedulingQueue(const std::vector<DownloadPtr>& schedulingQueue) {
  logger().logDebug(texts::kBeforeScheduling, schedulingQueue.size());
  for (const DownloadPtr& download : schedulingQueue) download->clear();
  logger().logDebug(texts::kAfterScheduling, 0);
}

void clearInProgressQueue(const std::vector<DownloadPtr>& inProgressQueue) {
  logger().logDebug(texts::kCancellingInProgress);
  logger().logDebug(texts::kBeforeInProgress, inProgressQueue.size());
  for (const DownloadPtr& download : inProgressQueue) download->clear();
  logger().logDebug(texts::kAfterInProgress, 0);
}

/// Nothing stays finished: what has ended is processed where its end is heard of.
void clearFinishedQueue() {
  logger().logDebug(texts::kBeforeFinished, 0);
  logger().logDebug(texts::kAfterFinished, 0);
}

/// What `createDownloadTaskForDb` was called with.
struct Creation {
  std::string databaseName;
  WantedBlob blob;
  Dictionary downloadConfig;
  /// Taken with the call, and not on the queue: a policy that is set after it is for later
  /// downloads.
  OperationSettings::Ptr settings;
  BlobCreationBlock completion;
  /// That of the call.
  platform::JobContext::Ptr context = platform::JobContext::current();
  /// The row that was made for it together with those of others.
  LinkedRow ahead = {};
};

/// Makes the rows that several creations need, as far as they can be made together.
void makeRowsAhead(std::list<Creation>& creations, const std::string& databasePath) {
  std::vector<WantedBlob> wanted;
  wanted.reserve(creations.size());
  for (const Creation& creation : creations) wanted.push_back(creation.blob);
  auto row = BlobStoreTable::makeRows(databasePath, wanted);
  auto made = row.begin();
  for (Creation& creation : creations) creation.ahead = std::move(*made++);
}

}  // namespace

/// Thread-safe.
struct BinaryDataManager::Insides {
  /// Carries out the creation that has waited for longest.
  void createNext();
  void prepareCreations();
  void create(const Creation& creation);
  void createDownloadTask(const std::string& blobId, const OperationSettings::Ptr& settings,
                          const Dictionary& downloadConfig, const Dictionary& additionalConfig,
                          const Dictionary& andPrimaryKeys);
  [[nodiscard]] DownloadPtr find(const std::optional<std::string>& blobId) const;
  [[nodiscard]] Downloads allTasks() const;

  DownloadPlaces places{MAX_PARALLEL_JOBS};

  /// Owned by `dataManagerQueue`: of `waiting`, those whose rows were made together.
  std::list<Creation> prepared;

  mutable platform::Mutex mutex;
  /// Creations in the order of their calls; there is a job of `dataManagerQueue` for each.
  std::list<Creation> waiting VARO_GUARDED_BY(mutex);
  /// No download is called or destroyed under the lock: it would call back.
  Downloads tasks VARO_GUARDED_BY(mutex);
  /// Downloads that still run although a newer one of the same blob has taken their place.
  std::vector<std::weak_ptr<BlobDownload>> replaced VARO_GUARDED_BY(mutex);

  // One operation of a kind at a time. Last, so that they end before what their jobs use.
  platform::SerialQueue dataManagerQueue{kManagerQueue};
  platform::SerialQueue dataFilePathQueue{kFilePathQueue};
  platform::SerialQueue dataDeletionQueue{kDeletionQueue};
};

const std::shared_ptr<BinaryDataManager>& BinaryDataManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance = *new std::shared_ptr<BinaryDataManager>([] {
    auto manager = std::make_shared<BinaryDataManager>(Badge{});
    // Those that wait may have nobody to wait for: under the compatible policy, when all failed.
    platform::Runtime::shared().onShutdown([manager] {
      platform::Runtime::shared().pool().postOrRun(
          [manager] { manager->insides_->places.endScheduledTasks(); });
    });
    return manager;
  }());
  return instance;
}

BinaryDataManager::BinaryDataManager(Badge /*badge*/) : insides_(std::make_unique<Insides>()) {}

BinaryDataManager::~BinaryDataManager() = default;

// Creating.

void BinaryDataManager::createDownloadTaskForDb(const std::string& databaseName,
                                                const std::string& tableName,
                                                const std::string& columnName,
                                                const Dictionary& primaryKeyTable,
                                                const Dictionary& downloadConfig,
                                                BlobCreationBlock completion) {
  // A list, so that what is in it is moved on without memory.
  std::list<Creation> creation;
  creation.push_back({databaseName,
                      {tableName, columnName, primaryKeyTable, downloadConfig[kResponseType]},
                      downloadConfig,
                      OperationSettings::take(downloadConfig),
                      std::move(completion)});
  {
    const MutexLock lock(insides_->mutex);
    insides_->waiting.splice(insides_->waiting.end(), creation);
  }
  insides_->dataManagerQueue.async([self = shared_from_this()] { self->insides_->createNext(); });
}

void BinaryDataManager::Insides::createNext() {
  if (prepared.empty()) prepareCreations();
  std::list<Creation> next;
  next.splice(next.end(), prepared, prepared.begin());
  const Creation& creation = next.front();
  const platform::JobContext::Scope scope(creation.context);
  const ErrorPtr thrown =
      caught(kDownloadTaskError, kCodeDownloadTaskFailed, [&] { create(creation); });
  if (thrown == nullptr || !creation.completion) return;
  callBlock([&] { creation.completion(thrown, std::nullopt); });
}

/// A commit waits for the disk, so those that wait in turn share one.
void BinaryDataManager::Insides::prepareCreations() {
  {
    const MutexLock lock(mutex);
    const auto count = std::min(waiting.size(), kMaxRowsTogether);
    const auto end = std::next(waiting.begin(), static_cast<std::ptrdiff_t>(count));
    prepared.splice(prepared.end(), waiting, waiting.begin(), end);
  }
  if (prepared.size() < 2 || platform::Runtime::shared().isShutDown()) return;
  try {
    const auto path = [](const Creation& creation) {
      return BlobStoreTable::pathOf(creation.databaseName, *creation.settings);
    };
    const std::string databasePath = path(prepared.front());
    const auto other = std::find_if(prepared.begin(), prepared.end(), [&](const auto& creation) {
      return path(creation) != databasePath;
    });
    {
      // Another database's are for the next time.
      const MutexLock lock(mutex);
      waiting.splice(waiting.begin(), prepared, other, prepared.end());
    }
    makeRowsAhead(prepared, databasePath);
  } catch (const std::exception&) {
    // No memory: each makes its own row.
  }
}

void BinaryDataManager::Insides::create(const Creation& creation) {
  const auto answer = [&creation](const ErrorPtr& error, const std::optional<std::string>& id) {
    if (creation.completion) callBlock([&] { creation.completion(error, id); });
  };
  logger().logTrace(texts::kCreating);
  if (const ErrorPtr error = shutDownError()) return answer(error, std::nullopt);
  const Dictionary& primaryKeys = creation.blob.primaryKeys;
  const BlobStoreTable table(creation.databaseName, *creation.settings);
  const auto blobId = table.obtainBlobId(creation.blob, creation.ahead);
  if (!blobId) {
    if (creation.completion) logger().logError(texts::kNoRecordFor, primaryKeys);
    return answer(downloadError(kCodeBinaryRecordDoesNotExist, kBinaryRecordNotExists),
                  std::nullopt);
  }
  const Dictionary row = table.row(*blobId).value_or(Dictionary());
  const std::int64_t state = row[blobs::kState].integerValue();
  if (state != 0 && (places.isTaskInProgress(*blobId) || isTaken(state))) {
    logger().logError(texts::kAlreadyStarted);
    return answer(std::make_shared<const platform::Error>(std::string(kTaskCreationErrorDomain),
                                                          kCodeInvalidStateForDownloadTaskCreation,
                                                          Dictionary{{kPrimaryKeys, primaryKeys}}),
                  blobId);
  }
  const auto bytes = BlobFiles::bytesOnDisk(row);
  if (bytes) logger().logDebug(texts::kFileExists, *bytes);
  createDownloadTask(*blobId, creation.settings, creation.downloadConfig,
                     {{kTotalBytesDownloaded, bytes.value_or(0)},
                      {kBlobId, *blobId},
                      {kDBName, creation.databaseName}},
                     primaryKeys);
  answer(nullptr, blobId);
}

void BinaryDataManager::Insides::createDownloadTask(const std::string& blobId,
                                                    const OperationSettings::Ptr& settings,
                                                    const Dictionary& downloadConfig,
                                                    const Dictionary& additionalConfig,
                                                    const Dictionary& andPrimaryKeys) {
  DownloadPtr download = BlobDownload::create(
      downloadInput(downloadConfig, additionalConfig, andPrimaryKeys, *settings), settings, places);
  {
    const MutexLock lock(mutex);
    // Swapped out, so that the former download is not destroyed under the lock.
    tasks[blobId].swap(download);
    std::erase_if(replaced, [](const auto& former) { return former.expired(); });
    if (download != nullptr) replaced.push_back(download);
  }
  if (download != nullptr && download->isUnderWay()) logger().logInfo(texts::kContextNotUpdated);
}

DownloadPtr BinaryDataManager::Insides::find(const std::optional<std::string>& blobId) const {
  if (!blobId) return nullptr;
  const MutexLock lock(mutex);
  const auto found = tasks.find(*blobId);
  return found != tasks.end() ? found->second : nullptr;
}

Downloads BinaryDataManager::Insides::allTasks() const {
  const MutexLock lock(mutex);
  // A copy: each download is then called without the lock.
  return tasks;
}

// Starting, pausing and resuming.

void BinaryDataManager::startDownload(const std::optional<std::string>& blobId,
                                      DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) { refuse(completion, blobId, error); };
  if (!blobId) {
    logger().logError(texts::kStartWithoutId);
    return fail(downloadError(kCodeNullDownloadTaskIDReceived, kNullBlobID));
  }
  logger().logDebug(texts::kStarting, *blobId);
  const DownloadPtr download = insides_->find(blobId);
  if (download == nullptr) {
    logger().logError(texts::kStartWithoutTask);
    return fail(downloadError(kCodeDownloadTaskNotCreated, kTaskNotCreated));
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);
  download->start(std::move(completion));
}

void BinaryDataManager::pauseDownload(const std::optional<std::string>& blobId,
                                      DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) { refuse(completion, blobId, error); };
  if (!blobId) {
    logger().logError(texts::kPauseWithoutId);
    return fail(downloadError(kCodeNullDownloadTaskIDReceived, kNullBlobID));
  }
  logger().logDebug(texts::kPausing, *blobId);
  const DownloadPtr download = insides_->find(blobId);
  if (download == nullptr) {
    logger().logError(texts::kPauseWithoutTask);
    return fail(noTaskError());
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);
  download->pause(std::move(completion));
}

void BinaryDataManager::resumeDownload(const std::optional<std::string>& blobId,
                                       DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) { refuse(completion, blobId, error); };
  logger().logDebug(texts::kResuming, blobId ? Value(*blobId) : Value());
  const DownloadPtr download = insides_->find(blobId);
  if (download == nullptr) {
    logger().logError(texts::kResumeWithoutTask);
    return fail(noTaskError());
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);
  download->resume(std::move(completion));
}

// Files.

void BinaryDataManager::getBinaryDataFilePathForPrimaryKeys(const Dictionary& primaryKeys,
                                                            const std::string& db,
                                                            const std::string& tableName,
                                                            const std::string& columnName,
                                                            BlobPathBlock completionBlock) {
  insides_->dataFilePathQueue.async([column = BlobColumn{db, tableName, columnName, primaryKeys},
                                     policy = OperationSettings().policy,
                                     block = std::move(completionBlock)] {
    logger().logDebug(texts::kLookingUpPath);
    platform::Result<std::string> path = std::string();
    const ErrorPtr thrown = caught(kDownloadTaskError, kCodeDownloadTaskFailed,
                                   [&] { path = BlobFiles::filePath(column, policy); });
    if (thrown != nullptr) path = thrown;
    if (!block) return;
    callBlock([&] { block(path.error(), path ? std::optional(*path) : std::nullopt); });
  });
}

void BinaryDataManager::deleteBinaryObjectForPrimaryKeys(
    const Dictionary& primaryKeys, const std::string& db, const std::string& tableName,
    const std::string& columnName, const Dictionary& options, BlobDeletionBlock completionBlock) {
  insides_->dataDeletionQueue.async(
      [column = BlobColumn{db, tableName, columnName, primaryKeys},
       removeNow = options[keys::kShouldDeleteBeforeSyncSession].boolValue(),
       settings = OperationSettings::take(options), block = std::move(completionBlock)] {
        BlobDeletion done;
        const ErrorPtr thrown = caught(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, [&] {
          done = BlobFiles::recordDeletion(BlobStoreTable(column.databaseName, *settings), column,
                                           removeNow, settings->policy);
        });
        if (thrown != nullptr) done.error = thrown;
        if (!block) return;
        callBlock([&] { block(done.blobId, done.recorded, done.fileRemoved, done.error); });
      });
}

// Clearing.

void BinaryDataManager::clearBinaryDataManagerState() {
  Downloads tasks;
  std::vector<std::weak_ptr<BlobDownload>> replaced;
  {
    const MutexLock lock(insides_->mutex);
    // All at once, so that a download that is made meanwhile is either cleared or left alone.
    tasks.swap(insides_->tasks);
    replaced.swap(insides_->replaced);
  }
  const std::vector<DownloadPtr> waiting = insides_->places.takeAllWaiting();
  const std::vector<DownloadPtr> running = insides_->places.running();
  logger().logDebug(texts::kClearingTasksMap);
  clearTasksMap(tasks);
  logger().logDebug(texts::kClearingQueue);
  clearSchedulingQueue(waiting);
  logger().logDebug(texts::kClearingQueue);
  clearInProgressQueue(running);
  logger().logDebug(texts::kClearingQueue);
  clearFinishedQueue();
  for (const auto& former : replaced) {
    if (const DownloadPtr download = former.lock()) download->clear();
  }
}

void BinaryDataManager::invalidateAllBackgroundSessions() {
  invalidate(insides_->allTasks());
  // Not before all have been told: one that waits would start only to be stopped.
  for (std::size_t place = 0; place < MAX_PARALLEL_JOBS; ++place) {
    insides_->places.startNextScheduledTask();
  }
}

}  // namespace varo::binary
