#pragma once

#include "Platform/Foundation/ThreadPool.h"

#include <functional>
#include <memory>
#include <new>
#include <utility>

namespace varo::platform {

/// Runs jobs one at a time, in the order in which they were submitted, on threads of a pool.
///
/// Jobs that are queued when the object goes away are still run. An exception that leaves a job of
/// `async` is reported on standard error; one that leaves a job of `sync` reaches the caller.
/// Once the pool is shut down, or where there is no memory to queue a job, it runs on the
/// submitting thread when its turn comes, so that none is lost: never submit with a lock held.
/// Thread-safe.
class SerialQueue {
 public:
  using Job = std::function<void()>;

  /// `label` is for whoever looks at the queue in a debugger, and has to outlive it.
  explicit SerialQueue(const char* label);
  SerialQueue(const char* label, ThreadPool& pool);

  /// Submits a job and returns at once.
  void async(Job job) noexcept;
  /// The same of a function that there may be no memory to make a job of.
  template <typename Function>
  void async(Function function) noexcept {
    try {
      async(Job(std::move(function)));
    } catch (const std::bad_alloc&) {
      sync([job = Job(std::ref(function))] { ThreadPool::runHere(job); });
    }
  }

  /// Submits a job and returns when it has run. It runs on the calling thread when its turn comes,
  /// so waiting never needs a free thread of the pool. Called from a job of this queue, it runs the
  /// new job at once: waiting for its turn would never end.
  void sync(const Job& job);
  template <typename Function>
  void sync(const Function& function) {
    sync(Job(std::cref(function)));
  }

  /// Whether the calling thread is running a job of this queue.
  [[nodiscard]] bool runsInThisThread() const noexcept;

 private:
  class State;
  const std::shared_ptr<State> state_;
};

/// Runs jobs as soon as a thread of the pool is free, in no particular order and several at a time.
/// After the pool's shutdown and without memory, as `SerialQueue`. Thread-safe.
class ConcurrentQueue {
 public:
  using Job = std::function<void()>;

  /// `label` as for `SerialQueue`.
  explicit ConcurrentQueue(const char* label);
  ConcurrentQueue(const char* label, ThreadPool& pool);

  void async(Job job) noexcept;

 private:
  [[maybe_unused]] const char* const label_;
  ThreadPool& pool_;
};

}  // namespace varo::platform
