#pragma once

#include "Platform/Foundation/TimerQueue.h"

#include <chrono>

namespace varo::platform {

/// Lets work wait for a while without holding a thread. Tests replace it to see the waits without
/// waiting for them. Thread-safe.
class Sleeper {
 public:
  virtual ~Sleeper() = default;

  /// Calls `wake` once, as `TimerQueue::after` does, and fails as that does: after `delay`, or
  /// earlier with the shutdown. The call comes on a thread that must not be held up, and may come
  /// from inside this function.
  virtual void wakeAfter(std::chrono::milliseconds delay, TimerQueue::Job wake) = 0;

  /// Over the runtime's timers.
  [[nodiscard]] static Sleeper& shared();
};

/// Over a timer queue, which must outlive it.
class TimerSleeper final : public Sleeper {
 public:
  explicit TimerSleeper(TimerQueue& timers) : timers_(timers) {}
  void wakeAfter(std::chrono::milliseconds delay, TimerQueue::Job wake) override;

 private:
  TimerQueue& timers_;
};

}  // namespace varo::platform
