#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/WorkQueue.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

namespace varo::binary {

/// The one owner of a state. Everything that happens to the state is a step:
/// - Steps run one at a time and look at nothing but the state.
/// - A step returns what has to be done as effects: call a block, write a row, start a task.
/// - Effects run after the step has left the queue, one at a time, in the order of their steps. So
///   no step waits for an effect, and an effect may call anything, this queue included.
/// - An effect that calls `run` goes on when that step and its effects, and those of earlier steps
///   that still wait, are done.
/// - Listeners hear of what a step makes a task do after the step has left the queue.
///
/// Thread-safe.
class StepQueue {
 public:
  using Effect = std::function<void()>;
  using Effects = std::vector<Effect>;

  /// `label` as for `platform::SerialQueue`.
  explicit StepQueue(const char* label);

  /// Runs a step on the calling thread when its turn comes, then the effects that are due.
  /// - If another thread runs effects already, it runs these too.
  /// - Called from inside a step, the effects run after that step has left the queue.
  /// - What the step throws reaches the caller, and so does `std::bad_alloc` before the step. No
  ///   effect follows then, so the step must not have changed anything that needs one.
  /// - What an effect throws goes to `onThrow`; the next effect follows.
  void run(const std::function<Effects()>& step);

  /// Is told what an effect threw. Set before the first step.
  void setOnThrow(std::function<void(std::string_view what)> onThrow) {
    onThrow_ = std::move(onThrow);
  }

 private:
  /// What one step has returned.
  struct Batch {
    std::uint64_t number = 0;
    Effects effects;
  };

  void runEffects(std::uint64_t own) noexcept;
  void runAll(Effects& effects) const noexcept;
  void runEffect(const Effect& effect) const noexcept;
  void tell(std::string_view what) const noexcept;

  platform::SerialQueue queue_;
  std::function<void(std::string_view)> onThrow_;  // constant after the first step

  platform::Mutex mutex_;
  /// Those that nobody has begun with, in the order of their steps.
  std::list<Batch> batches_ VARO_GUARDED_BY(mutex_);
  std::uint64_t lastNumber_ VARO_GUARDED_BY(mutex_) = 0;
  /// The thread that runs effects now.
  std::thread::id runner_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
