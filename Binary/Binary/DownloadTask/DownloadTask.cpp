#include "Binary/Binary/DownloadTask/DownloadTask.h"

#include "Binary/Binary/DownloadTask/DataPersistenceTask.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/DownloadTask/NetworkTask.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace varo::binary {

using Effects = StepQueue::Effects;

namespace {

namespace texts = log_texts::download_task;

constexpr std::string_view kNetworkTask = "networkTask";
constexpr std::string_view kPersistenceTask = "persistenceTask";
constexpr std::string_view kInputErrorName = "downloadTask";

constexpr std::string_view kRunNames[] = {"idle", "running", "pausing", "resting", "stopped"};

}  // namespace

std::shared_ptr<DownloadTask> DownloadTask::create(std::string name,
                                                   std::shared_ptr<StepQueue> steps,
                                                   const platform::Clock& clock) {
  const bool ownsSteps = steps == nullptr;
  if (ownsSteps) steps = std::make_shared<StepQueue>("downloadTaskQueue");
  auto task = std::make_shared<DownloadTask>(Badge{}, std::move(name), steps, clock);
  task->createAndAddSubtasks();
  if (ownsSteps) {
    // Weak: the task owns the queue, which must not own the task.
    steps->setOnThrow([weak = std::weak_ptr(task)](std::string_view what) {
      if (const auto self = weak.lock()) self->threw(what);
    });
  }
  return task;
}

DownloadTask::DownloadTask(Badge /*badge*/, std::string name, std::shared_ptr<StepQueue> steps,
                           const platform::Clock& clock)
    : VSTask(std::move(name)),
      steps_(std::move(steps)),
      _networkTask(std::make_shared<NetworkTask>(std::string(kNetworkTask), steps_, clock)),
      _dataPersistenceTask(std::make_shared<DataPersistenceTask>(std::string(kPersistenceTask))) {}

// Also of a download that was dropped half-way: the lock would keep all others from the file.
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
  logger().logTrace(texts::kRunChanged, name(), kRunNames[static_cast<std::size_t>(run)]);
  run_ = run;
}

// What callers ask for.

void DownloadTask::execute() {
  setupListeners();
  if (!validateInput()) {
    logger().logError(log_texts::kInvalidDownloadInput);
    const Dictionary userInfo{
        {std::string(platform::kErrorMessageKey), log_texts::kInvalidDownloadInput}};
    _errorContext.set(kDownloadError, userInfo);
    return raiseError(std::make_shared<const VSTaskError>(ID(), std::string(kInputErrorName),
                                                          std::string(kDownloadInputErrorDomain),
                                                          kCodeDownloadFault, userInfo));
  }
  steps_->run([this] { return beginRun(); });
}

Effects DownloadTask::beginRun() {
  if (run_ == Run::kStopped) return {};
  const bool isPausing = run_ == Run::kPausing;
  Effects effects{[self = self<DownloadTask>(), isPausing] {
    // The listener is ready before there is anything to hear.
    self->runSubtask(self->_dataPersistenceTask, self->inputContext(), Where::kHere);
    self->runSubtask(self->_networkTask, self->inputContext());
    if (isPausing) self->_networkTask->pauseDownload();
  }};
  if (!isPausing) moveTo(Run::kRunning);
  // Until it is at rest the task keeps itself: its owner may forget it, its subtasks still report.
  untilRest_ = self<DownloadTask>();
  return effects;
}

void DownloadTask::pauseDownload() {
  steps_->run([this]() -> Effects {
    // Started, and the engine has not called `execute` yet.
    const bool isStarting = run_ == Run::kIdle && state() == TaskState::Started;
    if (run_ != Run::kRunning && !isStarting) return {};
    Effects effects;
    if (!isStarting) effects.push_back([network = _networkTask] { network->pauseDownload(); });
    moveTo(Run::kPausing);
    return effects;
  });
}

void DownloadTask::resumeDownload() {
  steps_->run([this]() -> Effects {
    // While it is resting the effects of that come first.
    if (run_ != Run::kIdle && run_ != Run::kResting) return {};
    Effects effects{[self = self<DownloadTask>()] {
      // Who writes is ready before who fetches: the first chunk may come at once.
      self->_dataPersistenceTask->resumeDownload(self->inputContext());
      self->resumeSubtask(self->_dataPersistenceTask);
      self->resumeSubtask(self->_networkTask);
      self->setState(TaskState::Started);
      self->_networkTask->setInputContext(self->inputContext());
      self->_networkTask->resumeDownload();
    }};
    moveTo(Run::kRunning);
    untilRest_ = self<DownloadTask>();
    return effects;
  });
}

void DownloadTask::stop() {
  logger().logTrace(texts::kInStop);
  steps_->run([this]() -> Effects {
    if (run_ == Run::kStopped) return {};
    Effects effects{[self = self<DownloadTask>()] {
      self->_networkTask->stop();
      self->_dataPersistenceTask->stop();
    }};
    moveTo(Run::kStopped);
    untilRest_.reset();
    return effects;
  });
}

void DownloadTask::releaseFile(std::shared_ptr<FileClaim> lease) {
  _dataPersistenceTask->releaseFile(std::move(lease));
}

/// An allocation has failed, or a library has: the download cannot go on.
void DownloadTask::threw(std::string_view what) {
  guarded([&] {
    stop();
    throw std::runtime_error(std::string(what));
  });
}

void DownloadTask::updateInputContext(Dictionary dictionary) {
  setInputContext(std::move(dictionary));
}

// What the subtasks tell.

void DownloadTask::subtaskFinished(const std::shared_ptr<VSTask>& /*subtask*/,
                                   TaskState /*state*/) {}

void DownloadTask::task(const std::shared_ptr<VSTask>& task, TaskState /*from*/, TaskState to,
                        const Dictionary& /*context*/) {
  logger().logDebug(texts::kInListener, task->name(), static_cast<std::int64_t>(to));
  if (task != _dataPersistenceTask) return;
  try {
    persistenceChanged(to);
  } catch (const std::exception& exception) {
    threw(exception.what());
  }
}

void DownloadTask::persistenceChanged(TaskState to) {
  const std::shared_ptr<VSTask> task = _dataPersistenceTask;
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
  Effects effects{[self = self<DownloadTask>(), state] { self->rest(state); }};
  moveTo(Run::kResting);
  untilRest_.reset();
  return effects;
}

void DownloadTask::rest(TaskState state) {
  const bool bytesWereLost = _dataPersistenceTask->state() == TaskState::Errored;
  if (bytesWereLost) {
    logger().logDebug(texts::kPersistenceTrouble, name());
    // What it still fetches could not be stored either.
    _networkTask->stop();
    _errorContext.replace(_dataPersistenceTask->errorContext());
  } else if (state == TaskState::Paused) {
    logger().logDebug(texts::kPaused, name());
    restSubtask(_networkTask);
  } else if (state == TaskState::Ended) {
    logger().logDebug(texts::kEnded, name());
  } else {
    logger().logDebug(texts::kNetworkTrouble, name());
    _errorContext.replace(_networkTask->errorContext());
  }
  // The contexts before the state: whoever hears of the state reads them.
  _outputContext.replace(_dataPersistenceTask->outputContext());
  setState(state);
  steps_->run([this]() -> Effects {
    if (run_ == Run::kResting) moveTo(Run::kIdle);
    return {};
  });
}

}  // namespace varo::binary
