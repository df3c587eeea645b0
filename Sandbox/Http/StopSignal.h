#pragma once

#include "Platform/Foundation/Mutex.h"

#include <chrono>

namespace varo::sandbox {

/// Says that the server stops, and lets threads wait without keeping it from doing so. Thread-safe.
class StopSignal {
 public:
  void raise();
  [[nodiscard]] bool raised() const;
  /// Waits for `duration` (negative: without a limit), or less when the signal is raised.
  void waitFor(std::chrono::milliseconds duration);

 private:
  mutable platform::Mutex mutex_;
  platform::ConditionVariable condition_;
  bool raised_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::sandbox
