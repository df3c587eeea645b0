#pragma once

#include "Client/Control.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Sleeper.h"
#include "Platform/Foundation/WorkQueue.h"
#include "varo/outcome.h"
#include "varo/transfer.h"

#include <chrono>
#include <coroutine>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace varo::detail {

class OperationWatch;

/// What a handle and the operation behind it share, whatever the outcome is: state, progress, the
/// callbacks and their turn.
///
/// - Owned by the handle and by the operation, which lets go of it at the end.
/// - Callbacks run one at a time on `callbacks_`. Each one asks for its turn first, so that none
///   begins after `close`, and `close` can wait for the one that runs.
/// - Thread-safe. Nothing is called with the lock held.
class RunningBase : public std::enable_shared_from_this<RunningBase> {
 public:
  /// Both live as long as this.
  explicit RunningBase(const platform::Clock& clock = platform::Clock::system(),
                       platform::Sleeper& sleeper = platform::Sleeper::shared());
  RunningBase(const RunningBase&) = delete;
  RunningBase& operator=(const RunningBase&) = delete;
  virtual ~RunningBase() = default;

  // For the handle.
  void setOnProgress(std::function<void(const Progress&)> callback);
  void cancelWith(const std::stop_token& token);
  void cancel();
  void pause();
  void resume();
  [[nodiscard]] State state() const;
  [[nodiscard]] Progress progress() const;
  void wait() const;
  /// False where it was not done in time.
  [[nodiscard]] bool waitFor(std::chrono::milliseconds most) const;
  /// Cancels what is not done, and calls what is due on this thread. On return no callback runs and
  /// none will, but for the one that calls this.
  void close() noexcept;
  /// False, with nothing noted, where it is done already. Else the coroutine goes on at the end, on
  /// a thread of the pool.
  [[nodiscard]] bool resumeAtEnd(std::coroutine_handle<> waiting);

  // For the operation.
  /// What it is, for failures: 'upload of "photo.jpg"'. Before anybody else knows this.
  void named(std::string about) { about_ = std::move(about); }
  [[nodiscard]] const std::string& about() const noexcept { return about_; }
  /// Who is told of its end; null for nobody. Before anybody else knows this.
  void watchedBy(std::shared_ptr<OperationWatch> watch) { watch_ = std::move(watch); }
  /// Who can stop it, until its end. At most once, before anybody else knows this.
  void drivenBy(std::shared_ptr<Control> control);
  /// No effect after the end.
  void enter(State state);
  /// A request waits for this attempt.
  void backsOff(int attempt);
  /// The number of the attempt.
  void tries(int attempt);
  /// Has the progress shown to the application, at once or when it is time.
  void show();
  /// Bytes; a number that is smaller than the last one counts as that one. `total` 0: not known.
  void reached(std::uint64_t done, std::uint64_t total);
  /// Has `work` called as a callback, in its turn, unless the handle is gone by then.
  void inTurn(std::function<void()> work) noexcept;
  /// Calls `work`, which calls a `Sink` or `Reader`, on this thread, one at a time. The handle's
  /// end waits for it. False, without a call, when the handle or the outcome came to its end. These
  /// calls have no turn among the callbacks: one of those may wait for the transfer.
  [[nodiscard]] bool move(const std::function<void()>& work);
  /// Waits for the call of `move` that runs, unless this is it.
  void waitForMove() const;

 protected:
  /// Moves to the end; gives what it was driven by, to be destroyed without the lock.
  [[nodiscard]] std::shared_ptr<Control> endLocked() VARO_REQUIRES(mutex_);
  /// Wakes up those that wait for the end, and has the last progress shown.
  void ended();
  /// Has `callOnDone` called in its turn, unless the handle is gone by then.
  void tellEnd() noexcept {
    inTurn([this] { callOnDone(); });
  }
  /// The outcome of an operation whose handle went away.
  virtual void abandon() = 0;
  /// Has the end told to who watches the operation, with its failure. Before anybody else hears of
  /// it.
  void tellWatch(const std::optional<Kind>& failure) const noexcept;
  /// Calls the callback of the end, once, if there is one and it was not called yet.
  virtual void callOnDone() = 0;

