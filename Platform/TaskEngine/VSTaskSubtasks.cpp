// The part of VSTask that runs subtasks.

#include "Platform/TaskEngine/EngineErrors.h"
#include "Platform/TaskEngine/VSTask.h"

#include <new>
#include <utility>

namespace varo::platform {

void VSTask::addSubtask(const std::shared_ptr<VSTask>& subtask) {
  if (subtask == nullptr) return;
  const MutexLock lock(mutex_);
  subtasks_.add(subtask);
}

bool VSTask::addDependencyBetween(const std::shared_ptr<VSTask>& task1,
                                  const std::shared_ptr<VSTask>& andTask2, ErrorPtr* error) {
  {
    const MutexLock lock(mutex_);
    if (subtasks_.addDependency(task1.get(), andTask2.get())) return true;
  }
  if (error != nullptr) {
    *error = engineError(*this, kInvalidDependency,
                         "The tasks are not both subtasks, or the dependency closes a circle");
  }
  return false;
}

std::vector<std::shared_ptr<VSTask>> VSTask::restingSubtasks() const {
  const MutexLock lock(mutex_);
  return subtasks_.resting();
}

void VSTask::execute() {
  {
    const MutexLock lock(mutex_);
    subtasks_.beginRun();
  }
  startFreeSubtasks();
}

void VSTask::startFreeSubtasks() {
  Subtasks::Next next;
  {
    const MutexLock lock(mutex_);
    // A pause is the subclass's business: what runs goes on here, and so does what it makes free.
    if (state_ != TaskState::Started && state_ != TaskState::Paused) return;
    next = subtasks_.takeFree();
  }
  // Without the lock: after the shutdown a subtask ends right here, and reports it to this task.
  for (const auto& [subtask, predecessors] : next.free) {
    if (subtask == nullptr) {
      return raiseError(engineError(*this, kSubtaskGone, "A subtask was dropped while it ran"));
    }
    Dictionary input = inputContext();
    for (const auto& predecessor : predecessors) input.addEntries(predecessor->outputContext());
    runSubtask(subtask, std::move(input));
  }
  // Also of a task without subtasks, which has nothing to wait for.
  if (next.allEnded) setState(TaskState::Ended);
}

void VSTask::runSubtask(const std::shared_ptr<VSTask>& subtask, Dictionary input, Where where) {
  // Before it is let go: from here on it keeps this task alive, and this one no longer keeps it.
  subtask->beginRunFor(shared_from_this(), std::move(input));
  {
    const MutexLock lock(mutex_);
    subtasks_.setRunning(subtask);
  }
  if (where == Where::kPool) return subtask->start();
  if (subtask->becomeStarted()) subtask->guarded([&subtask] { subtask->execute(); });
}

void VSTask::beginRunFor(std::shared_ptr<VSTask> runner, Dictionary input) {
  Array forgotten;  // these two are destroyed after the lock is released
  std::shared_ptr<VSTask> former;
  _inputContext.replace(std::move(input));
  _outputContext.replace({});
  _errorContext.replace({});
  const MutexLock lock(mutex_);
  notifications_.keepSpare();
  std::swap(errors_, forgotten);
  state_ = TaskState::NotStarted;  // nobody is told: its parent, who runs it, knows
  former = runner_.begin(std::move(runner));
}

void VSTask::resumeSubtask(const std::shared_ptr<VSTask>& subtask) {
  guarded([&] { subtask->continueRunFor(shared_from_this()); });
}

void VSTask::continueRunFor(std::shared_ptr<VSTask> runner) {
  std::shared_ptr<VSTask> former;  // destroyed after the lock is released
  bool deliver = false;
  {
    const MutexLock lock(mutex_);
    if (state_ != TaskState::Started) {
      notifications_.keepSpare();
      deliver = notifyLocked(state_, TaskState::Started, Memory::kNeeded);
      state_ = TaskState::Started;
    }
    former = runner_.begin(std::move(runner));
  }
  if (deliver) scheduleDelivery();
}

void VSTask::restSubtask(const std::shared_ptr<VSTask>& subtask) {
  std::shared_ptr<VSTask> released;  // after the lock
  {
    const MutexLock lock(subtask->mutex_);
    released = subtask->runner_.begin(nullptr);
  }
  takeBack(subtask);
}

void VSTask::reportEndToRunner(std::uint64_t run, TaskState state) noexcept {
  std::shared_ptr<VSTask> runner;
  {
    const MutexLock lock(mutex_);
    runner = runner_.end(run);
  }
  if (runner == nullptr) return;
  // First, so that the step may run this task again.
  runner->takeBack(shared_from_this());
  runner->guarded([&] { runner->subtaskFinished(shared_from_this(), state); });
}

void VSTask::takeBack(const std::shared_ptr<VSTask>& subtask) noexcept {
  const MutexLock lock(mutex_);
  subtasks_.setResting(subtask);
}

void VSTask::subtaskFinished(const std::shared_ptr<VSTask>& subtask, TaskState state) {
  _outputContext.addEntries(subtask->outputContext());
  if (state != TaskState::Ended) return failWith(*subtask);
  {
    const MutexLock lock(mutex_);
    subtasks_.setEnded(subtask.get());
  }
  startFreeSubtasks();
}

void VSTask::failWith(const VSTask& subtask) noexcept {
  try {
    _errorContext.addEntries(subtask.errorContext());
    Array raised;
    {
      const MutexLock lock(subtask.mutex_);
      // Copied first, so that never two tasks' locks are held at once.
      raised = subtask.errors_;
    }
    record(raised);
    change(TaskState::Errored, Memory::kNeeded);
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
  }
}

}  // namespace varo::platform
