#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/BinaryDataManager/DownloadAnswers.h"
#include "Binary/Binary/BinaryDataManager/DownloadInput.h"
#include "Binary/Binary/BinaryDataManager/DownloadRows.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"

#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::TaskState;
using platform::Value;
using platform::VSTask;

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
constexpr std::string_view kScheduling = "Adding download task %@ to the scheduling queue.";
constexpr std::string_view kResetting = "Changing state of task with blob ID %@ to NotStarted.";
constexpr std::string_view kInEndedState = "Task with blob ID %@ in ended state.";

constexpr std::string_view kPauseWithoutId =
    "Blob id recieved null. Calling error delegate from PauseDownload module..";
constexpr std::string_view kPausing = "Inside pause download for task with blob ID : %@";
constexpr std::string_view kPauseWithoutTask =
    "Task doesn't exist. Calling error delegate from pauseDownload module.";
constexpr std::string_view kCannotPause =
    "Task is in NotStarted, Errored or Ended state, hence can't be paused.";
constexpr std::string_view kCallingPause = "Calling the pause download method for blob ID : %@";

constexpr std::string_view kResuming = "Inside resume download of BDM for blob ID : %@";
constexpr std::string_view kResumeWithoutTask =
    "Task doesn't exist. calling error delegate from resumeDownload module.";
constexpr std::string_view kCallingResume = "Calling the resume download method for blob ID : %@";
constexpr std::string_view kResumeInput = "Input context for blob id %@ in resume module: %@";
constexpr std::string_view kNotPaused = "Task is not in Paused state, Hence can't resumed.";

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

ErrorPtr downloadError(std::int32_t code, std::string_view message) {
  return blobError(kDownloadTaskErrorDomain, code, message);
}

/// The error of an operation that the engine would refuse without telling anybody; else null.
ErrorPtr shutDownError() {
  if (!platform::Runtime::shared().isShutDown()) return nullptr;
  return downloadError(kCodeInvalidStateForBinaryOperation, kLibraryShutDown);
}

/// The error of an operation that would wait for ever on a task that was stopped; else null.
ErrorPtr stoppedError(const DownloadTask& task) {
  if (transferPolicy() != TransferPolicy::kSafe || !task.isStopped()) return nullptr;
  return downloadError(kCodeInvalidStateForBinaryOperation, kDownloadStopped);
}

/// Of a pause or resume without a task.
ErrorPtr noTaskError() {
  return std::make_shared<const platform::Error>(std::string(kDownloadTaskErrorDomain),
                                                 kCodeDownloadTaskNotCreated, Dictionary());
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
          [manager] { manager->scheduler_.endScheduledTasks(); });
    });
    return manager;
  }());
  return instance;
}

BinaryDataManager::BinaryDataManager(Badge /*badge*/)
    : lists_(MAX_PARALLEL_JOBS),
      scheduler_(lists_),
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
       completion = std::move(completion)] { self->create(column, downloadConfig, completion); });
}

void BinaryDataManager::create(const BlobColumn& column, const Dictionary& downloadConfig,
                               const BlobCreationBlock& completion) {
  const auto answer = [&completion](const ErrorPtr& error, const std::optional<std::string>& id) {
    if (completion) callBlock([&] { completion(error, id); });
  };
  logger().logTrace(kCreating);
  if (const ErrorPtr error = shutDownError()) return answer(error, std::nullopt);
  const BlobStoreTable table(column.databaseName, OperationSettings::take(downloadConfig)->policy);
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
        std::make_shared<const platform::Error>(std::string(kInvalidTaskCreationState),
                                                kCodeInvalidStateForDownloadTaskCreation,
                                                Dictionary{{kPrimaryKeys, column.primaryKeys}}),
        blobId);
  }
  const auto bytes = BlobFiles::bytesOnDisk(row);
  if (bytes) logger().logDebug(kFileExists, *bytes);
  createDownloadTask(*blobId, downloadConfig,
                     {{kTotalBytesDownloaded, bytes.value_or(0)},
                      {kBlobId, *blobId},
                      {kDBName, column.databaseName}},
                     column.primaryKeys);
  answer(nullptr, blobId);
}

