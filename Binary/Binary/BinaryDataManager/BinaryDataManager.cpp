#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"

#include "Binary/Binary/BinaryDataManager/BlobDownload.h"
#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/BinaryDataManager/DownloadInput.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"

#include <exception>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Value;

namespace {

constexpr std::string_view kManagerQueue = "dataManagerQueue";
constexpr std::string_view kFilePathQueue = "dataFilePathQueue";
constexpr std::string_view kDeletionQueue = "dataDeletionQueue";

constexpr std::string_view kCreating = "Inside BDM create task.";
constexpr std::string_view kNoRecordFor =
    "Error occurred while creating a task for Primary keys, Binary Record does not exists for :%@";
constexpr std::string_view kAlreadyStarted =
    "Error in creating task. Task is already in started state";
constexpr std::string_view kFileExists = "File already exists. Total bytes downloaded : %lld";
constexpr std::string_view kContextNotUpdated = "Task already started, context can't be updated.";

constexpr std::string_view kStartWithoutId =
    "Blob id recieved null. Calling error delegate from startDownload module..";
constexpr std::string_view kStarting =
    "Starting download for the downloadBinary request with task %@";
constexpr std::string_view kStartWithoutTask =
    "Task doesn't exist. Calling error delegate from startDownload module..";

constexpr std::string_view kPauseWithoutId =
    "Blob id recieved null. Calling error delegate from PauseDownload module..";
constexpr std::string_view kPausing = "Inside pause download for task with blob ID : %@";
constexpr std::string_view kPauseWithoutTask =
    "Task doesn't exist. Calling error delegate from pauseDownload module.";

constexpr std::string_view kResuming = "Inside resume download of BDM for blob ID : %@";
constexpr std::string_view kResumeWithoutTask =
    "Task doesn't exist. calling error delegate from resumeDownload module.";

constexpr std::string_view kLookingUpPath = "Inside getBinaryDataFilePathForPrimaryKeys ";

constexpr std::string_view kClearingTasksMap = "Clearing Tasks Map";
constexpr std::string_view kClearingQueue = "Clearing Scheduled queue";
constexpr std::string_view kClearingTasks = "Clearing all tasks";
constexpr std::string_view kBeforeTasks = "Before clearing tasks queue: %lu";
constexpr std::string_view kAfterTasks = "After clearing tasks queue: %lu";
constexpr std::string_view kInvalidating = "Invalidating and cancelling all background session";
constexpr std::string_view kTaskKey = "Task key is %@";
constexpr std::string_view kCancellingInProgress = "Cancelling all inProgessQueue Tasks";
constexpr std::string_view kBeforeInProgress = "Before clearing inProgress queue: %lu";
constexpr std::string_view kAfterInProgress = "After clearing inProgress queue: %lu";
constexpr std::string_view kBeforeScheduling = "Before clearing scheduling queue: %lu";
constexpr std::string_view kAfterScheduling = "After clearing scheduling queue: %lu";
constexpr std::string_view kBeforeFinished = "Before clearing finished queue: %lu";
constexpr std::string_view kAfterFinished = "After clearing finished queue: %lu";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

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
bool isTaken(std::int64_t state) {
  return state == kFileAvailable || state == kUploadInProgress || state == kDeleteInProgress ||
         state == kUploadAccepted || state == kDeleteAccepted;
}

}  // namespace

const std::shared_ptr<BinaryDataManager>& BinaryDataManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance = *new std::shared_ptr<BinaryDataManager>([] {
    auto manager = std::make_shared<BinaryDataManager>(Badge{});
    // Those that wait may have nobody to wait for: under the compatible policy, when all failed.
    platform::Runtime::shared().onShutdown([manager] {
      platform::Runtime::shared().pool().postOrRun(
          [manager] { manager->places_.endScheduledTasks(); });
    });
    return manager;
  }());
  return instance;
}

BinaryDataManager::BinaryDataManager(Badge /*badge*/)
    : places_(MAX_PARALLEL_JOBS),
      dataManagerQueue_(std::string(kManagerQueue)),
      dataFilePathQueue_(std::string(kFilePathQueue)),
      dataDeletionQueue_(std::string(kDeletionQueue)) {}

// Creating.

