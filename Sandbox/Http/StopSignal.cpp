#include "Sandbox/Http/StopSignal.h"

namespace varo::sandbox {

void StopSignal::raise() {
  const platform::MutexLock lock(mutex_);
  raised_ = true;
  condition_.notifyAll();
}

bool StopSignal::raised() const {
  const platform::MutexLock lock(mutex_);
  return raised_;
}

void StopSignal::waitFor(std::chrono::milliseconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  const platform::MutexLock lock(mutex_);
  // A wait may end without a reason, so only the flag and the clock count.
  while (!raised_) {
    if (duration < std::chrono::milliseconds::zero()) {
      condition_.wait(mutex_);
    } else if (condition_.waitUntil(mutex_, end) == std::cv_status::timeout) {
      return;
    }
  }
}

}  // namespace varo::sandbox
