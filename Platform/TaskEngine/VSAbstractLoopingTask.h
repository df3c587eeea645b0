#pragma once

#include "Platform/TaskEngine/VSTask.h"

#include <memory>

namespace varo::platform {

/// Runs one subtask again and again.
///
/// Each iteration hands the loop's input context to the subtask, which starts with a fresh state
/// and empty output. When it has ended, its output replaces what the previous iteration left in the
/// loop's output context, and `shouldIterate` decides; before the next iteration
/// `transformInputContextForNextIteration` updates the loop's input. Both run on threads that no
/// other kind of work needs, since they may sleep. A loop ends as Ended when it should not go on,
/// as Errored when the subtask failed and the error does not count as success.
class VSAbstractLoopingTask : public VSTask {
 public:
  /// `error` is set, unless it is null, when there is no subtask; the loop then ends as Errored
  /// with that error when it is started.
  VSAbstractLoopingTask(std::shared_ptr<VSTask> subTask, ErrorPtr* error);

  void execute() override;

  /// Asked after each run of the subtask, with the state it ended in. The base answers whether the
  /// loop may go on at all: it has not been ended from outside.
  [[nodiscard]] virtual bool shouldIterate(TaskState subTaskState);
  /// Called between two iterations. The base does nothing.
  virtual void transformInputContextForNextIteration();
  /// Whether a subtask that ended in Errored counts as a normal iteration. The base says no.
  [[nodiscard]] virtual bool treatErrorAsSuccess();

 protected:
  void subtaskFinished(const std::shared_ptr<VSTask>& subtask, TaskState state) override;

 private:
  void takeStep(const std::shared_ptr<VSTask>& subtask, TaskState state);
};

}  // namespace varo::platform
