#pragma once

#include "Binary/Binary/BinaryDataManager/BoundedQueue.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace varo::binary {

/// How many tasks of one `TaskQueueManager` run at once.
inline constexpr std::int32_t MAX_PARALLEL_JOBS = 5;

/// Starts tasks in the order in which they were scheduled, at most `MAX_PARALLEL_JOBS` at once.
///
/// It does not watch the tasks. For each task its owner
/// 1. subscribes to it;
/// 2. hands it over with `addTaskAndCheckStartExecution`, the task's name as the identifier;
/// 3. calls `removeTaskFromInProgressQueue`, `removeKey` and `startNextScheduledTask` at its end.
///
/// Tasks are held until they are removed, and compared by identity. Unknown keys, unknown tasks and
/// null are ignored.
///
/// Thread-safe. Each operation changes the lists atomically. It starts tasks and logs only after
/// that, so every operation may also be called from a task's listener or a log sink.
class TaskQueueManager {
 public:
  using TaskPtr = std::shared_ptr<platform::VSTask>;

  /// Registers the task, in place of one under the same key.
  void addTask(const TaskPtr& task, const std::string& withKey);
  /// Forgets the key and nothing else.
  void removeKey(const std::string& key);
  [[nodiscard]] bool containsKey(const std::string& key) const;
  /// Null for an unknown key.
  [[nodiscard]] TaskPtr get(const std::string& key) const;

  /// Puts the task behind those that wait, if its name is a registered key and it does not wait
  /// already.
  void addToScheduledQueue(const TaskPtr& task);
  /// The task that has waited longest, which stays where it is; null when none waits.
  [[nodiscard]] TaskPtr getNextScheduledTask() const;

  /// Moves a task whose name is a registered key to those in progress. A task that is in progress
  /// already gets a second entry.
  void addTaskToInProgressQueue(const TaskPtr& task);
  /// Removes all entries of the task, which stays registered. True if it was in progress, so only
  /// one of several callers gets true.
  bool removeTaskFromInProgressQueue(const TaskPtr& task);
  /// How many entries are in progress; a task that was entered twice counts twice.
  [[nodiscard]] std::size_t getInProgressQueueLength() const;

  /// If fewer than `MAX_PARALLEL_JOBS` are in progress, moves the task to them and starts it;
  /// otherwise leaves it where it is. A task that is not registered is started without being moved.
  void checkAndStartExecution(const TaskPtr& task);
  /// `checkAndStartExecution` with the task that has waited longest, if one waits. Returns the task
  /// that was started, or null.
  TaskPtr startNextScheduledTask();
  /// `addTask`, `addToScheduledQueue` and `checkAndStartExecution` in one.
  void addTaskAndCheckStartExecution(const TaskPtr& task, const std::string& withIdentifier);

 private:
  void registerLocked(TaskPtr& task, const std::string& key) VARO_REQUIRES(mutex_);
  void scheduleLocked(const TaskPtr& task) VARO_REQUIRES(mutex_);
  void moveToInProgressLocked(const TaskPtr& task) VARO_REQUIRES(mutex_);
  [[nodiscard]] bool takeIfRoomLocked(const TaskPtr& task) VARO_REQUIRES(mutex_);

  /// Nothing is started, logged or destroyed under it. Operations that consist of others use their
  /// `...Locked` parts, so it need not be recursive.
  mutable platform::Mutex mutex_;
  /// Tasks that wait ("schedulingQueue") and tasks that were started and not yet removed
  /// ("inProgressQueue"). Changed under `mutex_` only, so that a decision still holds when it is
  /// carried out.
  BoundedQueue<platform::VSTask> queue_ VARO_GUARDED_BY(mutex_){MAX_PARALLEL_JOBS};
  /// The registered tasks.
  std::unordered_map<std::string, TaskPtr> tasks VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
