#pragma once

#include <cstdint>
#include <memory>
#include <utility>

namespace varo::platform {

class VSTask;

/// The task that runs a task, and the number of the run.
///
/// - Lifetimes: a running task holds its runner, and a runner holds its subtasks only while they
///   rest. So a tree has no circle: it lives as long as what its running tasks wait for, and is
///   freed when that is dropped.
/// - The end of a run is delivered later, mostly on another thread. Its number tells whether the
/// task
///   has been started anew meanwhile: the late report of one run is not taken for the next's.
///
/// Not thread-safe: the mutex of the task that is run guards it. Whatever it hands over may be a
/// last reference: let it go after the lock.
class TaskRunner {
 public:
  static constexpr std::uint64_t kNoRun = 0;

  /// A new run, for `runner`; a null one takes the task out of its run. Returns the former.
  [[nodiscard]] std::shared_ptr<VSTask> begin(std::shared_ptr<VSTask> runner) noexcept {
    ++run_;
    return std::exchange(runner_, std::move(runner));
  }
  /// The run that the end of the task would end, or `kNoRun`.
  [[nodiscard]] std::uint64_t current() const noexcept {
    return runner_ != nullptr ? run_ : kNoRun;
  }
  /// Whom to tell that `run` has ended, once. Null where another run has begun, or none was.
  [[nodiscard]] std::shared_ptr<VSTask> end(std::uint64_t run) noexcept {
    return run == run_ ? std::exchange(runner_, nullptr) : nullptr;
  }

 private:
  std::shared_ptr<VSTask> runner_;
  std::uint64_t run_ = kNoRun;
};

}  // namespace varo::platform
