#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/BinaryDataManager/OnlineDownloadInput.h"
#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/WorkQueue.h"

#include <exception>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Clock;
using platform::Runtime;
using platform::SerialQueue;

namespace {

namespace texts = log_texts::online_binary_data_manager;

constexpr char kQueue[] = "onlineDownloadQueue";

/// The error of a download that the engine would refuse without telling anybody; else null.
ErrorPtr shutDownError() {
  if (!Runtime::shared().isShutDown()) return nullptr;
  return blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation, kLibraryShutDown);
}

void releaseFile(DownloadTask& task) {
  try {
    task.releaseFile();
  } catch (const std::bad_alloc&) {
    // It is released with the task.
  }
}

ErrorPtr unexpected(std::string_view exception) {
  return blobError(kDownloadTaskError, kCodeDownloadTaskFailed, exception);
}

/// Made while there is memory, for when there is none.
const ErrorPtr& outOfMemory() {
  static const ErrorPtr error = unexpected(std::bad_alloc().what());
  return error;
}

void tell(const OnlineDownload& download, const std::string& identifier, const ErrorPtr& error) {
  if (!download.onDownloadFailure) return;
  callBlock([&] { download.onDownloadFailure(identifier, error, download.fileParams); });
}

/// Not on the queue: a block that takes its time must not keep other downloads from starting.
/// Without memory that is better than no call.
void refuse(const std::shared_ptr<const OnlineDownload>& download, const std::string& identifier,
            const ErrorPtr& error) {
  try {
    logger().logError(texts::kNotStarted, identifier, error);
    Runtime::shared().pool().postOrRun(
        [download, identifier, error] { tell(*download, identifier, error); });
  } catch (const std::bad_alloc&) {
    tell(*download, identifier, error);
  }
}

}  // namespace

const std::shared_ptr<OnlineBinaryDataManager>& OnlineBinaryDataManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance =
      *new std::shared_ptr<OnlineBinaryDataManager>(std::make_shared<OnlineBinaryDataManager>());
  return instance;
}

OnlineBinaryDataManager::OnlineBinaryDataManager(const Clock& clock) : clock_(clock) {
  static_cast<void>(outOfMemory());
}

SerialQueue& OnlineBinaryDataManager::onlineDownloadQueue() {
  static auto& queue = *new SerialQueue(kQueue);
  return queue;
}

// Starting.

void OnlineBinaryDataManager::createAndStartOnlineDownloadTaskFor(
    const Dictionary& fileParams, bool withStreaming, const Dictionary& downloadConfig,
    OnFileDownloadStarted::Function withOnFileDownloadStartedCompletionBlock,
    OnChunkDownloadCompleted::Function andOnChunkDownloadCompletedCompletionBlock,
    OnStreamDownloadCompleted::Function andOnStreamDownloadCompletedCompletionBlock,
    OnFileDownloadCompleted::Function andOnFileDownloadCompletedCompletionBlock,
    OnDownloadFailure::Function andOnDownloadFailureCompletionBlock,
    const std::optional<Dictionary>& andOptions) {
  const auto download = std::make_shared<const OnlineDownload>(
      OnlineDownload{fileParams, withStreaming, downloadConfig, andOptions,
                     OperationSettings::take(andOptions.value_or(Dictionary())),
                     std::move(withOnFileDownloadStartedCompletionBlock),
                     std::move(andOnChunkDownloadCompletedCompletionBlock),
                     std::move(andOnStreamDownloadCompletedCompletionBlock),
                     std::move(andOnFileDownloadCompletedCompletionBlock),
                     std::move(andOnDownloadFailureCompletionBlock)});
  // On the queue, so that two downloads of one name cannot both find it free.
  onlineDownloadQueue().async([self = shared_from_this(), download] { self->create(download); });
}

/// Blocks are copied here, and what an application's block throws then must not be lost.
void OnlineBinaryDataManager::create(const std::shared_ptr<const OnlineDownload>& download) {
  std::string identifier;
  try {
    endWithRuntime();
    identifier = onlineDownloadIdentifier(*download, clock_);
    schedule(download, identifier);
  } catch (const std::bad_alloc&) {
    refuse(download, identifier, outOfMemory());
  } catch (const std::exception& exception) {
    refuse(download, identifier, unexpected(exception.what()));
  } catch (...) {
    refuse(download, identifier, unexpected(kUnknownException));
  }
}

void OnlineBinaryDataManager::schedule(const std::shared_ptr<const OnlineDownload>& download,
                                       const std::string& identifier) {
  if (isKnown(identifier)) {
    return refuse(
        download, identifier,
        std::make_shared<const Error>(std::string(kAlreadyQueuedErrorDomain),
                                      kDownloadNotStartedAlreadyExistsInQueue, Dictionary()));
  }
  if (const ErrorPtr error = shutDownError()) return refuse(download, identifier, error);
  const auto task = makeTask(*download, identifier);
  if (!task) return refuse(download, identifier, task.error());
  try {
    enter(*task);
    (void)queue_.schedule(*task);
    // What waits goes first.
    checkAndStartExecution(download->settings->isSafe() ? queue_.firstWaiting() : *task);
  } catch (const std::exception&) {
    (void)queue_.remove(*task);
    forget(*task);
    throw;
  }
}

