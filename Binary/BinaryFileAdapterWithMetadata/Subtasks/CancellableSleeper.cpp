#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/CancellableSleeper.h"

#include "Binary/Binary/SourceNames.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace varo::binary {
namespace {

using platform::TimerQueue;

/// One wait, which ends once: when it is due, with a cancellation, or with the shutdown.
class Wait : public std::enable_shared_from_this<Wait> {
 public:
  explicit Wait(TimerQueue::Job wake) : wake_(std::move(wake)) {}

  /// Calls back at once where the stop was requested before.
  void watch(const std::stop_token& cancellation) {
    // Weak: the token may outlive this wait by far.
    watch_.emplace(cancellation, [weak = weak_from_this()] {
      if (const auto wait = weak.lock()) wait->end(TimerQueue::Reason::kDue);
    });
  }

  void end(TimerQueue::Reason reason) {
    TimerQueue::Job wake;
    {
      const MutexLock lock(mutex_);
      // Timer, cancellation and shutdown may come at once. The first one finds it.
      wake.swap(wake_);
    }
    // Without the lock: the loop goes on within this call, and may wait again.
    if (wake) wake(reason);
  }

 private:
  platform::Mutex mutex_;
  TimerQueue::Job wake_ VARO_GUARDED_BY(mutex_);                    // null once it was called
  std::optional<std::stop_callback<std::function<void()>>> watch_;  // set once, before the wait
};

}  // namespace

void CancellableSleeper::setCancellation(std::stop_token cancellation) {
  cancellation_ = std::move(cancellation);
}

void CancellableSleeper::wakeAfter(std::chrono::milliseconds delay, TimerQueue::Job wake) {
  if (!cancellation_.stop_possible()) return sleeper_.wakeAfter(delay, std::move(wake));
  const auto wait = std::make_shared<Wait>(std::move(wake));
  wait->watch(cancellation_);
  sleeper_.wakeAfter(delay, [wait](TimerQueue::Reason reason) { wait->end(reason); });
}

}  // namespace varo::binary
