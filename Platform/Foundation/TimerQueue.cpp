#include "Platform/Foundation/TimerQueue.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

namespace varo::platform {
namespace {

/// Longer delays would pass what the clock can count.
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24 * 365);

}  // namespace

void TimerQueue::Waiting::call(Reason reason) const noexcept {
  const JobContext::Scope scope(context);
  try {
    job(reason);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "varo: a timer's job threw: %s\n", exception.what());
  } catch (...) {
    std::fputs("varo: a timer's job threw\n", stderr);
  }
}

TimerQueue::~TimerQueue() { shutdown(); }

void TimerQueue::after(std::chrono::milliseconds delay, Job job) {
  Waiting waiting{std::move(job), JobContext::current()};
  {
    const MutexLock lock(mutex_);
    if (!stopped_) {
      // First, since the system may refuse it: then nothing is queued.
      if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
      jobs_.emplace(Clock::now() + std::min(delay, kLongestDelay), std::move(waiting));
      changed_.notifyOne();
      return;
    }
  }
  // Whoever waits for the job hears at once that its time will not come.
  waiting.call(Reason::kShutDown);
}

void TimerQueue::shutdown() {
  std::thread thread;
  std::multimap<Clock::time_point, Waiting> waiting;
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
    waiting.swap(jobs_);
    thread.swap(thread_);
    changed_.notifyAll();
  }
  // Joined first, so that never two jobs are called at once; without the lock, which it needs.
  if (thread.joinable()) thread.join();
  for (const auto& [due, job] : waiting) job.call(Reason::kShutDown);
}

void TimerQueue::run() {
  while (true) {
    Waiting next;
    {
      const MutexLock lock(mutex_);
      while (!stopped_ && (jobs_.empty() || jobs_.begin()->first > Clock::now())) {
        if (jobs_.empty()) {
          changed_.wait(mutex_);
        } else {
          // A copy: a shutdown takes the jobs away while this waits.
          const Clock::time_point due = jobs_.begin()->first;
          changed_.waitUntil(mutex_, due);
        }
      }
      if (stopped_) return;  // also with jobs that are due: `shutdown` calls them
      next = std::move(jobs_.begin()->second);
      jobs_.erase(jobs_.begin());
    }
    next.call(Reason::kDue);  // without the lock: it may ask for another
  }
}

}  // namespace varo::platform