Result<OnlineBinaryDataManager::TaskPtr> OnlineBinaryDataManager::makeTask(
    const OnlineDownload& download, const std::string& identifier) {
  const auto input = onlineDownloadInput(download, identifier, clock_);
  if (!input) return input.error();
  TaskPtr task = DownloadTask::create(identifier);
  task->subscribeForTaskUpdates(shared_from_this());
  task->setInputContext(*input);
  task->onFileDownloadStartedCompletionBlock = download.onFileDownloadStarted;
  task->onFileDownloadCompletedCompletionBlock = download.onFileDownloadCompleted;
  task->onDownloadFailureCompletionBlock = download.onDownloadFailure;
  return task;
}

/// What waits may have nobody to wait for: under the compatible policy, when all that ran failed.
void OnlineBinaryDataManager::endWithRuntime() {
  if (std::exchange(endsWithRuntime_, true)) return;
  Runtime::shared().onShutdown([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->startNextScheduledTask();
  });
}

void OnlineBinaryDataManager::checkAndStartExecution(const TaskPtr& task) {
  logger().logDebug(log_texts::kCheckingForEmptySlot);
  if (task == nullptr || task->state() != TaskState::NotStarted) return;
  // Who calls this with a task of its own has not.
  if (!queue_.isWaiting(task)) (void)queue_.schedule(task);
  if (!queue_.takeToStart(task)) return;
  task->start();  // first: once there is a place it is taken for good
  logger().logDebug(log_texts::kStartDownload, task->name());
}

/// None that waits outlives the runtime unanswered.
void OnlineBinaryDataManager::placeLeft(const DownloadTask& task) {
  if (OperationSettings::of(task.inputContext())->isSafe() || Runtime::shared().isShutDown()) {
    startNextScheduledTask();
  }
}

/// On the queue, where a row of downloads that fail at once is no recursion.
void OnlineBinaryDataManager::startNextScheduledTask() {
  onlineDownloadQueue().async([self = shared_from_this()] {
    if (const TaskPtr first = self->queue_.firstWaiting()) self->checkAndStartExecution(first);
  });
}

// Hearing of downloads.

void OnlineBinaryDataManager::task(const std::shared_ptr<VSTask>& task, TaskState from,
                                   TaskState to, const Dictionary& context) {
  const auto download = std::dynamic_pointer_cast<DownloadTask>(task);
  // A change of context alone tells of the file's first bytes.
  if (download == nullptr || from == to) return;
  switch (to) {
    case TaskState::Started:
      return downloadStarted(*download);
    case TaskState::Ended:
      return downloadEnded(download, context[platform::kTaskOutputContext].dictionaryValue());
    case TaskState::Paused:
      return downloadPaused(download);
    case TaskState::Errored:
      return downloadErrored(download);
    case TaskState::NotStarted:
    case TaskState::Stopped:
      return;
  }
}

void OnlineBinaryDataManager::downloadStarted(DownloadTask& task) {
  const Dictionary input = task.inputContext();
  if (!input.contains(kOnFileDownloadStarted)) return;
  const auto block = take(task, &DownloadTask::onFileDownloadStartedCompletionBlock);
  if (block) callBlock([&] { block(task.name(), input[kFileParams]); });
}

void OnlineBinaryDataManager::downloadEnded(const TaskPtr& task, const Dictionary& output) {
  std::string identifier;
  std::string path;
  try {
    identifier = output[kBlobId].textValue();
    path = output[kFilePath].textValue();
  } catch (const std::bad_alloc&) {
    return downloadFailed(task, outOfMemory());  // rather than an end that nobody hears of
  }
  (void)queue_.remove(task);
  // The file is the application's from the moment on that it hears of it.
  releaseFile(*task);
  const Dictionary input = task->inputContext();
  const auto block = take(*task, &DownloadTask::onFileDownloadCompletedCompletionBlock);
  if (block && input.contains(kOnFileDownloadCompleted)) {
    callBlock([&] { block(identifier, path, input[kFileParams]); });
  }
  // After the block: the name stays in use until that has returned.
  forget(task);
  startNextScheduledTask();
}

/// The name stays in use: who paused the task may resume it.
void OnlineBinaryDataManager::downloadPaused(const TaskPtr& task) {
  (void)queue_.remove(task);
  placeLeft(*task);
}

void OnlineBinaryDataManager::downloadErrored(const TaskPtr& task) {
  ErrorPtr error = outOfMemory();
  try {
    error = downloadFailure(task->errorContext());
  } catch (const std::bad_alloc&) {
    // So it is told.
  }
  downloadFailed(task, error);
}

void OnlineBinaryDataManager::downloadFailed(const TaskPtr& task, const ErrorPtr& error) {
  (void)queue_.remove(task);
  // Before the block, from inside which the name may be used again.
  forget(task);
  const auto block = take(*task, &DownloadTask::onDownloadFailureCompletionBlock);
  releaseFile(*task);
  if (block) callBlock([&] { block(task->name(), error, task->inputContext()[kFileParams]); });
  placeLeft(*task);
}

// The names.

bool OnlineBinaryDataManager::isKnown(const std::string& identifier) const {
  const MutexLock lock(mutex_);
  return tasks.contains(identifier);
}

void OnlineBinaryDataManager::enter(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  tasks.emplace(task->name(), task);
}

void OnlineBinaryDataManager::forget(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  const auto found = tasks.find(task->name());
  if (found != tasks.end() && found->second == task) tasks.erase(found);
}

template <typename Block>
Block OnlineBinaryDataManager::take(DownloadTask& task, Block DownloadTask::*block) const {
  const MutexLock lock(mutex_);
  return std::exchange(task.*block, nullptr);
}

}  // namespace varo::binary
