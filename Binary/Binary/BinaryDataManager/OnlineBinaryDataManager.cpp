#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/OnlineDownloadInput.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Clock;
using platform::Dictionary;
using platform::Error;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Runtime;
using platform::TaskState;
using platform::Value;
using platform::VSTask;

namespace {

constexpr std::string_view kQueue = "onlineDownloadQueue";

constexpr std::string_view kCheckingSlots = "Checking if the inProgressQueue has empty slot.";
constexpr std::string_view kStarting = " Start Download for task %@";
constexpr std::string_view kNotStarted = "Download %@ is not started : %@";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

/// The error of a download that the engine would refuse without telling anybody; else null.
ErrorPtr shutDownError() {
  if (!Runtime::shared().isShutDown()) return nullptr;
  return blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation, kLibraryShutDown);
}

/// Not on the queue: a block that takes its time must not keep other downloads from starting.
void refuse(const OnlineDownload& download, const std::string& identifier, const ErrorPtr& error) {
  logger().logError(kNotStarted, identifier, error);
  if (!download.onDownloadFailure) return;
  Runtime::shared().pool().postOrRun(
      [block = download.onDownloadFailure, fileParams = download.fileParams, identifier, error] {
        callBlock([&] { block(identifier, error, fileParams); });
      });
}

}  // namespace

const std::shared_ptr<OnlineBinaryDataManager>& OnlineBinaryDataManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance =
      *new std::shared_ptr<OnlineBinaryDataManager>(std::make_shared<OnlineBinaryDataManager>());
  return instance;
}

OnlineBinaryDataManager::OnlineBinaryDataManager(const Clock& clock)
    : clock_(clock), onlineDownloadQueue_(std::string(kQueue)) {}

// Starting.

void OnlineBinaryDataManager::createAndStartOnlineDownloadTaskFor(
    const Dictionary& fileParams, bool withStreaming, const Dictionary& downloadConfig,
    OnFileDownloadStarted::Function withOnFileDownloadStartedCompletionBlock,
    OnChunkDownloadCompleted::Function andOnChunkDownloadCompletedCompletionBlock,
    OnStreamDownloadCompleted::Function andOnStreamDownloadCompletedCompletionBlock,
    OnFileDownloadCompleted::Function andOnFileDownloadCompletedCompletionBlock,
    OnDownloadFailure::Function andOnDownloadFailureCompletionBlock,
    const std::optional<Dictionary>& andOptions) {
  OnlineDownload download{fileParams,
                          withStreaming,
                          downloadConfig,
                          andOptions,
                          std::move(withOnFileDownloadStartedCompletionBlock),
                          std::move(andOnChunkDownloadCompletedCompletionBlock),
                          std::move(andOnStreamDownloadCompletedCompletionBlock),
                          std::move(andOnFileDownloadCompletedCompletionBlock),
                          std::move(andOnDownloadFailureCompletionBlock)};
  onlineDownloadQueue_.async(
      [self = shared_from_this(), asked = std::move(download)] { self->create(asked); });
}

void OnlineBinaryDataManager::create(const OnlineDownload& download) {
  const std::string identifier = onlineDownloadIdentifier(download, clock_);
  if (isKnown(identifier)) {
    return refuse(
        download, identifier,
        std::make_shared<const Error>(std::string(kFileAlreadyInQueue),
                                      kDownloadNotStartedAlreadyExistsInQueue, Dictionary()));
  }
  if (const ErrorPtr error = shutDownError()) return refuse(download, identifier, error);
  const auto input = onlineDownloadInput(download, identifier, clock_);
  if (!input) return refuse(download, identifier, input.error());

  const TaskPtr task = DownloadTask::create(identifier);
  task->subscribeForTaskUpdates(shared_from_this());
  task->setInputContext(*input);
  task->setOnFileDownloadStartedCompletionBlock(download.onFileDownloadStarted);
  task->setOnFileDownloadCompletedCompletionBlock(download.onFileDownloadCompleted);
  task->setOnDownloadFailureCompletionBlock(download.onDownloadFailure);
  schedule(task);
  // What waits goes first.
  checkAndStartExecution(transferPolicy() == TransferPolicy::kSafe ? firstScheduled() : task);
}