void BinaryDataManager::createDownloadTaskForDb(const std::string& databaseName,
                                                const std::string& tableName,
                                                const std::string& columnName,
                                                const Dictionary& primaryKeyTable,
                                                const Dictionary& downloadConfig,
                                                BlobCreationBlock completion) {
  dataManagerQueue_.async(
      [self = shared_from_this(),
       column = BlobColumn{databaseName, tableName, columnName, primaryKeyTable}, downloadConfig,
       settings = OperationSettings::take(downloadConfig), completion = std::move(completion)] {
        const ErrorPtr thrown = caught(kDownloadTaskError, kCodeDownloadTaskFailed, [&] {
          self->create(column, downloadConfig, settings, completion);
        });
        if (thrown != nullptr && completion) callBlock([&] { completion(thrown, std::nullopt); });
      });
}

void BinaryDataManager::create(const BlobColumn& column, const Dictionary& downloadConfig,
                               const OperationSettings::Ptr& settings,
                               const BlobCreationBlock& completion) {
  const auto answer = [&completion](const ErrorPtr& error, const std::optional<std::string>& id) {
    if (completion) callBlock([&] { completion(error, id); });
  };
  logger().logTrace(kCreating);
  if (const ErrorPtr error = shutDownError()) return answer(error, std::nullopt);
  const BlobStoreTable table(column.databaseName, settings->policy);
  const auto blobId = table.obtainBlobId(column.tableName, column.columnName, column.primaryKeys,
                                         downloadConfig[kResponseType]);
  if (!blobId) {
    if (completion) logger().logError(kNoRecordFor, column.primaryKeys);
    return answer(downloadError(kCodeBinaryRecordDoesNotExist, kBinaryRecordNotExists),
                  std::nullopt);
  }
  const Dictionary row = table.row(*blobId).value_or(Dictionary());
  const std::int64_t state = row[blobs::kState].integerValue();
  if (state != 0 && (isTaskInProgress(*blobId) || isTaken(state))) {
    logger().logError(kAlreadyStarted);
    return answer(
        std::make_shared<const platform::Error>(std::string(kTaskCreationErrorDomain),
                                                kCodeInvalidStateForDownloadTaskCreation,
                                                Dictionary{{kPrimaryKeys, column.primaryKeys}}),
        blobId);
  }
  const auto bytes = BlobFiles::bytesOnDisk(row);
  if (bytes) logger().logDebug(kFileExists, *bytes);
  createDownloadTask(*blobId, settings, downloadConfig,
                     {{kTotalBytesDownloaded, bytes.value_or(0)},
                      {kBlobId, *blobId},
                      {kDBName, column.databaseName}},
                     column.primaryKeys);
  answer(nullptr, blobId);
}

bool BinaryDataManager::isTaskInProgress(const std::string& blobId) const {
  return places_.isTaskInProgress(blobId);
}

void BinaryDataManager::createDownloadTask(const std::string& blobId,
                                           const OperationSettings::Ptr& settings,
                                           const Dictionary& downloadConfig,
                                           const Dictionary& additionalConfig,
                                           const Dictionary& andPrimaryKeys) {
  DownloadPtr download = BlobDownload::create(
      downloadInput(downloadConfig, additionalConfig, andPrimaryKeys), settings, places_);
  {
    const MutexLock lock(mutex_);
    tasks_[blobId].swap(download);
    std::erase_if(replaced_, [](const auto& former) { return former.expired(); });
    if (download != nullptr) replaced_.push_back(download);
  }
  if (download != nullptr && download->isUnderWay()) logger().logInfo(kContextNotUpdated);
}

BinaryDataManager::DownloadPtr BinaryDataManager::find(
    const std::optional<std::string>& blobId) const {
  if (!blobId) return nullptr;
  const MutexLock lock(mutex_);
  const auto found = tasks_.find(*blobId);
  return found != tasks_.end() ? found->second : nullptr;
}

BinaryDataManager::Downloads BinaryDataManager::tasks() const {
  const MutexLock lock(mutex_);
  return tasks_;
}

// Starting, pausing and resuming.

void BinaryDataManager::startDownload(const std::optional<std::string>& blobId,
                                      DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) { refuse(completion, blobId, error); };
  if (!blobId) {
    logger().logError(kStartWithoutId);
    return fail(downloadError(kCodeNullDownloadTaskIDReceived, kNullBlobID));
  }
  logger().logDebug(kStarting, *blobId);
  const DownloadPtr download = find(blobId);
  if (download == nullptr) {
    logger().logError(kStartWithoutTask);
    return fail(downloadError(kCodeDownloadTaskNotCreated, kTaskNotCreated));
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);
  download->start(std::move(completion));
}

