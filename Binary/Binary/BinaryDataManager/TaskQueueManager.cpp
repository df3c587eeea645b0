#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"

#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/SourceNames.h"

#include <utility>

namespace varo::binary {
namespace {

/// Never under the lock: a task may end at once, and its listener comes back to the queue.
void start(VSTask& task) {
  logger().logDebug(log_texts::kStartDownload, task.name());
  task.start();
}

}  // namespace

// What an operation takes out of a list is held by the operation's own variable or the caller's
// argument, so that it is destroyed after the lock is released.

void TaskQueueManager::addTask(const TaskPtr& task, const std::string& withKey) {
  if (task == nullptr) return;
  TaskPtr registered = task;
  const MutexLock lock(mutex_);
  registerLocked(registered, withKey);
}

/// What was registered under the key is in `task` afterwards.
void TaskQueueManager::registerLocked(TaskPtr& task, const std::string& key) {
  std::swap(tasks[key], task);
}

void TaskQueueManager::removeKey(const std::string& key) {
  decltype(tasks)::node_type removed;
  const MutexLock lock(mutex_);
  removed = tasks.extract(key);
}

bool TaskQueueManager::containsKey(const std::string& key) const {
  const MutexLock lock(mutex_);
  return tasks.contains(key);
}

TaskQueueManager::TaskPtr TaskQueueManager::get(const std::string& key) const {
  const MutexLock lock(mutex_);
  const auto found = tasks.find(key);
  return found != tasks.end() ? found->second : nullptr;
}

void TaskQueueManager::addToScheduledQueue(const TaskPtr& task) {
  if (task == nullptr) return;
  const MutexLock lock(mutex_);
  scheduleLocked(task);
}

void TaskQueueManager::scheduleLocked(const TaskPtr& task) {
  if (tasks.contains(task->name())) queue_.schedule(task);
}

TaskQueueManager::TaskPtr TaskQueueManager::getNextScheduledTask() const {
  const MutexLock lock(mutex_);
  return queue_.firstWaiting();
}

void TaskQueueManager::addTaskToInProgressQueue(const TaskPtr& task) {
  if (task == nullptr) return;
  const MutexLock lock(mutex_);
  moveToInProgressLocked(task);
}

void TaskQueueManager::moveToInProgressLocked(const TaskPtr& task) {
  const bool isInBoth = queue_.isWaiting(task) && queue_.isRunning(task);
  if (tasks.contains(task->name()) && !isInBoth) queue_.enterRunning(task);
}

bool TaskQueueManager::removeTaskFromInProgressQueue(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  return queue_.removeFromRunning(task);
}

std::size_t TaskQueueManager::getInProgressQueueLength() const {
  const MutexLock lock(mutex_);
  return queue_.running();
}

/// Whether it is to be started, for which it was moved.
bool TaskQueueManager::takeIfRoomLocked(const TaskPtr& task) {
  if (!queue_.hasPlace()) return false;
  moveToInProgressLocked(task);
  return true;
}

void TaskQueueManager::checkAndStartExecution(const TaskPtr& task) {
  if (task == nullptr) return;
  logger().logDebug(log_texts::kCheckingForEmptySlot);
  {
    const MutexLock lock(mutex_);
    if (!takeIfRoomLocked(task)) return;
  }
  start(*task);
}

TaskQueueManager::TaskPtr TaskQueueManager::startNextScheduledTask() {
  if (getNextScheduledTask() == nullptr) return nullptr;
  logger().logDebug(log_texts::kCheckingForEmptySlot);
  TaskPtr next;
  {
    const MutexLock lock(mutex_);
    // Another thread may have been faster.
    next = queue_.firstWaiting();
    if (next == nullptr || !takeIfRoomLocked(next)) return nullptr;
  }
  start(*next);
  return next;
}

void TaskQueueManager::addTaskAndCheckStartExecution(const TaskPtr& task,
                                                     const std::string& withIdentifier) {
  if (task == nullptr) return;
  logger().logDebug(log_texts::kCheckingForEmptySlot);
  TaskPtr registered = task;
  {
    // Under one lock: once the task waits, another thread could take it and start it as well.
    const MutexLock lock(mutex_);
    registerLocked(registered, withIdentifier);
    scheduleLocked(task);
    if (!takeIfRoomLocked(task)) return;
  }
  start(*task);
}

}  // namespace varo::binary