void OnlineBinaryDataManager::checkAndStartExecution(const TaskPtr& task) {
  logger().logDebug(kCheckingSlots);
  if (task == nullptr || !takeToStart(task)) return;
  logger().logDebug(kStarting, task->name());
  task->start();
  // An engine that was shut down meanwhile notifies nobody.
  if (task->state() == TaskState::Errored && Runtime::shared().isShutDown()) downloadErrored(task);
}

/// On the queue, where a row of downloads that fail at once is no recursion.
void OnlineBinaryDataManager::startNextScheduledTask() {
  onlineDownloadQueue_.async([self = shared_from_this()] {
    if (const TaskPtr first = self->firstScheduled()) self->checkAndStartExecution(first);
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
  const auto block = task.takeOnFileDownloadStartedCompletionBlock();
  if (block) callBlock([&] { block(task.name(), input[kFileParams]); });
}

void OnlineBinaryDataManager::downloadEnded(const TaskPtr& task, const Dictionary& output) {
  removeFromInProgress(task);
  const Dictionary input = task->inputContext();
  const auto block = task->takeOnFileDownloadCompletedCompletionBlock();
  if (block && input.contains(kOnFileDownloadCompleted)) {
    callBlock([&] {
      block(output[kBlobId].textValue(), output[kFilePath].textValue(), input[kFileParams]);
    });
  }
  task->releaseFile();
  forget(task);
  startNextScheduledTask();
}

/// The name stays in use: who paused the task may resume it.
void OnlineBinaryDataManager::downloadPaused(const TaskPtr& task) {
  removeFromInProgress(task);
  if (transferPolicy() == TransferPolicy::kSafe) startNextScheduledTask();
}

void OnlineBinaryDataManager::downloadErrored(const TaskPtr& task) {
  removeFromInProgress(task);
  forget(task);
  if (const auto block = task->takeOnDownloadFailureCompletionBlock()) {
    const auto error = std::make_shared<const Error>(std::string(kDownloadTaskError),
                                                     kCodeDownloadTaskFailed, task->errorContext());
    callBlock([&] { block(task->name(), error, task->inputContext()[kFileParams]); });
  }
  if (transferPolicy() == TransferPolicy::kSafe) startNextScheduledTask();
}

// The collections.

bool OnlineBinaryDataManager::isKnown(const std::string& identifier) const {
  const MutexLock lock(mutex_);
  return tasks.contains(identifier);
}

/// Of a new task, so that it waits nowhere yet.
void OnlineBinaryDataManager::schedule(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  tasks.emplace(task->name(), task);
  schedulingQueue.push_back(task);
}

OnlineBinaryDataManager::TaskPtr OnlineBinaryDataManager::firstScheduled() const {
  const MutexLock lock(mutex_);
  return schedulingQueue.empty() ? nullptr : schedulingQueue.front();
}

bool OnlineBinaryDataManager::takeToStart(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  if (inProgressQueue.size() >= MAX_PARALLEL_JOBS) return false;
  // One that is in progress may not have been started yet by the thread that put it there.
  const auto running = std::find(inProgressQueue.begin(), inProgressQueue.end(), task);
  if (running != inProgressQueue.end() || task->state() != TaskState::NotStarted) return false;
  inProgressQueue.push_back(task);
  const auto waiting = std::find(schedulingQueue.begin(), schedulingQueue.end(), task);
  if (waiting != schedulingQueue.end()) schedulingQueue.erase(waiting);
  return true;
}

void OnlineBinaryDataManager::removeFromInProgress(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  std::erase(inProgressQueue, task);
}

void OnlineBinaryDataManager::forget(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  const auto found = tasks.find(task->name());
  if (found != tasks.end() && found->second == task) tasks.erase(found);
}

}  // namespace varo::binary
