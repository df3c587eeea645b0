#include "Binary/Binary/DownloadTask/DownloadTask.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DataPersistenceTask.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/NetworkTask.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::TaskState;
using platform::VSTask;
using platform::VSTaskError;
using Effects = StepQueue::Effects;

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

/// The names of the states of a run, for the trace.
constexpr std::string_view kRunChanged = "Download task %@ : run %@";
constexpr std::string_view kRunNames[] = {"idle", "running", "pausing", "stopped"};

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

}  // namespace

std::shared_ptr<DownloadTask> DownloadTask::create(std::string name,
                                                   std::shared_ptr<StepQueue> steps) {
  if (steps == nullptr) steps = std::make_shared<StepQueue>(name);
  auto task = std::make_shared<DownloadTask>(Badge{}, std::move(name), std::move(steps));
  task->createAndAddSubtasks();
  return task;
}

DownloadTask::DownloadTask(Badge /*badge*/, std::string name, std::shared_ptr<StepQueue> steps)
    : VSTask(std::move(name)),
      steps_(std::move(steps)),
      _networkTask(std::make_shared<NetworkTask>(std::string(kNetworkTask))),
      _dataPersistenceTask(std::make_shared<DataPersistenceTask>(std::string(kPersistenceTask))) {}

DownloadTask::~DownloadTask() { _dataPersistenceTask->releaseFile(nullptr); }

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

void DownloadTask::moveTo(Run run) {
  run_ = run;
  logger().logTrace(kRunChanged, name(), kRunNames[static_cast<std::size_t>(run)]);
}

// What callers ask for.

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
  steps_->run([this] { return beginRun(); });
}

Effects DownloadTask::beginRun() {
  if (run_ == Run::kStopped) return {};
  const bool isPausing = run_ == Run::kPausing;
  if (!isPausing) moveTo(Run::kRunning);
  untilRest_ = self<DownloadTask>();
  Effects effects{
      // The listener is ready before there is anything to hear.
      [self = untilRest_] {
        self->runSubtask(self->_dataPersistenceTask, self->inputContext(), Where::kHere);
      },
      [self = untilRest_] { self->runSubtask(self->_networkTask, self->inputContext()); }};
  if (isPausing) effects.push_back([network = _networkTask] { network->pauseDownload(); });
  return effects;
}

void DownloadTask::pauseDownload() {
  steps_->run([this]() -> Effects {
    // Started, and the engine has not called `execute` yet.
    const bool isStarting = run_ == Run::kIdle && state() == TaskState::Started;
    if (isStarting) moveTo(Run::kPausing);
    if (run_ != Run::kRunning) return {};
    moveTo(Run::kPausing);
    return {[network = _networkTask] { network->pauseDownload(); }};
  });
}

void DownloadTask::resumeDownload() {
  steps_->run([this]() -> Effects {
    if (run_ != Run::kIdle) return {};
    moveTo(Run::kRunning);
    untilRest_ = self<DownloadTask>();
    return {[self = untilRest_] {
      self->_dataPersistenceTask->resumeDownload(self->inputContext());
      self->resumeSubtask(self->_dataPersistenceTask);
      self->resumeSubtask(self->_networkTask);
      self->setState(TaskState::Started);
      self->_networkTask->setInputContext(self->inputContext());
      self->_networkTask->resumeDownload();
    }};
  });
}

void DownloadTask::stop() {
  logger().logTrace(kInStop);
  steps_->run([this]() -> Effects {
    if (run_ == Run::kStopped) return {};
    moveTo(Run::kStopped);
    return {[self = self<DownloadTask>(), released = std::exchange(untilRest_, nullptr)] {
      self->_networkTask->stop();
      self->_dataPersistenceTask->stop();
    }};
  });
}

void DownloadTask::releaseFile(std::shared_ptr<FileClaim> claim) {
  _dataPersistenceTask->releaseFile(std::move(claim));
}

void DownloadTask::updateInputContext(Dictionary dictionary) {
  setInputContext(std::move(dictionary));
}

// What the subtasks tell.

void DownloadTask::subtaskFinished(const std::shared_ptr<VSTask>& /*subtask*/,
                                   TaskState /*state*/) {}

void DownloadTask::task(const std::shared_ptr<VSTask>& task, TaskState /*from*/, TaskState to,
                        const Dictionary& /*context*/) {
  logger().logDebug(kInListener, task->name(), static_cast<std::int64_t>(to));
  if (task != _dataPersistenceTask) return;
  steps_->run([&]() -> Effects {
    if (run_ != Run::kRunning && run_ != Run::kPausing) return {};
    if (to == TaskState::Started) {
      return {[self = self<DownloadTask>(), path = task->outputContext()[kFilePath]] {
        self->announceFile(path);
      }};
    }
    // It may have been set going again since.
    if (task->state() != to) return {};
    if (to == TaskState::Ended) return persistenceEnded();
    return to == TaskState::Errored ? comeToRest(TaskState::Errored) : Effects();
  });
}

void DownloadTask::announceFile(const platform::Value& filePath) {
  if (filePath.isMissing() || _outputContext.get(kFilePath) == filePath) return;
  _outputContext.set(kFilePath, filePath);
  raiseContextChangeEvent();
}

Effects DownloadTask::persistenceEnded() {
  switch (const TaskState network = _networkTask->state()) {
    case TaskState::Paused:
    case TaskState::Ended:
    case TaskState::Errored:
      return comeToRest(network);
    default:
      return {};  // the persistence task tells again when the network task has come to its end
  }
}

Effects DownloadTask::comeToRest(TaskState state) {
  moveTo(Run::kIdle);
  return {[self = self<DownloadTask>(), released = std::exchange(untilRest_, nullptr), state] {
    self->rest(state);
  }};
}

void DownloadTask::rest(TaskState state) {
  const bool bytesWereLost = _dataPersistenceTask->state() == TaskState::Errored;
  if (bytesWereLost) {
    logger().logDebug(kPersistenceTrouble, name());
    _networkTask->stop();
    _errorContext.replace(_dataPersistenceTask->errorContext());
  } else if (state == TaskState::Paused) {
    logger().logDebug(kPaused, name());
    restSubtask(_networkTask);
  } else if (state == TaskState::Ended) {
    logger().logDebug(kEnded, name());
  } else {
    logger().logDebug(kNetworkTrouble, name());
    _errorContext.replace(_networkTask->errorContext());
  }
  _outputContext.replace(_dataPersistenceTask->outputContext());
  setState(state);
}

}  // namespace varo::binary
