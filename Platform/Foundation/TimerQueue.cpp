#include "Platform/Foundation/TimerQueue.h"

#include <algorithm>
#include <cstdio>
#include <exception>

namespace varo::platform {
namespace {

/// Longer delays would pass what the clock can count.
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24 * 365);

void call(const TimerQueue::Job& job, TimerQueue::Reason reason) noexcept {
  try {
    job(reason);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "varo: a timer's job threw: %s\n", exception.what());
  } catch (...) {
    std::fputs("varo: a timer's job threw\n", stderr);
  }
}

}  // namespace

TimerQueue::~TimerQueue() { shutdown(); }

TimerQueue::Token TimerQueue::after(std::chrono::milliseconds delay, Job job) {
  {
    const MutexLock lock(mutex_);
    if (!stopped_) {
      // First, since the system may refuse it: then nothing is queued.
      if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
      const Token token = nextToken_++;
      const Clock::time_point due = Clock::now() + std::min(delay, kLongestDelay);
      jobs_.emplace(std::pair(due, token), std::move(job));
      changed_.notifyOne();
      return token;
    }
  }
  call(job, Reason::kShutDown);
  return kNoToken;
}

bool TimerQueue::cancel(Token token) {
  Job dropped;  // destroyed after the lock is released
  const MutexLock lock(mutex_);
  const auto job = std::find_if(jobs_.begin(), jobs_.end(),
                                [token](const auto& entry) { return entry.first.second == token; });
  if (job == jobs_.end()) return false;
  dropped = std::move(job->second);
  jobs_.erase(job);
  return true;
}

void TimerQueue::shutdown() {
  std::thread thread;
  std::map<std::pair<Clock::time_point, Token>, Job> waiting;
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
    waiting.swap(jobs_);
    thread.swap(thread_);
    changed_.notifyAll();
  }
  if (thread.joinable()) thread.join();
  for (const auto& [due, job] : waiting) call(job, Reason::kShutDown);
}

void TimerQueue::run() {
  while (true) {
    Job job;
    {
      const MutexLock lock(mutex_);
      while (!stopped_ && (jobs_.empty() || jobs_.begin()->first.first > Clock::now())) {
        if (jobs_.empty()) {
          changed_.wait(mutex_);
        } else {
          const Clock::time_point due = jobs_.begin()->first.first;
          changed_.waitUntil(mutex_, due);
        }
      }
      if (stopped_) return;
      job = std::move(jobs_.begin()->second);
      jobs_.erase(jobs_.begin());
    }
    call(job, Reason::kDue);
  }
}

}  // namespace varo::platform
