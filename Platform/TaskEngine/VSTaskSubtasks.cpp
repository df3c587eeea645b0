// The part of VSTask that runs subtasks.

#include "Platform/TaskEngine/EngineErrors.h"
#include "Platform/TaskEngine/VSTask.h"
#include "Platform/TaskEngine/VSTaskChild.h"

#include <algorithm>
#include <new>
#include <utility>

namespace varo::platform {

void VSTask::addSubtask(const std::shared_ptr<VSTask>& subtask) {
  if (subtask == nullptr) return;
  const MutexLock lock(mutex_);
  children_.push_back(
      {.identity = subtask.get(), .resting = subtask, .running = {}, .dependencies = {}});
}

bool VSTask::addDependencyBetween(const std::shared_ptr<VSTask>& task1,
                                  const std::shared_ptr<VSTask>& andTask2, ErrorPtr* error) {
  {
    const MutexLock lock(mutex_);
    Child* dependent = childLocked(andTask2.get());
    if (dependent != nullptr && childLocked(task1.get()) != nullptr &&
        !dependsOnLocked(task1.get(), andTask2.get())) {
      dependent->dependencies.push_back(task1.get());
      return true;
    }
  }
  if (error != nullptr) {
    *error = engineError(*this, kInvalidDependency,
                         "The tasks are not both subtasks, or the dependency closes a circle");
  }
  return false;
}

/// Whether `dependent` is `task`, or waits for it through any number of dependencies.
bool VSTask::dependsOnLocked(const VSTask* dependent, const VSTask* task) const {
  std::vector<const VSTask*> open{dependent};
  for (std::size_t i = 0; i < open.size(); ++i) {
    if (open[i] == task) return true;
    for (const Child& child : children_) {
      if (child.identity != open[i]) continue;
      for (const VSTask* next : child.dependencies) {
        if (std::find(open.begin(), open.end(), next) == open.end()) open.push_back(next);
      }
    }
  }
  return false;
}

VSTask::Child* VSTask::childLocked(const VSTask* task) {
  const auto found = std::find_if(children_.begin(), children_.end(),
                                  [task](const Child& child) { return child.identity == task; });
  return found != children_.end() ? &*found : nullptr;
}

std::vector<std::shared_ptr<VSTask>> VSTask::restingSubtasks() const {
  const MutexLock lock(mutex_);
  std::vector<std::shared_ptr<VSTask>> resting;
  for (const Child& child : children_) {
    if (child.resting != nullptr) resting.push_back(child.resting);
  }
  return resting;
}

void VSTask::execute() {
  {
    const MutexLock lock(mutex_);
    for (Child& child : children_) {
      child.started = child.ended = false;
      // Left over from a run of this task that ended before it did: it is run anew.
      if (child.resting == nullptr) child.resting = child.running.lock();
    }
  }
  startFreeSubtasks();
}

void VSTask::startFreeSubtasks() {
  std::vector<std::pair<std::shared_ptr<VSTask>, std::vector<std::shared_ptr<VSTask>>>> free;
  bool allEnded = true;
  {
    const MutexLock lock(mutex_);
    // A pause is the subclass's business: what runs goes on here, and so does what it makes free.
    if (state_ != TaskState::Started && state_ != TaskState::Paused) return;
    for (Child& child : children_) {
      allEnded = allEnded && child.ended;
      if (child.started) continue;
      std::vector<std::shared_ptr<VSTask>> predecessors;
      for (const VSTask* dependency : child.dependencies) {
        const Child* predecessor = childLocked(dependency);
        if (predecessor->ended) predecessors.push_back(predecessor->resting);
      }
      if (predecessors.size() < child.dependencies.size()) continue;
      child.started = true;
      free.emplace_back(child.resting, std::move(predecessors));
    }
  }
  for (const auto& [subtask, predecessors] : free) {
    if (subtask == nullptr) {
      return raiseError(engineError(*this, kSubtaskGone, "A subtask was dropped while it ran"));
    }
    Dictionary input = inputContext();
    for (const auto& predecessor : predecessors) input.addEntries(predecessor->outputContext());
    runSubtask(subtask, std::move(input));
  }
  if (allEnded) setState(TaskState::Ended);
}

void VSTask::runSubtask(const std::shared_ptr<VSTask>& subtask, Dictionary input, Where where) {
  subtask->beginRunFor(shared_from_this(), std::move(input));
  {
    const MutexLock lock(mutex_);
    if (Child* child = childLocked(subtask.get())) {
      child->running = subtask;
      child->resting.reset();
    }
  }
  if (where == Where::kPool) return subtask->start();
  if (subtask->becomeStarted()) subtask->guarded([&subtask] { subtask->execute(); });
}

void VSTask::beginRunFor(std::shared_ptr<VSTask> runner, Dictionary input) {
  Array forgotten;  // destroyed after the lock is released
  _inputContext.replace(std::move(input));
  _outputContext.replace({});
  _errorContext.replace({});
  const MutexLock lock(mutex_);
  keepSpareLocked();
  std::swap(errors_, forgotten);
  state_ = TaskState::NotStarted;
  runner_.swap(runner);
  ++run_;
}

void VSTask::resumeSubtask(const std::shared_ptr<VSTask>& subtask) {
  guarded([&] { subtask->continueRunFor(shared_from_this()); });
}

void VSTask::continueRunFor(std::shared_ptr<VSTask> runner) {
  bool deliver = false;
  {
    const MutexLock lock(mutex_);
    if (state_ != TaskState::Started) {
      keepSpareLocked();
      deliver = enqueueLocked(state_, TaskState::Started, Memory::kNeeded);
      state_ = TaskState::Started;
    }
    runner_.swap(runner);  // the parameter goes after the lock
    ++run_;
  }
  if (deliver) scheduleDelivery();
}

void VSTask::restSubtask(const std::shared_ptr<VSTask>& subtask) {
  std::shared_ptr<VSTask> released;
  {
    const MutexLock lock(subtask->mutex_);
    released.swap(subtask->runner_);
    ++subtask->run_;
  }
  takeBack(subtask);
}

void VSTask::reportEndToRunner(std::uint64_t run, TaskState state) noexcept {
  std::shared_ptr<VSTask> runner;
  {
    const MutexLock lock(mutex_);
    if (run != run_) return;  // it has been started anew meanwhile
    runner = std::exchange(runner_, nullptr);
  }
  if (runner == nullptr) return;
  runner->takeBack(shared_from_this());
  runner->guarded([&] { runner->subtaskFinished(shared_from_this(), state); });
}

void VSTask::takeBack(const std::shared_ptr<VSTask>& subtask) noexcept {
  const MutexLock lock(mutex_);
  if (Child* child = childLocked(subtask.get())) child->resting = subtask;
}

void VSTask::subtaskFinished(const std::shared_ptr<VSTask>& subtask, TaskState state) {
  _outputContext.addEntries(subtask->outputContext());
  if (state != TaskState::Ended) return failWith(*subtask);
  {
    const MutexLock lock(mutex_);
    if (Child* child = childLocked(subtask.get())) child->ended = true;
  }
  startFreeSubtasks();
}

void VSTask::failWith(const VSTask& subtask) noexcept {
  try {
    _errorContext.addEntries(subtask.errorContext());
    Array raised;
    {
      const MutexLock lock(subtask.mutex_);
      raised = subtask.errors_;
    }
    record(raised);
    change(TaskState::Errored, Memory::kNeeded);
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
  }
}

}  // namespace varo::platform
