#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/WorkQueue.h"

#include <deque>
#include <functional>
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
/// goes on. Thread-safe.
class StepQueue {
 public:
  using Effect = std::function<void()>;
  using Effects = std::vector<Effect>;

  explicit StepQueue(std::string label);

  /// Runs a step on the calling thread when its turn comes, then the effects that are due, on this
  /// thread unless another one is at them already; that one does these too. What the step throws
  /// reaches the caller; what an effect throws goes to `onThrow`, and the next one follows.
  void run(const std::function<Effects()>& step);

  /// Is told what an effect threw. Set before the first step.
  void setOnThrow(std::function<void(std::string_view what)> onThrow) {
    onThrow_ = std::move(onThrow);
  }

  /// The queue itself, for parts that make steps of their own.
  [[nodiscard]] const std::shared_ptr<platform::SerialQueue>& queue() const noexcept {
    return queue_;
  }

 private:
  void runEffects();
  void runEffect(const Effect& effect) const;
  [[nodiscard]] bool runsEffectsHere() const;

  const std::shared_ptr<platform::SerialQueue> queue_;
  std::function<void(std::string_view)> onThrow_;  // constant after the first step

  mutable platform::Mutex mutex_;
  std::deque<Effect> effects_ VARO_GUARDED_BY(mutex_);
  /// The thread that runs effects now.
  std::thread::id runner_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
