#include "Client/Running.h"

#include "Client/OpenControls.h"
#include "Client/OperationWatch.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <cmath>

namespace varo::detail {

using platform::MutexLock;
using std::chrono::steady_clock;

namespace {

/// Progress is shown at most ten times a second.
constexpr std::chrono::milliseconds kBetweenProgress{100};
/// Over less, a rate says nothing.
constexpr std::chrono::milliseconds kLeastForRate{200};
/// A wait without an end would overflow the clock.
constexpr std::chrono::hours kLongestWait{24 * 365};

/// An application's code works on its own account, not on that of the operation.
void callApplication(const std::function<void()>& work) noexcept {
  const platform::JobContext::Scope none(nullptr);
  platform::ThreadPool::runHere(work);
}

}  // namespace

RunningBase::RunningBase(const platform::Clock& clock, platform::Sleeper& sleeper)
    : clock_(clock), sleeper_(sleeper), callbacks_("transfer") {}

void RunningBase::setOnProgress(std::function<void(const Progress&)> callback) {
  std::shared_ptr<const std::function<void(const Progress&)>> shared;
  if (callback != nullptr) {
    shared = std::make_shared<const std::function<void(const Progress&)>>(std::move(callback));
  }
  {
    const MutexLock lock(mutex_);
    onProgress_.swap(shared);
    if (state_ != State::kDone) return;
  }
  inTurn([this] { showLastProgress(); });
}

void RunningBase::cancelWith(const std::stop_token& token) {
  // Made without the lock, since a stop that was requested before cancels here and now.
  auto stop =
      std::make_unique<std::stop_callback<std::function<void()>>>(token, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->cancel();
      });
  const MutexLock lock(mutex_);
  stop_.swap(stop);
}

void RunningBase::drivenBy(std::shared_ptr<Control> control) {
  OpenControls::shared().add(control);
  const MutexLock lock(mutex_);
  control_.swap(control);
}

std::shared_ptr<Control> RunningBase::control() const {
  const MutexLock lock(mutex_);
  return control_;
}

void RunningBase::cancel() {
  if (const auto driver = control()) driver->cancel();
}

void RunningBase::pause() {
  const auto driver = control();
  if (driver == nullptr) return;
  driver->pause();
  // Nothing resumes it any more, so it could have no end.
  if (platform::Runtime::shared().isShutDown()) driver->resume();
}

void RunningBase::resume() {
  if (const auto driver = control()) driver->resume();
}

State RunningBase::state() const {
  const MutexLock lock(mutex_);
  return state_;
}

Progress RunningBase::progress() const {
  const MutexLock lock(mutex_);
  return progress_;
}

void RunningBase::wait() const {
  const MutexLock lock(mutex_);
  while (state_ != State::kDone) changed_.wait(mutex_);
}

bool RunningBase::waitFor(std::chrono::milliseconds most) const {
  const auto until = steady_clock::now() + std::clamp<std::chrono::milliseconds>(
                                               most, std::chrono::milliseconds(0), kLongestWait);
  const MutexLock lock(mutex_);
  while (state_ != State::kDone) {
    if (changed_.waitUntil(mutex_, until) == std::cv_status::timeout) {
      return state_ == State::kDone;
    }
  }
  return true;
}

bool RunningBase::resumeAtEnd(std::coroutine_handle<> waiting) {
  const MutexLock lock(mutex_);
  if (state_ == State::kDone) return false;
  waiting_.push_back(waiting);
  return true;
}

void RunningBase::enter(State state) {
  const MutexLock lock(mutex_);
  if (state_ == State::kDone) return;
  state_ = state;
  // Pauses do not count in the rate.
  if (state == State::kRunning) {
    begun_ = clock_.steadyNow();
    doneAtBegin_ = progress_.done;
  }
}

void RunningBase::backsOff(int attempt) {
  const MutexLock lock(mutex_);
  if (state_ == State::kDone) return;
  state_ = State::kBackingOff;
  progress_.attempt = attempt;
}

void RunningBase::tries(int attempt) {
  const MutexLock lock(mutex_);
  if (state_ != State::kDone) progress_.attempt = attempt;
}

void RunningBase::reached(std::uint64_t done, std::uint64_t total) {
  {
    const MutexLock lock(mutex_);
    if (state_ == State::kDone) return;
    // While one request waits, the bytes are those of others.
    if (done > progress_.done && state_ == State::kRunning) progress_.attempt = 1;
    progress_.done = std::max(progress_.done, done);
    progress_.total = std::max(total, total == 0 ? total : progress_.done);
    measureRateLocked(clock_.steadyNow());
  }
  show();
}

