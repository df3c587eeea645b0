#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Foundation/TimerQueue.h"

#include <functional>
#include <vector>

namespace varo::platform {

/// The threads that the process's tasks, queues and completions share, and their ordered end.
///
/// Nothing needs to be set up. `shutdown` may be called by the application; otherwise it runs at
/// exit, after the destructors of static objects that were made later than the shared instance. The
/// instance itself is never destroyed, so no call can reach a destroyed object. A forked child must
/// not use it: it has none of the threads. Thread-safe.
class Runtime {
 public:
  [[nodiscard]] static Runtime& shared();

  /// Runs tasks, their notifications, network completions, and the queues of user callbacks.
  [[nodiscard]] ThreadPool& pool() noexcept { return pool_; }
  /// Ends the pauses between iterations of loops. Shut down before the pool: what waits is called.
  [[nodiscard]] TimerQueue& timers() noexcept { return timers_; }

  /// Registers what `shutdown` does first, last registered first: a network transport ends its
  /// transfers here.
  void onShutdown(std::function<void()> step);

  /// Ends transfers in flight and pauses of loops with an error, lets the tasks and callbacks that
  /// wait for them finish, and joins all threads. Waits for callbacks that are running, and for a
  /// call that another thread has made before. From inside a callback it only ends what is waited
  /// for; the next call from elsewhere, at the latest that at exit, does the rest. Later operations
  /// fail at once.
  void shutdown();
  [[nodiscard]] bool isShutDown() const;

 private:
  Runtime();
  void endWaits();

  TimerQueue growth_;  // of the pool; until its last job has run
  TimerQueue timers_;
  ThreadPool pool_;
  /// Held through a shutdown from outside; the runtime's threads never take it.
  Mutex shutdownMutex_;
  mutable Mutex mutex_;
  std::vector<std::function<void()>> steps_ VARO_GUARDED_BY(mutex_);
  bool shutDown_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::platform