bool BinaryDataManager::isTaskInProgress(const std::string& blobId) const {
  return lists_.isInProgress(blobId);
}

void BinaryDataManager::createDownloadTask(const std::string& blobId,
                                           const Dictionary& downloadConfig,
                                           const Dictionary& additionalConfig,
                                           const Dictionary& andPrimaryKeys) {
  const auto former = lists_.find(blobId);
  if (former.task != nullptr && former.state == TaskState::Started) {
    logger().logInfo(kContextNotUpdated);
  }
  const TaskPtr task = DownloadTask::create(blobId);
  task->subscribeForTaskUpdates(shared_from_this());
  task->setInputContext(downloadInput(downloadConfig, additionalConfig, andPrimaryKeys));
  lists_.add(task);
}

// Starting.

void BinaryDataManager::startDownload(const std::optional<std::string>& blobId,
                                      DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) {
    DownloadAnswers::answer(completion, blobId, error, std::nullopt);
  };
  if (!blobId) {
    logger().logError(kStartWithoutId);
    return fail(downloadError(kCodeNullDownloadTaskIDReceived, kNullBlobID));
  }
  logger().logDebug(kStarting, *blobId);
  const auto found = lists_.find(*blobId);
  if (found.task == nullptr) {
    logger().logError(kStartWithoutTask);
    return fail(downloadError(kCodeDownloadTaskNotCreated, kTaskNotCreated));
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);

  const TaskPtr& task = found.task;
  if (found.state == TaskState::Ended) logger().logDebug(kInEndedState, *blobId);
  ErrorPtr error;
  const auto available = DownloadRows::checkIfFileAvailableForTask(*task, &error);
  if (available || found.state == TaskState::Ended) {
    return DownloadAnswers::answer(completion, blobId, available ? nullptr : error, available);
  }
  if (const ErrorPtr stopped = stoppedError(*task)) return fail(stopped);
  const bool atRest = found.state == TaskState::Paused || found.state == TaskState::Errored;
  // Where another operation was faster, everything may be different now.
  if (atRest && !lists_.claimRestart(*task, found.state)) {
    return startDownload(blobId, std::move(completion));
  }
  task->setStartDownloadTaskCompletionBlock(std::move(completion));
  logger().logDebug(kScheduling, *blobId);
  if (atRest) {
    logger().logDebug(kResetting, *blobId);
    task->setState(TaskState::NotStarted);
    settle(*task);
  }
  if (lists_.schedule(task, found.generation)) scheduler_.checkAndStartExecution(task);
  if (platform::Runtime::shared().isShutDown()) scheduler_.endScheduledTasks();
  answerIfCleared(found);
  if (found.state == TaskState::Started) startIfEnded(*blobId, found);
}

void BinaryDataManager::startIfEnded(const std::string& blobId, const DownloadLists::Found& found) {
  const auto now = lists_.find(blobId);
  if (now.task != found.task || !platform::isFinal(now.state)) return;
  DownloadBlock late = now.task->takeStartDownloadTaskCompletionBlock();
  if (late) startDownload(blobId, std::move(late));
}

// Pausing and resuming.

