#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/OnlineDownloadInput.h"
#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
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
using platform::Dictionary;
using platform::Error;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Result;
using platform::Runtime;
using platform::SerialQueue;
using platform::TaskState;
using platform::Value;
using platform::VSTask;

namespace {

constexpr std::string_view kQueue = "onlineDownloadQueue";

constexpr std::string_view kNotStarted = "Download %@ is not started : %@";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

/// The error of a download that the engine would refuse without telling anybody; else null.
ErrorPtr shutDownError() {
  if (!Runtime::shared().isShutDown()) return nullptr;
  return blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation, kLibraryShutDown);
}

/// Not on the queue: a block that takes its time must not keep other downloads from starting.
void refuse(const std::shared_ptr<const OnlineDownload>& download, const std::string& identifier,
            const ErrorPtr& error) {
  logger().logError(kNotStarted, identifier, error);
  if (!download->onDownloadFailure) return;
  Runtime::shared().pool().postOrRun([download, identifier, error] {
    callBlock([&] { download->onDownloadFailure(identifier, error, download->fileParams); });
  });
}

}  // namespace

const std::shared_ptr<OnlineBinaryDataManager>& OnlineBinaryDataManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance =
      *new std::shared_ptr<OnlineBinaryDataManager>(std::make_shared<OnlineBinaryDataManager>());
  return instance;
}

OnlineBinaryDataManager::OnlineBinaryDataManager(const Clock& clock) : clock_(clock) {}

SerialQueue& OnlineBinaryDataManager::onlineDownloadQueue() {
  static auto& queue = *new SerialQueue(std::string(kQueue));
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
  onlineDownloadQueue().async([self = shared_from_this(), download] { self->create(download); });
}

void OnlineBinaryDataManager::create(const std::shared_ptr<const OnlineDownload>& download) {
  std::string identifier;
  TaskPtr entered;
  try {
    createTask(download, identifier, entered);
  } catch (const std::exception& exception) {
    if (entered != nullptr) {
      (void)queue_.remove(entered);
      forget(entered);
    }
    refuse(download, identifier,
           blobError(kDownloadTaskError, kCodeDownloadTaskFailed, exception.what()));
  }
}

void OnlineBinaryDataManager::createTask(const std::shared_ptr<const OnlineDownload>& download,
                                         std::string& identifier, TaskPtr& entered) {
  endWithRuntime();
  identifier = onlineDownloadIdentifier(*download, clock_);
  if (isKnown(identifier)) {
    return refuse(
        download, identifier,
        std::make_shared<const Error>(std::string(kFileAlreadyInQueue),
                                      kDownloadNotStartedAlreadyExistsInQueue, Dictionary()));
  }
  if (const ErrorPtr error = shutDownError()) return refuse(download, identifier, error);
  const auto task = makeTask(*download, identifier);
  if (!task) return refuse(download, identifier, task.error());
  enter(*task);
  entered = *task;
  (void)queue_.schedule(*task);
  // What waits goes first.
  checkAndStartExecution(download->settings->isSafe() ? queue_.firstWaiting() : *task);
}

/// Blocks are copied here, and what an application's block throws then must not be lost.
Result<OnlineBinaryDataManager::TaskPtr> OnlineBinaryDataManager::makeTask(
    const OnlineDownload& download, const std::string& identifier) {
  const auto unexpected = [](std::string_view exception) {
    return blobError(kDownloadTaskError, kCodeDownloadTaskFailed, exception);
  };
  try {
    const auto input = onlineDownloadInput(download, identifier, clock_);
    if (!input) return input.error();
    TaskPtr task = DownloadTask::create(identifier);
    task->subscribeForTaskUpdates(shared_from_this());
    task->setInputContext(*input);
    task->onFileDownloadStartedCompletionBlock = download.onFileDownloadStarted;
    task->onFileDownloadCompletedCompletionBlock = download.onFileDownloadCompleted;
    task->onDownloadFailureCompletionBlock = download.onDownloadFailure;
    return task;
  } catch (const std::exception& exception) {
    return unexpected(exception.what());
  } catch (...) {
    return unexpected(kUnknownException);
  }
}

/// What waits may have nobody to wait for: under the compatible policy, when all that ran failed.
void OnlineBinaryDataManager::endWithRuntime() {
  if (std::exchange(endsWithRuntime_, true)) return;
  Runtime::shared().onShutdown([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->startNextScheduledTask();
  });
}

void OnlineBinaryDataManager::checkAndStartExecution(const TaskPtr& task) {
  logger().logDebug(kCheckingForEmptySlot);
  if (task == nullptr || task->state() != TaskState::NotStarted) return;
  (void)queue_.schedule(task);  // who calls this with a task of its own has not
  if (!queue_.takeToStart(task)) return;
  logger().logDebug(kStartDownload, task->name());
  task->start();
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
  (void)queue_.remove(task);
  // The file is the application's from the moment on that it hears of it.
  task->releaseFile();
  const Dictionary input = task->inputContext();
  const auto block = take(*task, &DownloadTask::onFileDownloadCompletedCompletionBlock);
  if (block && input.contains(kOnFileDownloadCompleted)) {
    callBlock([&] {
      block(output[kBlobId].textValue(), output[kFilePath].textValue(), input[kFileParams]);
    });
  }
  forget(task);
  startNextScheduledTask();
}

/// The name stays in use: who paused the task may resume it.
void OnlineBinaryDataManager::downloadPaused(const TaskPtr& task) {
  (void)queue_.remove(task);
  placeLeft(*task);
}

void OnlineBinaryDataManager::downloadErrored(const TaskPtr& task) {
  (void)queue_.remove(task);
  task->releaseFile();
  forget(task);
  if (const auto block = take(*task, &DownloadTask::onDownloadFailureCompletionBlock)) {
    const auto error = std::make_shared<const Error>(std::string(kDownloadTaskError),
                                                     kCodeDownloadTaskFailed, task->errorContext());
    callBlock([&] { block(task->name(), error, task->inputContext()[kFileParams]); });
  }
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
