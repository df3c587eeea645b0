#pragma once

#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Mutex.h"

#include <chrono>
#include <functional>
#include <map>
#include <thread>

namespace varo::platform {

/// Calls jobs after a delay, on one thread of its own. Jobs must be short and must not block: they
/// hand work to a pool or a queue. Thread-safe.
class TimerQueue {
 public:
  using Clock = std::chrono::steady_clock;
  /// Why a job is called.
  enum class Reason { kDue, kShutDown };
  using Job = std::function<void(Reason)>;

  /// The thread starts with the first job.
  TimerQueue() = default;
  /// As `shutdown`.
  ~TimerQueue();
  TimerQueue(const TimerQueue&) = delete;
  TimerQueue& operator=(const TimerQueue&) = delete;

  /// Calls `job` once, in this thread's `JobContext`: not before `delay` (of at most a year) has
  /// passed, or, when that comes first, from `shutdown`; after `shutdown` at once, on this thread.
  /// What it throws is reported on standard error and goes no further. Throws `std::system_error`
  /// where the system refuses the thread and `std::bad_alloc`; nothing is queued then.
  void after(std::chrono::milliseconds delay, Job job);

  /// Calls the jobs that wait, with `kShutDown`, and joins the thread. Not to be called from a job.
  void shutdown();

 private:
  struct Waiting {
    Job job;
    JobContext::Ptr context;
    void call(Reason reason) const noexcept;
  };

  void run();

  Mutex mutex_;
  ConditionVariable changed_;
  /// By due time; equal ones stay in the order in which they came.
  std::multimap<Clock::time_point, Waiting> jobs_ VARO_GUARDED_BY(mutex_);
  bool stopped_ VARO_GUARDED_BY(mutex_) = false;
  std::thread thread_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::platform
