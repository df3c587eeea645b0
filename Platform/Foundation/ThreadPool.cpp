#include "Platform/Foundation/ThreadPool.h"

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/LinkedQueue.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Sleeper.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <list>
#include <optional>
#include <thread>
#include <utility>

namespace varo::platform {
namespace {

using Steady = std::chrono::steady_clock;

/// A thread that has been at one job for this long is taken for blocked, and as often the pool
/// looks whether jobs wait. Long enough that most jobs which only compute do not count, short for a
/// person.
constexpr std::chrono::milliseconds kStallWindow{50};
/// A thread beyond the core that has been idle for this long leaves.
constexpr std::chrono::seconds kSurplusIdleTime{5};
/// How long jobs of a pool that shuts down may go on posting.
constexpr std::chrono::seconds kShutdownGrace{2};

template <typename Callable>
void runReporting(const Callable& callable) noexcept {
  try {
    callable();
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "varo: a job threw: %s\n", exception.what());
  } catch (...) {
    std::fputs("varo: a job threw\n", stderr);
  }
}

struct JobWork final : ThreadPool::Work {
  void run() override {
    // Destroyed here, not by whoever posted it and may let go last: a thread that the job's
    // captures own cannot be joined by itself.
    const ThreadPool::Job once = std::move(job);
    once();
  }
  ThreadPool::Job job;
};

}  // namespace

/// Shared by the pool, its threads and its timer job, whichever lives longest.
class ThreadPool::State : public std::enable_shared_from_this<State> {
 public:
  State(Options options, std::shared_ptr<Sleeper> waits, const Clock& clock)
      : options_(std::move(options)), waits_(std::move(waits)), clock_(clock) {}

  /// False, with nothing queued, where the pool refuses it. Needs no memory.
  [[nodiscard]] bool post(const std::shared_ptr<Work>& work) noexcept {
    bool wake = false;
    bool armMonitor = false;
    {
      const MutexLock lock(mutex_);
      if (refusesLocked()) return false;
      if (idle_ > 0) {
        // One wake-up a job: a thread that has been woken no longer counts as idle.
        --idle_;
        ++wakeUps_;
        wake = true;
      } else if (threadCount_ < options_.coreThreads && addThreadLocked()) {
        // The new thread takes the job.
      } else if (threadCount_ == 0) {
        return false;  // nobody would ever take it
      } else {
        armMonitor = !std::exchange(monitored_, true);
      }
      work->context = JobContext::current();
      work_.push(work);
    }
    // Outside the lock, which the woken thread needs at once.
    if (wake) changed_.notifyOne();
    if (armMonitor) scheduleCheck();
    return true;
  }

  void shutdown() {
    {
      const MutexLock lock(mutex_);
      if (!closing_) {
        closing_ = true;
        postsEnd_ = Steady::now() + kShutdownGrace;
      }
    }
    if (currentPool == this) return;
    const MutexLock joinLock(joinMutex_);
    std::list<Worker> workers;
    {
      const MutexLock lock(mutex_);
      while (!work_.empty() || busy_ > 0) idleAgain_.wait(mutex_);
      closed_ = true;
      wakeUps_ += idle_;
      idle_ = 0;
      changed_.notifyAll();
      workers.swap(workers_);
    }
    for (Worker& worker : workers) worker.thread.join();
  }

  [[nodiscard]] std::size_t threadCount() {
    const MutexLock lock(mutex_);
    return threadCount_;
  }

  /// The pool whose thread this is; null on other threads.
  static thread_local State* currentPool;

 private:
  /// One thread. Guarded by `mutex_`, except that joining needs no lock.
  struct Worker {
    std::thread thread;
    /// Since when it has been at its job; none between two.
    std::optional<Steady::time_point> busySince;
    /// It is about to end, and is joined when the next thread is added: so a long life does not
    /// collect threads that have left.
    bool hasLeft = false;
  };

  [[nodiscard]] bool refusesLocked() const VARO_REQUIRES(mutex_) {
    if (closed_) return true;
    return closing_ && (currentPool != this || Steady::now() > postsEnd_);
  }

  /// False where the system has no more threads or memory to give; the monitor tries again.
  bool addThreadLocked() noexcept VARO_REQUIRES(mutex_) {
    joinLeaversLocked();
    try {
      Worker& worker = workers_.emplace_back();
      try {
        worker.thread = std::thread([self = shared_from_this(), &worker] { self->run(worker); });
      } catch (const std::exception&) {
        workers_.pop_back();
        return false;
      }
    } catch (const std::exception&) {
      return false;
    }
    ++threadCount_;
    ++busy_;
    return true;
  }

  void joinLeaversLocked() VARO_REQUIRES(mutex_) {
    for (auto it = workers_.begin(); it != workers_.end();) {
      if (!it->hasLeft) {
        ++it;
        continue;
      }
      it->thread.join();
      it = workers_.erase(it);
    }
  }

  void run(Worker& worker) noexcept {
    currentPool = this;
    while (true) {
      std::shared_ptr<Work> work;
      JobContext::Ptr context;
      {
        const MutexLock lock(mutex_);
        worker.busySince.reset();
        if (work_.empty() && !waitForWorkLocked(worker)) break;
        if (work_.empty()) continue;
        work = work_.pop();
        context = std::move(work->context);
        worker.busySince = clock_.steadyNow();
      }
      const JobContext::Scope scope(std::move(context));
      runReporting([&work] { work->run(); });
    }
    currentPool = nullptr;
  }

