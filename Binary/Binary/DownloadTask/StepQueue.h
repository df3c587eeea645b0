#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/WorkQueue.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace varo::binary {

/// The one owner of something's state. Everything that happens to it is a step: steps run one at a
/// time, look only at the state, and return what is to be done about it as effects.
///
/// Effects (call a block, write a row, start a task) run when the step has left the queue, one at a
/// time and in the order of the steps. So whoever decides never waits for whoever acts, and an
/// effect may call anything, this queue included: its own step and effects are then done before it
/// goes on, behind those of earlier steps that wait. What a step makes a task tell its listeners,
/// they hear when the step has left the queue. Thread-safe.
class StepQueue {
 public:
  using Effect = std::function<void()>;
  using Effects = std::vector<Effect>;

  explicit StepQueue(std::string label);

  /// Runs a step on the calling thread when its turn comes, then the effects that are due, on this
  /// thread unless another one is at them already; that one does these too. From inside a step, the
  /// effects follow when that has left the queue. What the step throws reaches the caller, and so
  /// does `std::bad_alloc` before the step; what an effect throws goes to `onThrow`, and the next
  /// one follows. A step that throws has changed nothing, or its maker says what is to become of
  /// it: no effect follows.
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
