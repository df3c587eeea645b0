#include "Platform/TaskEngine/VSAbstractLoopingTask.h"

#include "Platform/Foundation/Runtime.h"
#include "Platform/TaskEngine/VSTaskError.h"

namespace varo::platform {
namespace {

constexpr std::string_view kLoopErrorDomain = "LoopingTask";
enum LoopErrorCode : std::int64_t {
  kNoSubtask = 1,
  kLoopShutDown = 2,
};

ErrorPtr loopError(const VSTask& loop, LoopErrorCode code, std::string message) {
  return std::make_shared<const VSTaskError>(
      loop.ID(), loop.name(), std::string(kLoopErrorDomain), code,
      Dictionary{{std::string(kErrorMessageKey), std::move(message)}});
}

ErrorPtr shutDownError(const VSTask& loop) {
  return loopError(loop, kLoopShutDown, "The task engine has been shut down");
}

}  // namespace

VSAbstractLoopingTask::VSAbstractLoopingTask(const std::shared_ptr<VSTask>& subTask,
                                             ErrorPtr* error, Sleeper& sleeper)
    : sleeper_(sleeper) {
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
  takeStep(subtask, state);
}

void VSAbstractLoopingTask::takeStep(const std::shared_ptr<VSTask>& subtask, TaskState state) {
  if (!shouldIterate(state)) {
    setState(TaskState::Ended);
    return;
  }
  delay_ = std::chrono::milliseconds(0);  // each pause is asked for anew
  transformInputContextForNextIteration();
  if (delay_.count() > 0) {
    sleepThenIterate(subtask);
  } else {
    iterate(subtask);
  }
}

void VSAbstractLoopingTask::sleepThenIterate(const std::shared_ptr<VSTask>& subtask) {
  // The timer's thread only hands over: an iteration may take long, and all timers share it. The
  // function keeps the loop alive while nothing else does.
  auto wake = [self = self<VSAbstractLoopingTask>(), subtask](TimerQueue::Reason reason) {
    self->guarded([&] {
      ThreadPool::Job job = [self, subtask] { self->guarded([&] { self->iterate(subtask); }); };
      const bool goesOn = reason == TimerQueue::Reason::kDue;
      if (goesOn && Runtime::shared().pool().post(std::move(job))) return;
      self->raiseError(shutDownError(*self));
    });
  };
  sleeper_.wakeAfter(delay_, std::move(wake));
}

/// A loop that was ended from outside while it slept stays ended.
void VSAbstractLoopingTask::iterate(const std::shared_ptr<VSTask>& subtask) {
  if (isFinal(state())) return;
  if (Runtime::shared().isShutDown()) return raiseError(shutDownError(*this));
  // On this thread: handing each execution to another one costs more than many a step.
  runSubtask(subtask, inputContext(), Where::kHere);
}

bool VSAbstractLoopingTask::shouldIterate(TaskState /*subTaskState*/) { return !isFinal(state()); }

void VSAbstractLoopingTask::transformInputContextForNextIteration() {}

bool VSAbstractLoopingTask::treatErrorAsSuccess() { return false; }

}  // namespace varo::platform
