#pragma once

#include "Platform/Foundation/Sleeper.h"
#include "Platform/TaskEngine/VSTask.h"

#include <chrono>
#include <memory>

namespace varo::platform {

/// Runs one subtask again and again.
///
/// Each iteration hands the loop's input context to the subtask, which starts with a fresh state
/// and empty output. When it has ended, its output replaces what the previous iteration left in the
/// loop's output context, and `shouldIterate` decides; before the next iteration
/// `transformInputContextForNextIteration` updates the loop's input. Both, and the next execution
/// of the subtask, run on the engine thread that delivered the end of the last one: an iteration
/// costs one hand-over between threads. A step that wants to wait asks for it with
/// `sleepBeforeNextIteration`; one that blocks nevertheless holds up nobody else, since the pool
/// grows. A loop ends as Ended when it should not go on, as Errored when the subtask failed and the
/// error does not count as success, and as Errored, too, once the runtime has been shut down.
class VSAbstractLoopingTask : public VSTask {
 public:
  /// `error` is set, unless it is null, when there is no subtask; the loop then ends as Errored
  /// with that error when it is started. `sleeper` must outlive the loop.
  VSAbstractLoopingTask(const std::shared_ptr<VSTask>& subTask, ErrorPtr* error,
                        Sleeper& sleeper = Sleeper::shared());

  void execute() override;

  /// Asked after each run of the subtask, with the state it ended in. The base answers whether the
  /// loop may go on at all: it has not been ended from outside.
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
