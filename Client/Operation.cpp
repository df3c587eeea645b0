#include "Client/Operation.h"

#include "Client/ClientCore.h"
#include "Client/CredentialsCache.h"
#include "Client/Failures.h"
#include "Client/OperationWatch.h"
#include "Client/Places.h"
#include "Client/Running.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Sleeper.h"
#include "Platform/Network/RateLimit.h"
#include "Platform/Network/RequestSettings.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

namespace varo::detail {

using platform::MutexLock;

namespace {

void addAttempts(Failure& failure, int attempts) noexcept {
  if (attempts == 1) return;
  try {
    failure.message += fmt::format(" (after {} attempts)", attempts);
  } catch (const std::exception&) {
    // There is no memory for it; what has failed is told.
  }
}

}  // namespace

Operation::Operation(const ClientCore& core, OperationKind kind, std::uint64_t memory,
                     std::optional<Bytes> perSecond)
    : places_(core.places()),
      credentials_(core.credentials()),
      memory_(memory),
      perSecond_(perSecond),
      rateLimit_(perSecond ? std::make_shared<platform::RateLimit>(perSecond->count) : nullptr),
      watch_(core.watch(kind)),
      retries_(core.options().retry),
      retryBudget_(retries_.budget()) {}

std::shared_ptr<platform::RequestObserver> Operation::observer() const { return watch_; }

Failure Operation::cancelled() {
  return failureOf(Kind::kCancelled, running().about() + ": The operation was cancelled.");
}

void Operation::serve(RunningBase& running, std::string about) {
  running.named(std::move(about));
  running.watchedBy(watch_);
  running.drivenBy(shared_from_this());
}

void Operation::beginFor(RunningBase& running, std::string about) {
  serve(running, std::move(about));
  begin();
}

void Operation::begin() {
  auto refusal = whyNever();
  if (!refusal) return places_->wait(shared_from_this());
  {
    const MutexLock lock(mutex_);
    if (std::exchange(phase_, Phase::kEnded) == Phase::kEnded) return;  // given up already
  }
  endWaiting(*std::move(refusal));
}

std::optional<Failure> Operation::whyNever() {
  if (credentials_->isAskedHere()) {
    return failureOf(Kind::kInvalidArgument,
                     running().about() + ": Options::credentials of the same client has begun it");
  }
  if (perSecond_ == Bytes(0)) {
    return failureOf(Kind::kInvalidArgument,
                     running().about() + ": perSecond in its options is 0 bytes");
  }
  const std::uint64_t limit = places_->memory().limit();
  if (memory_ <= limit) return std::nullopt;
  return failureOf(Kind::kInvalidArgument,
                   fmt::format("{}: it needs up to {} bytes of memory, more than the {} of "
                               "Options::memory",
                               running().about(), memory_, limit));
}

/// Not here: it may ask the application for credentials, and whoever calls may hold a lock.
void Operation::endWaiting(Failure failure) {
  const auto self = std::static_pointer_cast<Operation>(shared_from_this());
  places_->run([self, failure = std::move(failure)] { self->finish(failure); });
}

bool Operation::isWaiting() {
  const MutexLock lock(mutex_);
  return phase_ == Phase::kWaiting;
}

void Operation::start() noexcept {
  std::uint64_t run = 0;
  {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::kWaiting) {
      phase_ = Phase::kRunning;
      run = ++run_;
      retries_.runBegins();
      running().enter(State::kRunning);
    }
  }
  // Paused or given up while it waited.
  if (run == 0) return places_->giveBack(shared_from_this());
  try {
    const auto cancellation = std::make_shared<platform::Cancellation>();
    bool isStopped = false;
    {
      const MutexLock lock(mutex_);
      cancellation_ = cancellation;
      isStopped = cancelled_ || phase_ == Phase::kPausing;
    }
    // Asked for before there was anything to cancel.
    if (isStopped) return failed(run, cancelled());
    if (platform::Runtime::shared().isShutDown()) {
      return failed(
          run, failureOf(Kind::kShutDown, running().about() + ": the library has been shut down"));
    }
    launch(run, cancellation);
  } catch (const std::exception& thrown) {
    failed(run, failureOf(Kind::kOther, running().about() + ": " + thrown.what()));
  } catch (...) {  // what an application's function object throws when it is copied
    failed(run, failureOf(Kind::kOther, running().about() + ": an exception"));
  }
}

void Operation::cancel() {
  std::shared_ptr<platform::Cancellation> cancellation;
  bool ends = false;
  {
    const MutexLock lock(mutex_);
    cancelled_ = true;
    if (phase_ == Phase::kRunning || phase_ == Phase::kPausing) {
      cancellation = cancellation_;
    } else {
      ends = std::exchange(phase_, Phase::kEnded) != Phase::kEnded;
    }
  }
  if (ends) {
    places_->leave(shared_from_this());
    return endWaiting(cancelled());
  }
  if (cancellation != nullptr) stop(cancellation, true);
}

void Operation::pause() {
  std::shared_ptr<platform::Cancellation> cancellation;
  bool hasWaited = false;
  {
    const MutexLock lock(mutex_);
    resumes_ = false;
    if (phase_ == Phase::kWaiting) {
      phase_ = Phase::kPaused;
      hasWaited = true;
      running().enter(State::kPaused);
    } else if (phase_ == Phase::kRunning && canPause()) {
      phase_ = Phase::kPausing;
      cancellation = cancellation_;
    } else {
      if (std::exchange(backsOff_, false)) running().enter(State::kPaused);
      return;
    }
  }
  if (hasWaited) places_->leave(shared_from_this());
  if (cancellation != nullptr) stop(cancellation, false);
}

