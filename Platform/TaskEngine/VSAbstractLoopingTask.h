#pragma once

#include "Platform/Foundation/Sleeper.h"
#include "Platform/TaskEngine/VSTask.h"

#include <chrono>
#include <memory>

namespace varo::platform {

/// Runs one subtask again and again.
///
/// An iteration:
/// 1. The subtask gets the loop's input context, and starts with a fresh state and empty output.
/// 2. When it has ended, its output replaces what the previous iteration left in the loop's output
///    context.
/// 3. `shouldIterate` decides whether another iteration follows.
/// 4. If so, `transformInputContextForNextIteration` updates the loop's input.
///
/// Threads: 3, 4 and the next 1 run on the engine thread that delivered the end of the subtask, so
/// an iteration costs one hand-over between threads, or none (`DeliveryHold`). A step that wants to
/// wait asks for it with `sleepBeforeNextIteration`. One that blocks nevertheless holds up nobody
/// else: the pool grows.
///
/// A loop ends as
/// - Ended when no other iteration should follow;
/// - Errored when the subtask failed and `treatErrorAsSuccess` says no;
/// - Errored once the runtime has been shut down.
class VSAbstractLoopingTask : public VSTask {
 public:
  /// `error` is set, unless it is null, when there is no subtask; the loop then ends as Errored
  /// with that error when it is started. `sleeper` must outlive the loop.
  VSAbstractLoopingTask(const std::shared_ptr<VSTask>& subTask, ErrorPtr* error,
                        Sleeper& sleeper = Sleeper::shared());

  void execute() override;

  /// Asked after each run of the subtask, with the state it ended in. The base says yes unless the
  /// loop has been ended from outside.
  [[nodiscard]] virtual bool shouldIterate(TaskState subTaskState);
  /// Called between two iterations; may ask for a pause with `sleepBeforeNextIteration`. The base
  /// does nothing.
  virtual void transformInputContextForNextIteration();
  /// Whether a subtask that ended in Errored counts as a normal iteration. The base says no.
  [[nodiscard]] virtual bool treatErrorAsSuccess();

 protected:
  void subtaskFinished(const std::shared_ptr<VSTask>& subtask, TaskState state) override;

  /// Only from `transformInputContextForNextIteration`: the next iteration starts after `delay`. No
  /// thread is held meanwhile and nothing happens in the loop; a shutdown ends it with an error.
  void sleepBeforeNextIteration(std::chrono::milliseconds delay) { delay_ = delay; }

 private:
  void takeStep(const std::shared_ptr<VSTask>& subtask, TaskState state);
  void sleepThenIterate(const std::shared_ptr<VSTask>& subtask);
  void iterate(const std::shared_ptr<VSTask>& subtask);

  Sleeper& sleeper_;
  // Touched by the loop's steps only, which follow one another.
  std::chrono::milliseconds delay_{0};
};

}  // namespace varo::platform
