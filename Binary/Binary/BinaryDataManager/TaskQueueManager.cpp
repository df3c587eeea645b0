#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"

#include "Binary/Binary/BinaryLogger.h"

#include <algorithm>
#include <utility>

namespace varo::binary {

using platform::MutexLock;
using platform::VSTask;

namespace {

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

void start(VSTask& task) {
  logger().logDebug(kStartDownload, task.name());
  task.start();
}

}  // namespace

// What an operation takes out of a list is held by the operation's own variable or the caller's
// argument, so that it is destroyed after the lock is released.

void TaskQueueManager::addTask(const TaskPtr& task, const std::string& withKey) {
  if (task == nullptr) return;
  TaskPtr replaced;
  const MutexLock lock(mutex_);
  replaced = registerLocked(task, withKey);
}

TaskQueueManager::TaskPtr TaskQueueManager::registerLocked(const TaskPtr& task,
                                                           const std::string& key) {
  return std::exchange(tasks[key], task);
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
  if (!tasks.contains(task->name()) || places_.contains(task.get())) return;
  places_.emplace(task.get(), schedulingQueue.insert(schedulingQueue.end(), task));
}

TaskQueueManager::TaskPtr TaskQueueManager::getNextScheduledTask() const {
  const MutexLock lock(mutex_);
  return schedulingQueue.empty() ? nullptr : schedulingQueue.front();
}

void TaskQueueManager::addTaskToInProgressQueue(const TaskPtr& task) {
  if (task == nullptr) return;
  const MutexLock lock(mutex_);
  moveToInProgressLocked(task);
}

void TaskQueueManager::moveToInProgressLocked(const TaskPtr& task) {
  const auto place = places_.find(task.get());
  const bool isScheduled = place != places_.end();
  const bool isInBoth = isScheduled && std::find(inProgressQueue.begin(), inProgressQueue.end(),
                                                 task) != inProgressQueue.end();
  if (!tasks.contains(task->name()) || isInBoth) return;
  inProgressQueue.push_back(task);
  if (!isScheduled) return;
  schedulingQueue.erase(place->second);
  places_.erase(place);
}

bool TaskQueueManager::removeTaskFromInProgressQueue(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  return std::erase(inProgressQueue, task) != 0;
}

std::size_t TaskQueueManager::getInProgressQueueLength() const {
  const MutexLock lock(mutex_);
  return inProgressQueue.size();
}

/// Whether it is to be started, for which it was moved.
bool TaskQueueManager::takeIfRoomLocked(const TaskPtr& task) {
  if (inProgressQueue.size() >= static_cast<std::size_t>(MAX_PARALLEL_JOBS)) return false;
  moveToInProgressLocked(task);
  return true;
}

void TaskQueueManager::checkAndStartExecution(const TaskPtr& task) {
  if (task == nullptr) return;
  logger().logDebug(kCheckingForEmptySlot);
  {
    const MutexLock lock(mutex_);
    if (!takeIfRoomLocked(task)) return;
  }
  start(*task);
}

TaskQueueManager::TaskPtr TaskQueueManager::startNextScheduledTask() {
  if (getNextScheduledTask() == nullptr) return nullptr;
  logger().logDebug(kCheckingForEmptySlot);
  TaskPtr next;
  {
    const MutexLock lock(mutex_);
    // Another thread may have been faster.
    if (schedulingQueue.empty()) return nullptr;
    next = schedulingQueue.front();
    if (!takeIfRoomLocked(next)) return nullptr;
  }
  start(*next);
  return next;
}

void TaskQueueManager::addTaskAndCheckStartExecution(const TaskPtr& task,
                                                     const std::string& withIdentifier) {
  if (task == nullptr) return;
  logger().logDebug(kCheckingForEmptySlot);
  TaskPtr replaced;
  {
    const MutexLock lock(mutex_);
    replaced = registerLocked(task, withIdentifier);
    scheduleLocked(task);
    if (!takeIfRoomLocked(task)) return;
  }
  start(*task);
}

}  // namespace varo::binary
