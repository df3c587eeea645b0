#include "Platform/Foundation/ThreadPool.h"

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/TimerQueue.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <exception>
#include <thread>
#include <vector>

namespace varo::platform {
namespace {

using Clock = std::chrono::steady_clock;

/// Every thread busy and no job taken for this long means that jobs block: time for another thread.
/// Long enough that jobs which only compute do not grow the pool, short for a person.
constexpr std::chrono::milliseconds kStallWindow{50};
/// Threads added at each such moment, so that many blocked jobs are not paid for one by one.
constexpr std::size_t kGrowthStep = 4;
/// A thread beyond the core that has been idle for this long leaves.
constexpr std::chrono::seconds kSurplusIdleTime{5};
/// How long jobs of a pool that shuts down may go on posting.
constexpr std::chrono::seconds kShutdownGrace{2};

void runJob(const ThreadPool::Job& job) noexcept {
  try {
    job();
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "varo: a job threw: %s\n", exception.what());
  } catch (...) {
    std::fputs("varo: a job threw\n", stderr);
  }
}

}  // namespace

/// Shared by the pool, its threads and its timer job, whichever lives longest.
class ThreadPool::State : public std::enable_shared_from_this<State> {
 public:
  State(Options options, TimerQueue& timers) : options_(std::move(options)), timers_(timers) {}

  bool post(Job&& job) {
    bool wake = false;
    bool armMonitor = false;
    {
      const MutexLock lock(mutex_);
      if (refusesLocked()) return false;
      jobs_.push_back(std::move(job));
      if (idle_ > 0) {
        // One wake-up a job: a thread that has been woken no longer counts as idle.
        --idle_;
        ++wakeUps_;
        wake = true;
      } else if (threadCount_ < options_.coreThreads && addThreadLocked()) {
        // The new thread takes the job.
      } else if (threadCount_ == 0) {
        // Nobody would ever take it.
        job = std::move(jobs_.back());
        jobs_.pop_back();
        return false;
      } else if (!monitored_) {
        monitored_ = armMonitor = true;
        takenAtLastCheck_ = taken_;
      }
    }
    // Outside the lock, which the woken thread needs at once.
    if (wake) work_.notifyOne();
    if (armMonitor) scheduleCheck();
    return true;
  }

  void shutdown() {
    {
      const MutexLock lock(mutex_);
      if (!closing_) {
        closing_ = true;
        postsEnd_ = Clock::now() + kShutdownGrace;
      }
    }
    if (currentPool == this) return;
    const MutexLock joinLock(joinMutex_);
    std::vector<std::thread> threads;
    {
      const MutexLock lock(mutex_);
      while (!jobs_.empty() || busy_ > 0) idleAgain_.wait(mutex_);
      closed_ = true;
      wakeUps_ += idle_;
      idle_ = 0;
      work_.notifyAll();
      threads.swap(threads_);
    }
    for (std::thread& thread : threads) thread.join();
  }

  [[nodiscard]] std::size_t threadCount() {
    const MutexLock lock(mutex_);
    return threadCount_;
  }

  /// The pool whose thread this is; null on other threads.
  static thread_local State* currentPool;

 private:
  [[nodiscard]] bool refusesLocked() const VARO_REQUIRES(mutex_) {
    if (closed_) return true;
    return closing_ && (currentPool != this || Clock::now() > postsEnd_);
  }

  /// False where the system has no more threads to give; the monitor tries again.
  bool addThreadLocked() VARO_REQUIRES(mutex_) {
    joinLeaversLocked();
    try {
      threads_.emplace_back([self = shared_from_this()] { self->run(); });
    } catch (const std::exception&) {
      return false;
    }
    ++threadCount_;
    ++busy_;
    return true;
  }

  void joinLeaversLocked() VARO_REQUIRES(mutex_) {
    for (auto it = threads_.begin(); it != threads_.end();) {
      const auto leaver = std::find(leavers_.begin(), leavers_.end(), it->get_id());
      if (leaver == leavers_.end()) {
        ++it;
        continue;
      }
      leavers_.erase(leaver);
      it->join();
      it = threads_.erase(it);
    }
  }

  void run() {
    currentPool = this;
    while (true) {
      Job job;
      {
        const MutexLock lock(mutex_);
        if (jobs_.empty() && !waitForWorkLocked()) break;
        if (jobs_.empty()) continue;
        job = std::move(jobs_.front());
        jobs_.pop_front();
        ++taken_;
      }
      runJob(job);
    }
    currentPool = nullptr;
  }