void BinaryDataManager::pauseDownload(const std::optional<std::string>& blobId,
                                      DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) {
    DownloadAnswers::answer(completion, blobId, error, std::nullopt);
  };
  if (!blobId) {
    logger().logError(kPauseWithoutId);
    return fail(downloadError(kCodeNullDownloadTaskIDReceived, kNullBlobID));
  }
  logger().logDebug(kPausing, *blobId);
  const auto found = lists_.find(*blobId);
  if (found.task == nullptr) {
    logger().logError(kPauseWithoutTask);
    return fail(noTaskError());
  }
  if (found.state == TaskState::NotStarted || platform::isFinal(found.state)) {
    logger().logError(kCannotPause);
    return fail(downloadError(kCodeInvalidStateForBinaryOperation, kTaskNotStarted));
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);
  if (const ErrorPtr stopped = stoppedError(*found.task)) return fail(stopped);
  if (found.state == TaskState::Paused) {
    return DownloadAnswers::answer(completion, blobId, nullptr, found.task->outputContext());
  }
  found.task->setPauseDownloadTaskCompletionBlock(std::move(completion));
  logger().logDebug(kCallingPause, *blobId);
  if (!lists_.leavePauseToResume(*found.task)) pauseIfStarted(*found.task);
  answerLatePause(*blobId, found);
}

void BinaryDataManager::pauseIfStarted(DownloadTask& task) {
  if (task.state() == TaskState::Started) task.pauseDownload();
}

void BinaryDataManager::settle(DownloadTask& task) {
  if (lists_.settle(task)) pauseIfStarted(task);
}

void BinaryDataManager::answerLatePause(const std::string& blobId,
                                        const DownloadLists::Found& found) {
  const auto now = lists_.find(blobId);
  if (now.task == found.task) {
    if (now.state == TaskState::Paused) {
      DownloadAnswers::answerPause(*now.task, nullptr, now.task->outputContext());
    } else if (platform::isFinal(now.state)) {
      DownloadAnswers::answerPauseAfterEnd(*now.task);
    }
  }
  answerIfCleared(found);
}

void BinaryDataManager::resumeDownload(const std::optional<std::string>& blobId,
                                       DownloadBlock completion) {
  const auto fail = [&](const ErrorPtr& error) {
    DownloadAnswers::answer(completion, blobId, error, std::nullopt);
  };
  logger().logDebug(kResuming, blobId ? Value(*blobId) : Value());
  const auto found = blobId ? lists_.find(*blobId) : DownloadLists::Found{};
  if (found.task == nullptr) {
    logger().logError(kResumeWithoutTask);
    return fail(noTaskError());
  }
  if (found.state == TaskState::Started || platform::isFinal(found.state)) {
    return fail(downloadError(kCodeInvalidStateForBinaryOperation, kTaskStarted));
  }
  if (found.state != TaskState::Paused) {
    logger().logError(kNotPaused);
    return fail(downloadError(kCodeInvalidStateForBinaryOperation, kTaskNotPaused));
  }
  if (const ErrorPtr error = shutDownError()) return fail(error);

  const TaskPtr& task = found.task;
  ErrorPtr notAvailable;
  if (const auto available = DownloadRows::checkIfFileAvailableForTask(*task, &notAvailable)) {
    task->setStartDownloadTaskCompletionBlock({});
    return DownloadAnswers::answer(completion, blobId, nullptr, available);
  }
  if (const ErrorPtr stopped = stoppedError(*task)) return fail(stopped);
  // The block of the start goes unless another operation is faster; everything is different then.
  if (!lists_.claimResume(*task)) return resumeDownload(blobId, std::move(completion));
  task->setResumeDownloadTaskCompletionBlock(std::move(completion));
  logger().logDebug(kCallingResume, *blobId);
  DownloadRows::setMetaDataForTask(*task);
  const Dictionary input = task->inputContext();
  logger().logDebug(kResumeInput, *blobId, input);
  task->updateInputContext(input);
  task->resumeDownload();
  settle(*task);
  answerIfCleared(found);
}

void BinaryDataManager::answerIfCleared(const DownloadLists::Found& found) {
  if (!lists_.isCurrent(found.generation)) DownloadAnswers::answerCleared(*found.task);
}

// Hearing of downloads.