  /// Waits as an idle thread. False when this thread is to leave; it is no longer busy then.
  bool waitForWorkLocked(Worker& worker) VARO_REQUIRES(mutex_) {
    --busy_;
    if (busy_ == 0) idleAgain_.notifyAll();
    if (closed_) return leaveLocked(worker);
    ++idle_;
    const Steady::time_point surplusAt = Steady::now() + kSurplusIdleTime;
    while (wakeUps_ == 0) {
      if (threadCount_ <= options_.coreThreads) {
        changed_.wait(mutex_);
      } else if (changed_.waitUntil(mutex_, surplusAt) == std::cv_status::timeout &&
                 wakeUps_ == 0 && threadCount_ > options_.coreThreads) {
        --idle_;
        return leaveLocked(worker);
      }
    }
    --wakeUps_;
    if (closed_) return leaveLocked(worker);
    ++busy_;
    return true;
  }

  bool leaveLocked(Worker& worker) VARO_REQUIRES(mutex_) {
    --threadCount_;
    worker.hasLeft = true;
    return false;
  }

  void scheduleCheck() noexcept {
    try {
      waits_->wakeAfter(kStallWindow, [weak = weak_from_this()](TimerQueue::Reason reason) {
        const auto self = weak.lock();
        if (self != nullptr && reason == TimerQueue::Reason::kDue) self->check();
      });
    } catch (const std::exception&) {
      // No memory or thread for the wait: a thread more at once, if there is one to be had, and a
      // later post tries again.
      const MutexLock lock(mutex_);
      monitored_ = false;
      if (!work_.empty() && idle_ == 0 && threadCount_ < options_.maxThreads) addThreadLocked();
    }
  }

  void check() noexcept {
    {
      const MutexLock lock(mutex_);
      monitored_ = !work_.empty() && !closed_;
      if (!monitored_) return;
      if (idle_ == 0) growLocked();
    }
    scheduleCheck();
  }

  /// Jobs wait: adds threads until `coreThreads` are not blocked.
  void growLocked() noexcept VARO_REQUIRES(mutex_) {
    const Steady::time_point blockedBefore = clock_.steadyNow() - kStallWindow;
    const auto blocked = static_cast<std::size_t>(
        std::count_if(workers_.begin(), workers_.end(), [blockedBefore](const Worker& worker) {
          return worker.busySince && *worker.busySince <= blockedBefore;
        }));
    const std::size_t wanted = std::min(blocked + options_.coreThreads, options_.maxThreads);
    for (std::size_t waiting = work_.size(); waiting > 0 && threadCount_ < wanted; --waiting) {
      if (!addThreadLocked()) break;
    }
  }

  const Options options_;
  const std::shared_ptr<Sleeper> waits_;
  const Clock& clock_;

  /// Makes concurrent calls of `shutdown` wait for each other; the pool's threads never take it.
  Mutex joinMutex_;

  Mutex mutex_;
  ConditionVariable changed_;
  ConditionVariable idleAgain_;
  LinkedQueue<Work> work_ VARO_GUARDED_BY(mutex_);
  /// A list: the threads refer to their entries.
  std::list<Worker> workers_ VARO_GUARDED_BY(mutex_);
  std::size_t threadCount_ VARO_GUARDED_BY(mutex_) = 0;
  /// Threads that wait and have not been woken; wake-ups that no thread has taken yet; all others.
  std::size_t idle_ VARO_GUARDED_BY(mutex_) = 0;
  std::size_t wakeUps_ VARO_GUARDED_BY(mutex_) = 0;
  std::size_t busy_ VARO_GUARDED_BY(mutex_) = 0;
  bool monitored_ VARO_GUARDED_BY(mutex_) = false;
  bool closing_ VARO_GUARDED_BY(mutex_) = false;
  bool closed_ VARO_GUARDED_BY(mutex_) = false;
  Steady::time_point postsEnd_ VARO_GUARDED_BY(mutex_);
};

thread_local ThreadPool::State* ThreadPool::State::currentPool = nullptr;

ThreadPool::ThreadPool(Options options, TimerQueue& timers)
    : ThreadPool(std::move(options), std::make_shared<TimerSleeper>(timers), Clock::system()) {}

ThreadPool::ThreadPool(Options options, std::shared_ptr<Sleeper> waits, const Clock& clock)
    : state_(std::make_shared<State>(std::move(options), std::move(waits), clock)) {}

ThreadPool::~ThreadPool() { shutdown(); }

bool ThreadPool::post(Job&& job) {
  const std::shared_ptr<State> state = state_;  // the job may be what the pool's owner waits for
  const auto work = std::make_shared<JobWork>();
  work->job = std::move(job);
  if (state->post(work)) return true;
  job = std::move(work->job);
  return false;
}

void ThreadPool::postOrRun(Job job) noexcept {
  try {
    if (post(std::move(job))) return;
  } catch (const std::bad_alloc&) {
    // It is as it was.
  }
  runHere(job);  // NOLINT(bugprone-use-after-move): a refused job is left as it was
}

void ThreadPool::postOrRun(std::shared_ptr<Work> work) noexcept {
  const std::shared_ptr<State> state = state_;
  if (!state->post(work)) runReporting([&work] { work->run(); });
}

void ThreadPool::runHere(const Job& job) noexcept { runReporting(job); }

void ThreadPool::shutdown() { state_->shutdown(); }

bool ThreadPool::runsInThisThread() const noexcept { return State::currentPool == state_.get(); }

std::size_t ThreadPool::threadCount() const { return state_->threadCount(); }

}  // namespace varo::platform
