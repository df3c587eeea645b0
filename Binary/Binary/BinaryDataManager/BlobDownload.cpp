#include "Binary/Binary/BinaryDataManager/BlobDownload.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Runtime.h"

#include <functional>
#include <utility>

namespace varo::binary {

using Effects = StepQueue::Effects;

namespace {

namespace texts = log_texts::blob_download;

constexpr std::string_view kStateNames[] = {"created", "waiting", "running", "pausing", "paused",
                                            "ended",   "failed",  "stopped", "cleared"};

}  // namespace

std::shared_ptr<BlobDownload> BlobDownload::create(Dictionary input,
                                                   OperationSettings::Ptr settings,
                                                   DownloadPlaces& places) {
  auto download = std::make_shared<BlobDownload>(Badge{}, input, std::move(settings), places);
  download->task_ = download->makeTask(std::move(input));
  download->steps_->setOnThrow([weak = std::weak_ptr(download)](std::string_view what) {
    if (const auto self = weak.lock()) self->threw(what);
  });
  return download;
}

BlobDownload::BlobDownload(Badge /*badge*/, const Dictionary& input,
                           OperationSettings::Ptr settings, DownloadPlaces& places)
    : blobId_(input[kBlobId].textValue()),
      settings_(std::move(settings)),
      rows_(input[kDBName].textValue(), blobId_, settings_),
      places_(places),
      steps_(std::make_shared<StepQueue>("blobDownloadQueue")) {}

std::shared_ptr<DownloadTask> BlobDownload::makeTask(Dictionary input) {
  input.set(kOperationSettings, OperationSettings::value(settings_));
  auto task = DownloadTask::create(blobId_, steps_);
  task->subscribeForTaskUpdates(shared_from_this());
  task->setInputContext(std::move(input));
  return task;
}

void BlobDownload::renewTask() {
  const auto former = std::exchange(task_, makeTask(task_->inputContext()));
  const auto carryOver = [&](DownloadBlock DownloadTask::*block) {
    ((*task_).*block).swap((*former).*block);
  };
  carryOver(&DownloadTask::startDownloadTaskCompletionBlock);
  carryOver(&DownloadTask::pauseDownloadTaskCompletionBlock);
  carryOver(&DownloadTask::resumeDownloadTaskCompletionBlock);
}

/// The one place where the state changes. A cleared download stays so; one is at rest before it
/// waits again.
void BlobDownload::moveTo(State state) {
  logger().logTrace(texts::kStateChanged, blobId_, kStateNames[static_cast<std::size_t>(state_)],
                    kStateNames[static_cast<std::size_t>(state)]);
  if (state_ != State::kCleared) state_ = state;
}

bool BlobDownload::isUnderWay() const {
  bool isUnderWay = false;
  steps_->run([&]() -> Effects {
    isUnderWay = state_ == State::kWaiting || runs();
    return {};
  });
  return isUnderWay;
}

// What callers ask for.

void BlobDownload::ask(DownloadBlock completion,
                       const std::function<Effects(DownloadBlock&)>& step) {
  try {
    steps_->run([&]() -> Effects {
      if (state_ != State::kCleared) return step(completion);
      if (!settings_->isSafe()) return {};
      return answer(completion,
                    blobError(kDownloadTaskError, kCodeDownloadTaskFailed, kDownloadsCleared),
                    std::nullopt);
    });
  } catch (const std::exception& exception) {
    // A step takes the block last, so it is here.
    const ErrorPtr error = downloadThrew(exception.what());
    callDownloadBlock(completion, blobId_, error, std::nullopt);
  }
}

void BlobDownload::start(DownloadBlock completion) {
  ask(std::move(completion), [this](DownloadBlock& block) -> Effects {
    if (state_ == State::kEnded) logger().logDebug(texts::kInEndedState, blobId_);
    ErrorPtr error;
    const auto available = rows_.checkIfFileAvailable(&error);
    if (available || state_ == State::kEnded) {
      return answer(block, available ? nullptr : error, available);
    }
    logger().logDebug(texts::kScheduling, blobId_);
    // A run that is under way ends for this caller too.
    Effects effects = runs() ? Effects() : schedule();
    task_->startDownloadTaskCompletionBlock.swap(block);
    return effects;
  });
}

Effects BlobDownload::schedule() {
  if (state_ == State::kPaused || state_ == State::kFailed) {
    logger().logDebug(texts::kResetting, blobId_);
  }
  // Of these the task was stopped, maybe before its start.
  if (state_ == State::kStopped || state_ == State::kFailed) renewTask();
  Effects effects{[self = shared_from_this()] { self->places_.schedule(self); }};
  moveTo(State::kWaiting);
  return effects;
}

void BlobDownload::pause(DownloadBlock completion) {
  ask(std::move(completion), [this](DownloadBlock& block) -> Effects {
    switch (state_) {
      case State::kRunning:
      case State::kPausing: {
        logger().logDebug(texts::kCallingPause, blobId_);
        Effects effects{[task = task_] { task->pauseDownload(); }};
        moveTo(State::kPausing);
        task_->pauseDownloadTaskCompletionBlock.swap(block);
        return effects;
      }
      case State::kStopped:
      case State::kPaused:
        return answer(block, nullptr, task_->outputContext());
      default:
        logger().logError(texts::kCannotPause);
        return refuse(block, kTaskNotStarted);
    }
  });
}

void BlobDownload::resume(DownloadBlock completion) {
  ask(std::move(completion), [this](DownloadBlock& block) -> Effects {
    switch (state_) {
      case State::kPaused:
      case State::kStopped:
        return resumePaused(block);
      case State::kCreated:
      case State::kWaiting:
        logger().logError(texts::kNotPaused);
        return refuse(block, kTaskNotPaused);
      default:
        return refuse(block, kTaskStarted);
    }
  });
}

Effects BlobDownload::resumePaused(DownloadBlock& completion) {
  // The start's, which is forgotten; its destructor is the application's code.
  const auto forgotten = std::make_shared<DownloadBlock>();
  ErrorPtr notAvailable;
  if (const auto available = rows_.checkIfFileAvailable(&notAvailable)) {
    Effects effects{[forgotten] {}, nullptr};
    effects.back() = answering(completion, blobId_, nullptr, available);
    forgotten->swap(task_->startDownloadTaskCompletionBlock);
    return effects;
  }
  const bool isPaused = state_ == State::kPaused && task_->state() == TaskState::Paused;
  if (!isPaused) renewTask();
  Effects effects{[self = shared_from_this(), forgotten,
                   run = isPaused ? Run::kResumes : Run::kStarts] { self->run(run); }};
  moveTo(State::kRunning);
  untilRest_ = shared_from_this();
  forgotten->swap(task_->startDownloadTaskCompletionBlock);
  task_->resumeDownloadTaskCompletionBlock.swap(completion);
  return effects;
}

void BlobDownload::stop() {
  steps_->run([this]() -> Effects {
    const bool waits = state_ == State::kWaiting && settings_->isSafe();
    if (!runs() && !waits) return {};
    return end(State::kStopped, downloadStopped());
  });
}

void BlobDownload::halt() {
  steps_->run([this]() -> Effects {
    if (state_ == State::kWaiting) return end(State::kStopped, downloadStopped());
    if (!runs()) return {};
    Effects effects{[task = task_] { task->pauseDownload(); }};
    isHalted_ = true;
    moveTo(State::kPausing);
    return effects;
  });
}

void BlobDownload::clear() {
  steps_->run([this]() -> Effects {
    return end(State::kCleared,
               blobError(kDownloadTaskError, kCodeDownloadTaskFailed, kDownloadsCleared));
  });
}

/// In the middle of whatever is under way. The file is given back when the task writes no more and
/// a row that is being written is.
Effects BlobDownload::end(State state, const ErrorPtr& error) {
  const bool isFailure = state == State::kFailed;
  const auto waiting = std::make_shared<WaitingBlocks>();
  Effects effects{[self = shared_from_this(), task = task_, claim = claim_] {
    // First, so that nothing that the stopping task still tells is heard.
    task->unsubscribeForTaskUpdates(self);
    task->stop();
    // After the stop: the claim goes behind the last byte that is written.
    task->releaseFile(claim);
    self->places_.leave(self);
  }};
  if (settings_->isSafe() || isFailure) {
    effects.push_back(calling(waiting, error, std::nullopt, error));
  } else {
    effects.push_back([waiting] {});  // forgotten
  }
  if (isFailure && settings_->isSafe()) {
    effects.push_back([&places = places_] { places.startNextScheduledTask(); });
  }
  moveTo(state);
  claim_.reset();
  untilRest_.reset();
  // The other policy has them wait for the next run's end.
  if (settings_->isSafe() || state == State::kCleared) {
    waiting->take(*task_);
  } else if (isFailure) {
    waiting->takeStartAndResume(*task_);
  }
  return effects;
}

Effects BlobDownload::refuse(DownloadBlock& completion, std::string_view message) const {
  return answer(completion, downloadError(kCodeInvalidStateForBinaryOperation, message),
                std::nullopt);
}

Effects BlobDownload::answer(DownloadBlock& block, const ErrorPtr& error,
                             const Result& result) const {
  Effects effects(1);
  effects.front() = answering(block, blobId_, error, result);
  return effects;
}

/// The blocks that `waiting` has when the effect's turn comes: a step takes them last.
StepQueue::Effect BlobDownload::calling(const std::shared_ptr<WaitingBlocks>& waiting,
                                        const ErrorPtr& error, const Result& result,
                                        const ErrorPtr& pauseError) const {
  return [waiting, id = std::optional(blobId_), error, result, pauseError] {
    waiting->call(id, error, result, pauseError);
  };
}

// The run.

void BlobDownload::begin() {
  steps_->run([this]() -> Effects {
    // It was stopped or cleared after it got its place, or runs already.
    if (state_ != State::kWaiting) {
      return {[self = shared_from_this()] {
        self->places_.giveBack(self);
        self->places_.startNextScheduledTask();
      }};
    }
    if (task_->state() != TaskState::NotStarted) renewTask();
    Effects effects{[self = shared_from_this()] { self->run(Run::kStarts); }};
    moveTo(State::kRunning);
    untilRest_ = shared_from_this();
    return effects;
  });
}

void BlobDownload::shutDown() {
  steps_->run([this]() -> Effects {
    if (state_ != State::kWaiting) return {};
    const auto waiting = std::make_shared<WaitingBlocks>();
    const ErrorPtr error = downloadError(kCodeInvalidStateForBinaryOperation, kLibraryShutDown);
    Effects effects{calling(waiting, error, std::nullopt, error)};
    moveTo(State::kCreated);
    untilRest_.reset();
    waiting->take(*task_);
    return effects;
  });
}

Effects BlobDownload::rest(State state, const ErrorPtr& error, const Result& result) {
  const bool isPaused = state == State::kPaused;
  const ErrorPtr pauseError =
      isPaused ? nullptr : downloadError(kCodeInvalidStateForBinaryOperation, kTaskNotStarted);
  const bool isHalt = isPaused && isHalted_;
  // All are taken before one is called: what that does may store another, for a later outcome.
  const auto waiting = std::make_shared<WaitingBlocks>();
  // The file first: from inside a block the next download of it may start, here or elsewhere.
  Effects effects{[self = shared_from_this(), task = task_, claim = claim_] {
                    if (claim != nullptr) claim->release();
                    task->releaseFile(nullptr);
                    self->places_.leave(self);
                  },
                  calling(waiting, isHalt ? downloadStopped() : error, result, pauseError)};
  if (state == State::kEnded || settings_->isSafe()) {
    effects.push_back([&places = places_] { places.startNextScheduledTask(); });
  }
  moveTo(state);
  claim_.reset();
  untilRest_.reset();
  if (!isPaused || isHalt) waiting->takeStartAndResume(*task_);
  if (isPaused || settings_->isSafe()) waiting->takePause(*task_);
  return effects;
}

}  // namespace varo::binary
