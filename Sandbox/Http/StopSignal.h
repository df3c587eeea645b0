#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace varo::sandbox {

/// Says that the server stops, and lets threads wait without keeping it from doing so. Thread-safe.
class StopSignal {
 public:
  void raise();
  void reset();
  [[nodiscard]] bool raised() const;
  /// Waits for `duration` (negative: without a limit), or less when the signal is raised.
  void waitFor(std::chrono::milliseconds duration);

 private:
  mutable std::mutex mutex_;
  std::condition_variable condition_;
  bool raised_ = false;  // guarded by mutex_
};

}  // namespace varo::sandbox