void BinaryDataManager::task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                             const Dictionary& context) {
  const auto download = std::dynamic_pointer_cast<DownloadTask>(task);
  if (download == nullptr) return;
  const Dictionary output = context[platform::kTaskOutputContext].dictionaryValue();
  if (from != to) return scheduler_.downloadChanged(download, to, output);
  if (transferPolicy() == TransferPolicy::kSafe) DownloadRows::noteFileOfTask(*download, output);
}

// Files.

void BinaryDataManager::getBinaryDataFilePathForPrimaryKeys(const Dictionary& primaryKeys,
                                                            const std::string& db,
                                                            const std::string& tableName,
                                                            const std::string& columnName,
                                                            BlobPathBlock completionBlock) {
  dataFilePathQueue_.async([column = BlobColumn{db, tableName, columnName, primaryKeys},
                            policy = OperationSettings::take({})->policy,
                            block = std::move(completionBlock)] {
    logger().logDebug(kLookingUpPath);
    const auto path = BlobFiles::filePath(column, policy);
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
    const BlobDeletion done = BlobFiles::recordDeletion(column, removeNow, policy);
    if (!block) return;
    callBlock([&] { block(done.blobId, done.recorded, done.fileRemoved, done.error); });
  });
}

// Clearing.

void BinaryDataManager::clearBinaryDataManagerState() {
  const DownloadLists::Content content = lists_.takeAll();
  logger().logDebug(kClearingTasksMap);
  clearTasksMap(content.tasks);
  logger().logDebug(kClearingQueue);
  clearSchedulingQueue(content.schedulingQueue);
  logger().logDebug(kClearingQueue);
  clearInProgressQueue(content.inProgressQueue);
  logger().logDebug(kClearingQueue);
  clearFinishedQueue(content.finishedQueue);
  for (const DownloadLists::Entry& entry : content.replaced) {
    entry.task->unsubscribeForTaskUpdates(shared_from_this());
    entry.task->stop();
    DownloadAnswers::answerCleared(*entry.task);
  }

  for (const auto& [blobId, entry] : content.tasks) DownloadAnswers::answerCleared(*entry.task);
  // Those that were replaced in the map but not in their list. A block is taken but once.
  for (const TaskList* list :
       {&content.schedulingQueue, &content.inProgressQueue, &content.finishedQueue}) {
    for (const TaskPtr& task : *list) DownloadAnswers::answerCleared(*task);
  }
}

void BinaryDataManager::invalidateAllBackgroundSessions() { invalidate(lists_.tasks()); }

void BinaryDataManager::invalidate(const std::map<std::string, DownloadLists::Entry>& tasks) {
  logger().logDebug(kInvalidating);
  for (const auto& [blobId, entry] : tasks) {
    logger().logDebug(kTaskKey, blobId);
    entry.task->stop();
  }
}

void BinaryDataManager::clearTasksMap(const std::map<std::string, DownloadLists::Entry>& tasks) {
  logger().logDebug(kClearingTasks);
  logger().logDebug(kBeforeTasks, tasks.size());
  invalidate(tasks);
  logger().logDebug(kAfterTasks, 0);
}

void BinaryDataManager::clearSchedulingQueue(const TaskList& schedulingQueue) {
  logger().logDebug(kBeforeScheduling, schedulingQueue.size());
  logger().logDebug(kAfterScheduling, 0);
}

void BinaryDataManager::clearInProgressQueue(const TaskList& inProgressQueue) {
  logger().logDebug(kCancellingInProgress);
  logger().logDebug(kBeforeInProgress, inProgressQueue.size());
  for (const TaskPtr& task : inProgressQueue) {
    task->unsubscribeForTaskUpdates(shared_from_this());
    task->stop();
  }
  logger().logDebug(kAfterInProgress, 0);
}

void BinaryDataManager::clearFinishedQueue(const TaskList& finishedQueue) {
  logger().logDebug(kBeforeFinished, finishedQueue.size());
  logger().logDebug(kAfterFinished, 0);
}

}  // namespace varo::binary
