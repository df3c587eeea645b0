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
/// It does not watch them. Its owner subscribes to each task, hands it over with
/// `addTaskAndCheckStartExecution` (the task's name as the identifier), and when the task has come
/// to its end calls `removeTaskFromInProgressQueue`, `removeKey` and `startNextScheduledTask`.
///
/// Tasks are held until they are removed; the lists tell them apart by identity. Nothing fails: an
/// unknown key or task, and a null one, is ignored. Thread-safe; what an operation does to the
/// lists is atomic, and a task is started and logged about after that, so that all of them may also
/// be called from a task's listener or a log's sink.
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

  /// Moves a task whose name is a registered key to those in progress. One that is among them and
  /// does not wait is entered once more.
  void addTaskToInProgressQueue(const TaskPtr& task);
  /// Removes all entries of the task. It stays registered. Whether it was in progress: of several
  /// callers one is told so.
  bool removeTaskFromInProgressQueue(const TaskPtr& task);
  /// How many entries are in progress; a task that was entered twice counts twice.
  [[nodiscard]] std::size_t getInProgressQueueLength() const;

  /// Starts the task and moves it to those in progress while these are fewer than
  /// `MAX_PARALLEL_JOBS`; else leaves it where it is. Also starts a task that is not registered,
  /// without moving it.
  void checkAndStartExecution(const TaskPtr& task);
  /// `checkAndStartExecution` with the task that has waited longest, if one waits. While there is
  /// no room for it, none of the others starts. The task that was started, or null.
  TaskPtr startNextScheduledTask();
  /// `addTask`, `addToScheduledQueue` and `checkAndStartExecution` in one.
  void addTaskAndCheckStartExecution(const TaskPtr& task, const std::string& withIdentifier);

 private:
  void registerLocked(TaskPtr& task, const std::string& key) VARO_REQUIRES(mutex_);
  void scheduleLocked(const TaskPtr& task) VARO_REQUIRES(mutex_);
  void moveToInProgressLocked(const TaskPtr& task) VARO_REQUIRES(mutex_);
  [[nodiscard]] bool takeIfRoomLocked(const TaskPtr& task) VARO_REQUIRES(mutex_);

  /// Under it nothing is started, logged or destroyed. The operations that consist of others use
  /// their `...Locked` parts, so it need not be recursive.
  mutable platform::Mutex mutex_;
  /// Tasks that wait ("schedulingQueue") and tasks that were started and not yet removed
  /// ("inProgressQueue"). Changed under `mutex_` alone: what is decided upon holds until it is
  /// done.
  BoundedQueue<platform::VSTask> queue_ VARO_GUARDED_BY(mutex_){MAX_PARALLEL_JOBS};
  /// The registered tasks.
  std::unordered_map<std::string, TaskPtr> tasks VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