void BinaryDataManager::pauseDownload(const std::optional<std::string>& blobId,
                                      DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) { refuse(completion, blobId, error); };
  if (!blobId) {
    logger().logError(kPauseWithoutId);
    return fail(downloadError(kCodeNullDownloadTaskIDReceived, kNullBlobID));
  }
  logger().logDebug(kPausing, *blobId);
  const DownloadPtr download = find(blobId);
  if (download == nullptr) {
    logger().logError(kPauseWithoutTask);
    return fail(noTaskError());
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);
  download->pause(std::move(completion));
}

void BinaryDataManager::resumeDownload(const std::optional<std::string>& blobId,
                                       DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) { refuse(completion, blobId, error); };
  logger().logDebug(kResuming, blobId ? Value(*blobId) : Value());
  const DownloadPtr download = find(blobId);
  if (download == nullptr) {
    logger().logError(kResumeWithoutTask);
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
  dataFilePathQueue_.async([column = BlobColumn{db, tableName, columnName, primaryKeys},
                            policy = OperationSettings().policy,
                            block = std::move(completionBlock)] {
    logger().logDebug(kLookingUpPath);
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
  dataDeletionQueue_.async([column = BlobColumn{db, tableName, columnName, primaryKeys},
                            removeNow = options[keys::kShouldDeleteBeforeSyncSession].boolValue(),
                            policy = OperationSettings::take(options)->policy,
                            block = std::move(completionBlock)] {
    BlobDeletion done;
    const ErrorPtr thrown = caught(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, [&] {
      done = BlobFiles::recordDeletion(column, removeNow, policy);
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
    const MutexLock lock(mutex_);
    tasks.swap(tasks_);
    replaced.swap(replaced_);
  }
  const std::vector<DownloadPtr> waiting = places_.takeAllWaiting();
  const std::vector<DownloadPtr> running = places_.running();
  logger().logDebug(kClearingTasksMap);
  clearTasksMap(tasks);
  logger().logDebug(kClearingQueue);
  clearSchedulingQueue(waiting);
  logger().logDebug(kClearingQueue);
  clearInProgressQueue(running);
  logger().logDebug(kClearingQueue);
  clearFinishedQueue();
  for (const auto& former : replaced) {
    if (const DownloadPtr download = former.lock()) download->clear();
  }
}

void BinaryDataManager::invalidateAllBackgroundSessions() {
  invalidate(tasks());
  // Not before all have been told: one that waits would start only to be stopped.
  for (std::size_t place = 0; place < MAX_PARALLEL_JOBS; ++place) places_.startNextScheduledTask();
}

void BinaryDataManager::invalidate(const Downloads& tasks) {
  logger().logDebug(kInvalidating);
  for (const auto& [blobId, download] : tasks) {
    logger().logDebug(kTaskKey, blobId);
    download->stop();
  }
}

void BinaryDataManager::clearTasksMap(const Downloads& tasks) {
  logger().logDebug(kClearingTasks);
  logger().logDebug(kBeforeTasks, tasks.size());
  logger().logDebug(kInvalidating);
  for (const auto& [blobId, download] : tasks) {
    logger().logDebug(kTaskKey, blobId);
    download->clear();
  }
  logger().logDebug(kAfterTasks, 0);
}

void BinaryDataManager::clearSchedulingQueue(const std::vector<DownloadPtr>& schedulingQueue) {
  logger().logDebug(kBeforeScheduling, schedulingQueue.size());
  for (const DownloadPtr& download : schedulingQueue) download->clear();
  logger().logDebug(kAfterScheduling, 0);
}

void BinaryDataManager::clearInProgressQueue(const std::vector<DownloadPtr>& inProgressQueue) {
  logger().logDebug(kCancellingInProgress);
  logger().logDebug(kBeforeInProgress, inProgressQueue.size());
  for (const DownloadPtr& download : inProgressQueue) download->clear();
  logger().logDebug(kAfterInProgress, 0);
}

/// Nothing stays finished: what has ended is processed where its end is heard of.
void BinaryDataManager::clearFinishedQueue() {
  logger().logDebug(kBeforeFinished, 0);
  logger().logDebug(kAfterFinished, 0);
}

}  // namespace varo::binary
