#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace varo::platform {

class TimerQueue;

/// Threads that run jobs in the order in which they were posted, several at a time.
///
/// The pool starts no thread before the first job and keeps at most `coreThreads` while jobs end
/// promptly. Jobs may block (user callbacks do): when every thread is busy and none has taken a job
/// for 50 ms, the pool grows, so that blocked jobs delay no others; surplus threads leave
/// when they have been idle for a while.
///
/// The queue has no bound of its own: each poster bounds what it has in the pool.
/// Thread-safe.
class ThreadPool {
 public:
  using Job = std::function<void()>;
  struct Options {
    std::string name = "varo";
    std::size_t coreThreads = 4;
    std::size_t maxThreads = 512;
  };

  /// `timers` must outlive the pool's last job; it drives the growth.
  ThreadPool(Options options, TimerQueue& timers);
  /// As `shutdown`.
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Queues `job`. False, with `job` left as it was, once the pool is shut down or where the system
  /// refuses it even its first thread. What a job throws is reported on standard error and goes no
  /// further.
  [[nodiscard]] bool post(Job&& job);

  /// As `post`, but a job that the pool refuses runs on the calling thread: for what must not be
  /// lost. Never with a lock held.
  void postOrRun(Job job);

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
