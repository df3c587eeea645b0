#include "Platform/TaskEngine/VSAbstractLoopingTask.h"

#include "Platform/Foundation/Runtime.h"
#include "Platform/TaskEngine/VSTaskError.h"

namespace varo::platform {
namespace {

constexpr std::string_view kLoopErrorDomain = "LoopingTask";
enum LoopErrorCode : std::int64_t {
  kNoSubtask = 1,
  kNoThreadForStep = 2,
};

ErrorPtr loopError(const VSTask& loop, LoopErrorCode code, std::string message) {
  return std::make_shared<const VSTaskError>(
      loop.ID(), loop.name(), std::string(kLoopErrorDomain), code,
      Dictionary{{std::string(kErrorMessageKey), std::move(message)}});
}

}  // namespace

VSAbstractLoopingTask::VSAbstractLoopingTask(std::shared_ptr<VSTask> subTask, ErrorPtr* error) {
  if (subTask != nullptr) {
    addSubtask(subTask);
  } else if (error != nullptr) {
    *error = loopError(*this, kNoSubtask, "A looping task needs a subtask");
  }
}

void VSAbstractLoopingTask::execute() {
  const auto subtasks = restingSubtasks();
  if (subtasks.empty()) {
    raiseError(loopError(*this, kNoSubtask, "A looping task needs a subtask"));
    return;
  }
  runSubtask(subtasks.front(), inputContext());
}

void VSAbstractLoopingTask::subtaskFinished(const std::shared_ptr<VSTask>& subtask,
                                            TaskState state) {
  _outputContext.replace(subtask->outputContext());
  const bool success =
      state == TaskState::Ended || (state == TaskState::Errored && treatErrorAsSuccess());
  if (!success) return failWith(*subtask);
  auto step = [self = self<VSAbstractLoopingTask>(), subtask, state] {
    self->guarded([&] { self->takeStep(subtask, state); });
  };
  if (!Runtime::shared().loopSteps().post(std::move(step))) {
    raiseError(loopError(*this, kNoThreadForStep, "The task engine has been shut down"));
  }
}

void VSAbstractLoopingTask::takeStep(const std::shared_ptr<VSTask>& subtask, TaskState state) {
  if (!shouldIterate(state)) {
    setState(TaskState::Ended);
    return;
  }
  transformInputContextForNextIteration();
  runSubtask(subtask, inputContext());
}

bool VSAbstractLoopingTask::shouldIterate(TaskState /*subTaskState*/) { return !isFinal(state()); }

void VSAbstractLoopingTask::transformInputContextForNextIteration() {}

bool VSAbstractLoopingTask::treatErrorAsSuccess() { return false; }

}  // namespace varo::platform
