#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/WorkQueue.h"

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
/// goes on. What a step makes a task tell its listeners, they hear when the step has left the
/// queue. Thread-safe.
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
  void runEffects() noexcept;
  void runAll(Effects& effects) const noexcept;
  void runEffect(const Effect& effect) const noexcept;
  void tell(std::string_view what) const noexcept;
  [[nodiscard]] bool runsEffectsHere() const;

  platform::SerialQueue queue_;
  std::function<void(std::string_view)> onThrow_;  // constant after the first step

  mutable platform::Mutex mutex_;
  /// Those of each step together.
  std::list<Effects> effects_ VARO_GUARDED_BY(mutex_);
  /// The thread that runs effects now.
  std::thread::id runner_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