void RunningBase::show() {
  std::chrono::nanoseconds early{0};
  {
    const MutexLock lock(mutex_);
    if (state_ == State::kDone || onProgress_ == nullptr || laterIsDue_) return;
    const auto now = clock_.steadyNow();
    early = kBetweenProgress - (now - shown_);
    if (early.count() > 0) {
      laterIsDue_ = true;
    } else {
      shown_ = now;
    }
  }
  if (early.count() <= 0) return inTurn([this] { showProgress(); });
  showLater(std::chrono::ceil<std::chrono::milliseconds>(early));
}

void RunningBase::showLater(std::chrono::milliseconds delay) {
  sleeper_.wakeAfter(delay, [weak = weak_from_this()](platform::TimerQueue::Reason) {
    const auto self = weak.lock();
    if (self == nullptr) return;
    {
      const MutexLock lock(self->mutex_);
      self->laterIsDue_ = false;
      if (self->state_ == State::kDone) return;  // the last one is on its way
      self->shown_ = self->clock_.steadyNow();
    }
    self->inTurn([self = self.get()] { self->showProgress(); });
  });
}

void RunningBase::measureRateLocked(steady_clock::time_point now) {
  const std::chrono::duration<double> since = now - begun_;
  if (since < kLeastForRate) return;
  progress_.bytesPerSecond = static_cast<double>(progress_.done - doneAtBegin_) / since.count();
  progress_.left.reset();
  if (progress_.total == 0 || progress_.bytesPerSecond <= 0) return;
  const auto left = static_cast<double>(progress_.total - progress_.done);
  progress_.left = std::chrono::seconds(std::llround(left / progress_.bytesPerSecond));
}

void RunningBase::showProgress() {
  std::shared_ptr<const std::function<void(const Progress&)>> callback;
  Progress progress;
  {
    const MutexLock lock(mutex_);
    callback = onProgress_;
    progress = progress_;
  }
  if (callback != nullptr) (*callback)(progress);
}

void RunningBase::showLastProgress() {
  std::shared_ptr<const std::function<void(const Progress&)>> callback;
  Progress progress;
  {
    const MutexLock lock(mutex_);
    callback.swap(onProgress_);  // nothing comes after it
    progress = progress_;
  }
  if (callback != nullptr) (*callback)(progress);
}

std::shared_ptr<Control> RunningBase::endLocked() {
  state_ = State::kDone;
  progress_.left = std::chrono::seconds(0);
  return std::exchange(control_, nullptr);
}

void RunningBase::tellWatch(const std::optional<Kind>& failure) const noexcept {
  if (watch_ != nullptr) watch_->end(failure, progress().done);
}

void RunningBase::ended() {
  std::vector<std::coroutine_handle<>> waiting;
  {
    const MutexLock lock(mutex_);
    waiting.swap(waiting_);
    changed_.notifyAll();
  }
  inTurn([this] { showLastProgress(); });
  platform::ThreadPool& pool = platform::Runtime::shared().pool();
  const platform::JobContext::Scope none(nullptr);  // as in `callApplication`
  for (const auto& coroutine : waiting) pool.postOrRun([coroutine] { coroutine.resume(); });
}

void RunningBase::inTurn(std::function<void()> work) noexcept {
  callbacks_.async([self = shared_from_this(), work = std::move(work)] { self->take(work); });
}

void RunningBase::take(const std::function<void()>& work) noexcept {
  {
    const MutexLock lock(mutex_);
    if (closed_) return;
    calling_ = std::this_thread::get_id();
  }
  callApplication(work);
  const MutexLock lock(mutex_);
  calling_.reset();
  changed_.notifyAll();
}

void RunningBase::close() noexcept {
  std::unique_ptr<std::stop_callback<std::function<void()>>> stop;
  {
    const MutexLock lock(mutex_);
    closed_ = true;
    stop.swap(stop_);
  }
  stop.reset();  // without the lock: it waits for a cancel that it makes at this moment
  cancel();
  abandon();
  waitForTurn();
  waitForMove();
  // One by one: the callback of the progress may throw.
  platform::ThreadPool::runHere([this] { showLastProgress(); });
  platform::ThreadPool::runHere([this] { callOnDone(); });
}

bool RunningBase::move(const std::function<void()>& work) {
  {
    const MutexLock lock(mutex_);
    while (moving_) changed_.wait(mutex_);
    if (closed_ || state_ == State::kDone) return false;
    moving_ = std::this_thread::get_id();
  }
  callApplication(work);
  const MutexLock lock(mutex_);
  moving_.reset();
  changed_.notifyAll();
  return true;
}

void RunningBase::waitForMove() const {
  const MutexLock lock(mutex_);
  while (moving_ && *moving_ != std::this_thread::get_id()) changed_.wait(mutex_);
}

void RunningBase::waitForTurn() noexcept {
  const MutexLock lock(mutex_);
  while (calling_ && *calling_ != std::this_thread::get_id()) changed_.wait(mutex_);
}

}  // namespace varo::detail