  /// Waits as an idle thread. False when this thread is to leave; it is no longer busy then.
  bool waitForWorkLocked() VARO_REQUIRES(mutex_) {
    --busy_;
    if (busy_ == 0) idleAgain_.notifyAll();
    if (closed_) return leaveLocked();
    ++idle_;
    const Clock::time_point surplusAt = Clock::now() + kSurplusIdleTime;
    while (wakeUps_ == 0) {
      if (threadCount_ <= options_.coreThreads) {
        work_.wait(mutex_);
      } else if (work_.waitUntil(mutex_, surplusAt) == std::cv_status::timeout && wakeUps_ == 0 &&
                 threadCount_ > options_.coreThreads) {
        --idle_;
        return leaveLocked();
      }
    }
    --wakeUps_;
    if (closed_) return leaveLocked();
    ++busy_;
    return true;
  }

  bool leaveLocked() VARO_REQUIRES(mutex_) {
    --threadCount_;
    leavers_.push_back(std::this_thread::get_id());
    return false;
  }

  void scheduleCheck() {
    try {
      timers_.after(kStallWindow, [weak = weak_from_this()](TimerQueue::Reason reason) {
        const auto self = weak.lock();
        if (self != nullptr && reason == TimerQueue::Reason::kDue) self->check();
      });
    } catch (const std::exception&) {
      // No thread for the timers either: the threads that there are go on, and a later post tries
      // again.
      const MutexLock lock(mutex_);
      monitored_ = false;
    }
  }

  /// Adds threads when the busy ones have taken no job since the last check.
  void check() {
    {
      const MutexLock lock(mutex_);
      monitored_ = !jobs_.empty() && !closed_;
      if (!monitored_) return;
      if (taken_ == takenAtLastCheck_ && idle_ == 0) {
        for (std::size_t i = 0; i < kGrowthStep && i < jobs_.size(); ++i) {
          if (threadCount_ < options_.maxThreads && !addThreadLocked()) break;
        }
      }
      takenAtLastCheck_ = taken_;
    }
    scheduleCheck();
  }

  const Options options_;
  TimerQueue& timers_;

  /// Makes concurrent calls of `shutdown` wait for each other; the pool's threads never take it.
  Mutex joinMutex_;

  Mutex mutex_;
  ConditionVariable work_;
  ConditionVariable idleAgain_;
  std::deque<Job> jobs_ VARO_GUARDED_BY(mutex_);
  std::vector<std::thread> threads_ VARO_GUARDED_BY(mutex_);
  /// Threads that have left and are not joined yet, so that a long life does not collect them.
  std::vector<std::thread::id> leavers_ VARO_GUARDED_BY(mutex_);
  std::size_t threadCount_ VARO_GUARDED_BY(mutex_) = 0;
  /// Threads that wait and have not been woken; wake-ups that no thread has taken yet; all others.
  std::size_t idle_ VARO_GUARDED_BY(mutex_) = 0;
  std::size_t wakeUps_ VARO_GUARDED_BY(mutex_) = 0;
  std::size_t busy_ VARO_GUARDED_BY(mutex_) = 0;
  std::uint64_t taken_ VARO_GUARDED_BY(mutex_) = 0;
  std::uint64_t takenAtLastCheck_ VARO_GUARDED_BY(mutex_) = 0;
  bool monitored_ VARO_GUARDED_BY(mutex_) = false;
  bool closing_ VARO_GUARDED_BY(mutex_) = false;
  bool closed_ VARO_GUARDED_BY(mutex_) = false;
  Clock::time_point postsEnd_ VARO_GUARDED_BY(mutex_);
};

thread_local ThreadPool::State* ThreadPool::State::currentPool = nullptr;

ThreadPool::ThreadPool(Options options, TimerQueue& timers)
    : state_(std::make_shared<State>(std::move(options), timers)) {}

ThreadPool::~ThreadPool() { shutdown(); }

bool ThreadPool::post(Job&& job) {
  const std::shared_ptr<State> state = state_;  // the job may be what the pool's owner waits for
  return state->post(std::move(job));
}

void ThreadPool::postOrRun(Job job) {
  if (!post(std::move(job))) runJob(job);  // a refused job is left as it was
}

void ThreadPool::shutdown() { state_->shutdown(); }

bool ThreadPool::runsInThisThread() const noexcept { return State::currentPool == state_.get(); }

std::size_t ThreadPool::threadCount() const { return state_->threadCount(); }

}  // namespace varo::platform
