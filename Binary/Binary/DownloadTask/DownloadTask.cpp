#include "Binary/Binary/DownloadTask/DownloadTask.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DataPersistenceTask.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/NetworkTask.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::MutexLock;
using platform::TaskState;
using platform::VSTask;
using platform::VSTaskError;

namespace {

constexpr std::string_view kNetworkTask = "networkTask";
constexpr std::string_view kPersistenceTask = "persistenceTask";
constexpr std::string_view kInputErrorName = "downloadTask";
constexpr std::string_view kInputErrorDomain = "Download Task";
constexpr std::int64_t kInputErrorCode = 999;
constexpr std::string_view kInvalidInput = "Invalid inputs provided to the download task.";

constexpr std::string_view kInStop = "Inside Download task stop";
constexpr std::string_view kInListener = "Inside Download Task Listener. Task Name:%@, State:%lu  ";
constexpr std::string_view kPaused = "Download task with blob id %@ is paused.";
constexpr std::string_view kEnded =
    "Download task with blob ID %@ has been ended. Setting output context and setting state to "
    "Ended.";
constexpr std::string_view kNetworkTrouble =
    "Download task %@ set to errored state due to network trouble. Raising the context change "
    "event.. ";
constexpr std::string_view kPersistenceTrouble =
    "Download task %@ set to errored state due to persistence trouble. Raising the context change "
    "event.. ";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

}  // namespace

std::shared_ptr<DownloadTask> DownloadTask::create(std::string name) {
  auto task = std::make_shared<DownloadTask>(Badge{}, std::move(name));
  task->createAndAddSubtasks();
  return task;
}

DownloadTask::DownloadTask(Badge, std::string name)
    : VSTask(std::move(name)),
      _networkTask(std::make_shared<NetworkTask>(std::string(kNetworkTask))),
      _dataPersistenceTask(std::make_shared<DataPersistenceTask>(std::string(kPersistenceTask))) {}

DownloadTask::~DownloadTask() { _dataPersistenceTask->releaseFile(); }

void DownloadTask::createAndAddSubtasks() {
  addSubtask(_networkTask);
  addSubtask(_dataPersistenceTask);
}

void DownloadTask::setupListeners() {
  _networkTask->subscribeForTaskUpdates(_dataPersistenceTask);
  _networkTask->subscribeForTaskUpdates(self<DownloadTask>());
  _dataPersistenceTask->subscribeForTaskUpdates(self<DownloadTask>());
}

bool DownloadTask::validateInput() const { return !inputContext()[kBlobId].textValue().empty(); }

void DownloadTask::execute() {
  setupListeners();
  if (!validateInput()) {
    logger().logError(kInvalidInput);
    const Dictionary userInfo{{std::string(platform::kErrorMessageKey), kInvalidInput}};
    _errorContext.set(kDownloadError, userInfo);
    return raiseError(std::make_shared<const VSTaskError>(ID(), std::string(kInputErrorName),
                                                          std::string(kInputErrorDomain),
                                                          kInputErrorCode, userInfo));
  }
  if (isStopped()) return;
  // The listener is ready before there is anything to hear.
  runSubtask(_dataPersistenceTask, inputContext(), Where::kHere);
  runSubtask(_networkTask, inputContext());
  noteSubtasksRun();
}

/// Does what was asked for while they were being set going.
void DownloadTask::noteSubtasksRun() {
  bool isPausePending = false;
  {
    const MutexLock lock(controlMutex_);
    isResuming_ = false;
    subtasksRun_ = state() == TaskState::Started;  // a short download may be at its end
    isPausePending = std::exchange(isPausePending_, false);
  }
  if (isPausePending) _networkTask->pauseDownload();
  if (isStopped()) stopSubtasks();
}

void DownloadTask::pauseDownload() {
  {
    const MutexLock lock(controlMutex_);
    if (!subtasksRun_) {
      isPausePending_ = isResuming_ || state() == TaskState::Started;
      return;
    }
  }
  _networkTask->pauseDownload();
}

void DownloadTask::resumeDownload() {
  if (isStopped()) return;
  {
    const MutexLock lock(controlMutex_);
    isResuming_ = true;
  }
  resumeSubtask(_dataPersistenceTask);
  resumeSubtask(_networkTask);
  setState(TaskState::Started);
  _networkTask->setInputContext(inputContext());
  _networkTask->resumeDownload();
  noteSubtasksRun();
}

void DownloadTask::stop() {
  logger().logTrace(kInStop);
  std::shared_ptr<DownloadTask> released;
  {
    const MutexLock lock(controlMutex_);
    isStopped_ = true;
    released.swap(untilRest_);
  }
  stopSubtasks();
}

void DownloadTask::stopSubtasks() {
  _networkTask->stop();
  _dataPersistenceTask->stop();
}

bool DownloadTask::isStopped() const {
  const MutexLock lock(controlMutex_);
  return isStopped_;
}

/// A pause is either one of this run or of the next.
void DownloadTask::comeToRest(TaskState state) {
  std::shared_ptr<DownloadTask> released;  // after the lock; who calls this holds the task too
  const MutexLock lock(controlMutex_);
  released.swap(untilRest_);
  subtasksRun_ = false;
  isPausePending_ = false;
  setState(state);
}

void DownloadTask::releaseFile() { _dataPersistenceTask->releaseFile(); }

void DownloadTask::updateInputContext(Dictionary dictionary) {
  setInputContext(std::move(dictionary));
}

/// Its own listener decides when the download ends, not the end of a subtask.
void DownloadTask::subtaskFinished(const std::shared_ptr<VSTask>& subtask, TaskState /*state*/) {
  if (subtask != _networkTask) return;
  const MutexLock lock(controlMutex_);
  if (state() == TaskState::Started && !isStopped_) untilRest_ = self<DownloadTask>();
}

void DownloadTask::task(const std::shared_ptr<VSTask>& task, TaskState /*from*/, TaskState to,
                        const Dictionary& /*context*/) {
  logger().logDebug(kInListener, task->name(), static_cast<std::int64_t>(to));
  if (task != _dataPersistenceTask) return;
  const TaskState persistence = task->state();
  if (to == TaskState::Started) {
    announceFile(task->outputContext()[kFilePath]);
  } else if (to == TaskState::Ended && persistence == TaskState::Ended) {
    endAsNetworkTask();
  } else if (to == TaskState::Errored && persistence == TaskState::Errored) {
    logger().logDebug(kPersistenceTrouble, name());
    _networkTask->stop();
    _outputContext.replace(task->outputContext());
    _errorContext.replace(task->errorContext());
    comeToRest(TaskState::Errored);
  }
}

void DownloadTask::announceFile(const platform::Value& filePath) {
  if (filePath.isMissing() || _outputContext.get(kFilePath) == filePath) return;
  _outputContext.set(kFilePath, filePath);
  raiseContextChangeEvent();
}

void DownloadTask::endAsNetworkTask() {
  const TaskState network = _networkTask->state();
  if (network == TaskState::Paused) {
    logger().logDebug(kPaused, name());
    restSubtask(_networkTask);
  } else if (network == TaskState::Ended) {
    logger().logDebug(kEnded, name());
  } else if (network == TaskState::Errored) {
    logger().logDebug(kNetworkTrouble, name());
    _errorContext.replace(_networkTask->errorContext());
  } else {
    return;  // the persistence task tells again when the network task has come to its end
  }
  _outputContext.replace(_dataPersistenceTask->outputContext());
  comeToRest(network);
}

}  // namespace varo::binary
