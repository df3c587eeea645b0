#include "Binary/Binary/BinaryDataManager/BlobDownload.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DataPersistenceTask.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadPath.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Runtime.h"

#include <cerrno>
#include <functional>
#include <utility>

namespace varo::binary {

using Effects = StepQueue::Effects;

namespace {

namespace texts = log_texts::blob_download;

constexpr std::string_view kStateNames[] = {"created", "waiting", "running", "pausing", "paused",
                                            "ended",   "failed",  "stopped", "cleared"};

ErrorPtr stoppedError() {
  return downloadError(kCodeInvalidStateForBinaryOperation, kDownloadStopped);
}

Dictionary thrown(std::string_view what) {
  return {{std::string(platform::kErrorMessageKey), what}};
}

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
      steps_(std::make_shared<StepQueue>("download " + blobId_)) {}

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
    const ErrorPtr error = downloadFailure(thrown(exception.what()));
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
    return end(State::kStopped, stoppedError());
  });
}

void BlobDownload::halt() {
  steps_->run([this]() -> Effects {
    if (state_ == State::kWaiting) return end(State::kStopped, stoppedError());
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

void BlobDownload::run(Run run) {
  logger().logDebug(run == Run::kStarts ? texts::kFire : texts::kCallingResume, blobId_);
  const FileClaim::Lease claim = claimFile();
  if (claim == nullptr) return;
  ErrorPtr notAvailable;
  // Only who has the file knows that nobody is about to complete it.
  if (const auto available = rows_.checkIfFileAvailable(&notAvailable)) {
    claim->finish();
    return comeToRest(claim, State::kEnded, nullptr, available);
  }
  launch(run, claim);
}

FileClaim::Lease BlobDownload::claimFile() {
  const auto& places = settings_->blobPlaces;
  const std::string path =
      places ? DownloadPath::ofBlobIn(places->files, blobId_) : DownloadPath::ofBlob(blobId_);
  FileClaim::Attempt attempt;
  if (path.empty()) attempt.error = Error::fromErrno(EINVAL, "Creating", blobId_);
  // Inside of a step, so that what tells of the free file finds this download waiting for it.
  steps_->run([&]() -> Effects {
    if (!runs() || attempt.error != nullptr) return {};
    attempt = FileClaim::acquire(path, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->claimIsFree();
    });
    claim_ = attempt.claim;
    if (attempt.claim != nullptr || attempt.error != nullptr) return {};
    if (isHalted_) return end(State::kStopped, stoppedError());
    const auto waiting = std::make_shared<WaitingBlocks>();
    Effects effects{calling(waiting, nullptr, std::nullopt,
                            downloadError(kCodeInvalidStateForBinaryOperation, kTaskNotStarted)),
                    [self = shared_from_this()] {
                      self->places_.leave(self);
                      self->places_.startNextScheduledTask();
                    }};
    moveTo(State::kWaiting);
    waiting->takePause(*task_);
    return effects;
  });
  if (attempt.error != nullptr) {
    // The row of a file that another process has is that process's.
    if (!FileClaim::isBusy(*attempt.error)) rows_.updateState(kDownloadErrored, {});
    fail(nullptr, {{kPersistenceError, DataPersistenceTask::creationFailure(attempt.error, path)}});
  }
  return attempt.claim;
}

void BlobDownload::claimIsFree() {
  steps_->run([this]() -> Effects { return state_ == State::kWaiting ? schedule() : Effects(); });
}

void BlobDownload::launch(Run run, const FileClaim::Lease& claim) {
  Dictionary input = task_->inputContext();
  if (run == Run::kResumes) input = rows_.withMetaData(std::move(input));
  const auto [bytes, isWhole] = rows_.beginningIn(*claim, run == Run::kStarts);
  if (isWhole) return endWithWholeFile(claim, bytes);
  // What is in it is of nothing that is known, and a row may come to name the file.
  if (bytes == 0 && DownloadFile::sizeAt(claim->path()) > 0) {
    (void)DownloadFile().empty(claim->path());
  }
  input.set(kTotalBytesDownloaded, bytes);
  input.set(kValidator, bytes > 0 ? platform::Value(claim->validator()) : platform::Value());
  input.set(kFileClaim, claim->withoutLease());
  if (run == Run::kResumes) logger().logDebug(texts::kResumeInput, blobId_, input);
  steps_->run([&]() -> Effects {
    if (claim_ != claim) return {};  // stopped meanwhile
    task_->updateInputContext(input);
    Effects effects{[task = task_, run] {
      if (run == Run::kResumes) {
        task->resumeDownload();
      } else {
        task->start();
      }
    }};
    // A pause that came before there was anything to pause.
    if (state_ == State::kPausing) {
      effects.push_back([task = task_] { task->pauseDownload(); });
    }
    return effects;
  });
}

/// A row that does not say so, since it could not be written, is mended.
void BlobDownload::endWithWholeFile(const FileClaim::Lease& claim, std::int64_t size) {
  const auto file = platform::File::openForWriting(claim->path());
  const auto synced = file ? (*file)->sync() : platform::Result<void>(file.error());
  if (!synced) {
    rows_.updateState(kDownloadErrored, {});
    return fail(claim, {{kPersistenceError,
                         DataPersistenceTask::creationFailure(synced.error(), claim->path())}});
  }
  taskEnded(claim, {{kBlobId, blobId_}, {kFilePath, claim->path()}, {kTotalFileSize, size}});
}

void BlobDownload::fail(const FileClaim::Lease& claim, const Dictionary& context) {
  comeToRest(claim, State::kFailed, downloadFailure(context), std::nullopt);
}

/// An allocation has failed, or a library has; the download has not, but cannot go on.
void BlobDownload::threw(std::string_view what) {
  steps_->run([&]() -> Effects {
    if (!runs() && state_ != State::kWaiting) return {};
    return end(State::kFailed, downloadFailure(thrown(what)));
  });
}

// What the task tells.

void BlobDownload::task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                        const Dictionary& context) {
  try {
    // Held until the row is written, whoever stops the download meanwhile.
    FileClaim::Lease claim;
    steps_->run([&]() -> Effects {
      if (runs() && task == task_) claim = claim_;
      return {};
    });
    if (claim == nullptr) return;
    const Dictionary output = context[platform::kTaskOutputContext].dictionaryValue();
    if (from != to) return taskChanged(*task, claim, to, output);
    if (settings_->isSafe()) rows_.noteFile(output);
  } catch (const std::exception& exception) {
    threw(exception.what());
  } catch (...) {
    threw(kUnknownException);
  }
}

void BlobDownload::taskChanged(const VSTask& task, const FileClaim::Lease& claim, TaskState to,
                               const Dictionary& output) {
  switch (to) {
    case TaskState::Started:
      return rows_.updateState(kDownloadStarted, output);
    case TaskState::Ended:
      return taskEnded(claim, output);
    // The row is written before the claim goes and the blocks are called: whoever comes next reads
    // it.
    case TaskState::Paused:
      rows_.updateState(kDownloadPaused, output);
      return comeToRest(claim, State::kPaused, nullptr, output);
    case TaskState::Errored:
      rows_.updateState(kDownloadErrored, output);
      return fail(claim, task.errorContext());
    case TaskState::NotStarted:
    case TaskState::Stopped:
      return;
  }
}

void BlobDownload::taskEnded(const FileClaim::Lease& claim, const Dictionary& output) {
  logger().logTrace(texts::kPostProcessing, blobId_);
  const auto noted = rows_.updateDB(output);
  // The hidden file goes only after the row says that the file is complete. Until then it is all
  // that a later download knows of it.
  if (noted) {
    claim->finish();
  } else {
    claim->noteWhole(static_cast<std::int64_t>(DownloadFile::sizeAt(claim->path())));
  }
  if (noted || !settings_->isSafe()) return comeToRest(claim, State::kEnded, nullptr, output);
  fail(claim, {{std::string(platform::kErrorMessageKey), kRowNotWritten},
               {kFilePath, claim->path()},
               {std::string(platform::kUnderlyingError), noted.error()}});
}

void BlobDownload::comeToRest(const FileClaim::Lease& claim, State state, const ErrorPtr& error,
                              const Result& result) {
  steps_->run([&]() -> Effects {
    // It was stopped or cleared meanwhile, and may run again.
    if (!runs() || claim_ != claim) return {};
    return rest(state, error, result);
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
                  calling(waiting, isHalt ? stoppedError() : error, result, pauseError)};
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
