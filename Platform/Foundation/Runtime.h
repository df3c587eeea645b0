#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Foundation/TimerQueue.h"

#include <functional>
#include <vector>

namespace varo::platform {

/// The threads that the process's tasks, queues and completions share, and their ordered end.
///
/// Nothing needs to be set up. `shutdown` may be called once by the application; otherwise it runs
/// at exit. The shared instance is never destroyed, so no call can reach a destroyed object.
/// Thread-safe.
class Runtime {
 public:
  [[nodiscard]] static Runtime& shared();

  /// Runs tasks, their notifications, network completions, and the queues of user callbacks.
  [[nodiscard]] ThreadPool& pool() noexcept { return pool_; }
  /// Runs the steps between two iterations of looping tasks, which may sleep; nothing else.
  [[nodiscard]] ThreadPool& loopSteps() noexcept { return loopSteps_; }
  /// Ends the pauses between iterations of loops. Shut down before the pools: what waits is called.
  [[nodiscard]] TimerQueue& timers() noexcept { return timers_; }

  /// Registers what `shutdown` does first, last registered first: a network transport ends its
  /// transfers here.
  void onShutdown(std::function<void()> step);

  /// Ends transfers in flight and pauses of loops with an error, lets the tasks and callbacks that
  /// wait for them finish, and joins all threads. Waits for callbacks that are running. From inside
  /// a callback it only begins the shutdown; the exit of the process completes it. Later operations
  /// fail at once.
  void shutdown();
  [[nodiscard]] bool isShutDown() const;

 private:
  Runtime();

  TimerQueue growth_;  // of the pools; until their last job has run
  TimerQueue timers_;
  ThreadPool pool_;
  ThreadPool loopSteps_;
  mutable Mutex mutex_;
  std::vector<std::function<void()>> steps_ VARO_GUARDED_BY(mutex_);
  bool shutDown_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::platform
