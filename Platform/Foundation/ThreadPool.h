#pragma once

#include "Platform/Foundation/JobContext.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace varo::platform {

class Clock;
class Sleeper;
class TimerQueue;

/// Threads that run jobs in the order in which they were posted, several at a time.
///
/// How many threads there are:
/// - None before the first job, and at most `coreThreads` while jobs end promptly.
/// - Jobs may block (user callbacks do). A thread that has been at one job for 50 ms counts as
///   blocked. While jobs wait, the pool grows until `coreThreads` others work, so that blocked jobs
///   delay no others.
/// - Surplus threads leave when they have been idle for a while.
///
/// The queue has no bound of its own: each poster bounds what it has in the pool.
/// Thread-safe.
class ThreadPool {
 public:
  using Job = std::function<void()>;

  /// What runs again and again and must not be lost for lack of memory: queueing it needs none. A
  /// member or base of an object that `std::shared_ptr` owns; queued at most once at a time.
  class Work {
   public:
    Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    virtual ~Work() = default;

    virtual void run() = 0;

   private:
    template <typename T>
    friend class LinkedQueue;
    friend class ThreadPool;
    std::shared_ptr<Work> next;  // guarded by the pool's mutex
    JobContext::Ptr context;     // the same; that of the thread that queued it
  };

  struct Options {
    std::string name = "varo";
    std::size_t coreThreads = 4;
    std::size_t maxThreads = 512;
  };

  /// `timers` must outlive the pool's last job; it drives the growth.
  ThreadPool(Options options, TimerQueue& timers);
  /// With other waits and another clock, for tests. `clock` must outlive the pool's last job.
  ThreadPool(Options options, std::shared_ptr<Sleeper> waits, const Clock& clock);
  /// As `shutdown`.
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Queues `job`, to run in this thread's `JobContext`. False, with `job` left as it was, once the
  /// pool is shut down or where the system refuses it even its first thread. What a job throws is
  /// reported on standard error and goes no further. Throws `std::bad_alloc`, with `job` left as it
  /// was.
  [[nodiscard]] bool post(Job&& job);

  /// As `post`, but a job that the pool refuses, or that there is no memory for, runs on the
  /// calling thread: for what must not be lost. Never with a lock held.
  void postOrRun(Job job) noexcept;
  /// The same without the need for memory; the pool holds `work` until it has run.
  void postOrRun(std::shared_ptr<Work> work) noexcept;

  /// Runs `job` on this thread as a thread of the pool does: what it throws is reported on standard
  /// error and goes no further.
  static void runHere(const Job& job) noexcept;

  /// Runs what is queued and joins the threads. Jobs of the pool may go on posting for `grace`;
  /// later posts are refused. Waits for jobs that are running, so a job that never returns is
  /// waited for ever. Called from a job of this pool it refuses further posts and leaves the
  /// joining to the next call from elsewhere.
  void shutdown();

  /// Whether the calling thread is one of this pool's.
  [[nodiscard]] bool runsInThisThread() const noexcept;
  /// Threads that exist now.
  [[nodiscard]] std::size_t threadCount() const;

 private:
  class State;
  const std::shared_ptr<State> state_;
};

}  // namespace varo::platform