void Operation::resume() {
  if (leavesPause(std::nullopt)) places_->wait(shared_from_this());
}

bool Operation::leavesPause(std::optional<std::uint64_t> woken) {
  const MutexLock lock(mutex_);
  // Paused, resumed or given up before the timer came.
  if (woken && (*woken != run_ || !backsOff_)) return false;
  // What it runs on is about to stop: it begins again then.
  if (phase_ == Phase::kPausing) resumes_ = true;
  if (phase_ != Phase::kPaused) return false;
  phase_ = Phase::kWaiting;
  if (!std::exchange(backsOff_, false)) {
    // Somebody wants it, so it is tried as at the beginning.
    retries_.startOver();
    running().tries(1);
  }
  running().enter(State::kWaiting);
  return true;
}

// What requests tell of their retries.

void Operation::direct(std::uint64_t run, platform::RequestSettings& settings) {
  const auto tell = [weak = weak_from_this()](auto told) {
    if (const auto self = weak.lock()) told(*self);
  };
  settings.observer = watch_;
  settings.retryBudget = retryBudget_;
  settings.rateLimit = rateLimit_;
  settings.onRetry = [tell, run](int attempt, std::chrono::milliseconds /*wait*/) {
    tell([run, attempt](Operation& self) { self.requestWaits(run, attempt); });
  };
  settings.onWaited = [tell, run] { tell([run](Operation& self) { self.requestHasWaited(run); }); };
  settings.onRecovered = [tell, run] {
    tell([run](Operation& self) { self.requestRecovered(run); });
  };
}

bool Operation::isUnderWay(std::uint64_t run) const {
  return run == run_ && (phase_ == Phase::kRunning || phase_ == Phase::kPausing);
}

void Operation::requestWaits(std::uint64_t run, int attempt) {
  {
    const MutexLock lock(mutex_);
    if (!isUnderWay(run)) return;
    retries_.requestWaits(attempt, running().progress().done);
    running().backsOff(attempt);
  }
  running().show();
}

void Operation::requestHasWaited(std::uint64_t run) {
  const MutexLock lock(mutex_);
  if (!isUnderWay(run)) return;
  retries_.requestHasWaited();
  if (!retries_.isWaiting()) running().enter(State::kRunning);
}

void Operation::requestRecovered(std::uint64_t run) {
  const MutexLock lock(mutex_);
  if (isUnderWay(run)) running().tries(1);
}

// A run that has failed, and the next one.

std::optional<std::chrono::milliseconds> Operation::waitAfter(std::uint64_t run,
                                                              const Failure& failure) {
  if (const auto wait = runsAgainAfter(failure)) return wait;
  const bool isOfConnection = failure.kind == Kind::kNoConnection || failure.kind == Kind::kTimeout;
  if (!isOfConnection || failure.httpStatus || !canGoOn()) return std::nullopt;
  const MutexLock lock(mutex_);
  if (!isUnderWay(run)) return std::nullopt;
  const auto next = retries_.nextRun(running().progress().done);
  if (!next) return std::nullopt;
  running().tries(next->attempt);
  return next->wait;
}

void Operation::backOff(std::uint64_t run, std::chrono::milliseconds wait) {
  try {
    platform::Sleeper::shared().wakeAfter(
        wait, [weak = weak_from_this(), run](platform::TimerQueue::Reason) {
          if (const auto self = std::static_pointer_cast<Operation>(weak.lock())) self->wake(run);
        });
  } catch (const std::exception&) {
    wake(run);  // no timer can be had
  }
}

void Operation::wake(std::uint64_t run) {
  if (leavesPause(run)) places_->wait(shared_from_this());
}

Operation::RunEnd Operation::endRun(std::uint64_t run, bool wasStopped, bool again) {
  const MutexLock lock(mutex_);
  if (!isUnderWay(run)) return RunEnd::kLate;
  const bool isPause = phase_ == Phase::kPausing && (wasStopped || again) && !cancelled_;
  const bool isAgain = again && phase_ == Phase::kRunning && !cancelled_;
  if (!isPause && !isAgain) {
    phase_ = Phase::kEnded;
    return RunEnd::kEnd;
  }
  phase_ = Phase::kPaused;
  cancellation_.reset();
  backsOff_ = isAgain;
  running().enter(isAgain ? State::kBackingOff : State::kPaused);
  if (isAgain) return RunEnd::kBackOff;
  return std::exchange(resumes_, false) ? RunEnd::kPauseAndResume : RunEnd::kPause;
}

void Operation::succeeded(std::uint64_t run, const platform::Value& result) noexcept {
  if (endRun(run, false, false) == RunEnd::kLate) return;
  places_->giveBack(shared_from_this());
  finish(result);
}

void Operation::failed(std::uint64_t run, Failure failure) noexcept {
  const bool wasStopped = failure.kind == Kind::kCancelled;
  const auto wait = wasStopped ? std::nullopt : waitAfter(run, failure);
  const RunEnd end = endRun(run, wasStopped, wait.has_value());
  if (end == RunEnd::kLate) return;
  places_->giveBack(shared_from_this());
  if (end == RunEnd::kEnd) {
    if (!wasStopped) addAttempts(failure, running().progress().attempt);
    return finish(std::move(failure));
  }
  if (end == RunEnd::kPauseAndResume) resume();
  if (end == RunEnd::kBackOff) backOff(run, *wait);
}

}  // namespace varo::detail
