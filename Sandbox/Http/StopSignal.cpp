#include "Sandbox/Http/StopSignal.h"

namespace varo::sandbox {

void StopSignal::raise() {
  {
    const std::lock_guard lock(mutex_);
    raised_ = true;
  }
  condition_.notify_all();
}

void StopSignal::reset() {
  const std::lock_guard lock(mutex_);
  raised_ = false;
}

bool StopSignal::raised() const {
  const std::lock_guard lock(mutex_);
  return raised_;
}

void StopSignal::waitFor(std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex_);
  const auto isRaised = [this] { return raised_; };
  if (duration < std::chrono::milliseconds::zero()) {
    condition_.wait(lock, isRaised);
  } else {
    condition_.wait_for(lock, duration, isRaised);
  }
}

}  // namespace varo::sandbox