  /// Guards all of this object, the outcome of the derived class included.
  mutable platform::Mutex mutex_;
  State state_ VARO_GUARDED_BY(mutex_) = State::kWaiting;

 private:
  [[nodiscard]] std::shared_ptr<Control> control() const;
  void showProgress();
  /// Calls the callback of the progress for the last time, if it was not yet. After the end.
  void showLastProgress();
  /// Has what came too early shown when it is time.
  void showLater(std::chrono::milliseconds delay);
  void take(const std::function<void()>& work) noexcept;
  void measureRateLocked(std::chrono::steady_clock::time_point now) VARO_REQUIRES(mutex_);
  void waitForTurn() noexcept;

  // Constant once it is shared.
  std::string about_ = "operation";
  std::shared_ptr<OperationWatch> watch_;
  const platform::Clock& clock_;
  platform::Sleeper& sleeper_;
  platform::SerialQueue callbacks_;
  mutable platform::ConditionVariable changed_;
  Progress progress_ VARO_GUARDED_BY(mutex_);
  /// One function for all calls, which may have a state of its own; null for none.
  std::shared_ptr<const std::function<void(const Progress&)>> onProgress_ VARO_GUARDED_BY(mutex_);
  /// When the progress was shown last, and where the rate is measured from.
  std::chrono::steady_clock::time_point shown_ VARO_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point begun_ VARO_GUARDED_BY(mutex_);
  std::uint64_t doneAtBegin_ VARO_GUARDED_BY(mutex_) = 0;
  /// Whether a timer will show what came too early.
  bool laterIsDue_ VARO_GUARDED_BY(mutex_) = false;
  bool closed_ VARO_GUARDED_BY(mutex_) = false;
  /// The thread that a callback runs on.
  std::optional<std::thread::id> calling_ VARO_GUARDED_BY(mutex_);
  /// The thread that is inside `move`.
  std::optional<std::thread::id> moving_ VARO_GUARDED_BY(mutex_);
  std::vector<std::coroutine_handle<>> waiting_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<Control> control_ VARO_GUARDED_BY(mutex_);
  std::unique_ptr<std::stop_callback<std::function<void()>>> stop_ VARO_GUARDED_BY(mutex_);
};

/// The same with its outcome.
template <typename T>
class Running final : public RunningBase {
 public:
  using RunningBase::RunningBase;

  void setOnDone(std::function<void(const Outcome<T>&)> callback) {
    {
      const platform::MutexLock lock(mutex_);
      onDone_.swap(callback);
      if (state_ != State::kDone) return;
    }
    tellEnd();
  }

  /// The end of the operation; only the first counts.
  void end(Outcome<T> outcome) {
    tellWatch(outcome ? std::nullopt : std::optional(outcome.error().kind));
    if (settle(std::move(outcome))) tellEnd();
  }

  /// Precondition: it is done.
  [[nodiscard]] const Outcome<T>& outcome() const {
    const platform::MutexLock lock(mutex_);
    return *outcome_;  // never changes again
  }

 private:
  void abandon() override {
    Failure failure;
    failure.kind = Kind::kCancelled;
    failure.message = about() + ": the handle was destroyed before the end";
    static_cast<void>(settle(std::move(failure)));
  }

  /// True for the first outcome.
  [[nodiscard]] bool settle(Outcome<T> outcome) {
    std::shared_ptr<Control> control;
    {
      const platform::MutexLock lock(mutex_);
      if (state_ == State::kDone) return false;
      outcome_.emplace(std::move(outcome));
      control = endLocked();
    }
    ended();
    return true;
  }

  void callOnDone() override {
    std::function<void(const Outcome<T>&)> callback;
    {
      const platform::MutexLock lock(mutex_);
      callback.swap(onDone_);
    }
    if (callback == nullptr) return;
    platform::ThreadPool::runHere([&] { callback(outcome()); });
  }

  std::optional<Outcome<T>> outcome_ VARO_GUARDED_BY(mutex_);
  std::function<void(const Outcome<T>&)> onDone_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
