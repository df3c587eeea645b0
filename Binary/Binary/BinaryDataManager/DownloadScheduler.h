#pragma once

#include "Binary/Binary/BinaryDataManager/DownloadLists.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

namespace varo::binary {

/// Starts downloads when there is room, and draws the consequences of what becomes of them: in the
/// lists, then in the table, then towards the application, then for those that wait. Thread-safe.
class DownloadScheduler {
 public:
  using TaskPtr = DownloadLists::TaskPtr;

  /// `lists` must outlive the scheduler.
  explicit DownloadScheduler(DownloadLists& lists) : lists_(lists) {}

  /// Starts the scheduled task if there is room.
  void checkAndStartExecution(const TaskPtr& task);
  /// Answers those that wait: after the runtime's shutdown none of them can start.
  void endScheduledTasks();
  /// Hears of a change of state, with the output of that moment. The calls for one task come one at
  /// a time and in order.
  void downloadChanged(const TaskPtr& download, platform::TaskState to,
                       const platform::Dictionary& output);

 private:
  void downloadEnded(const TaskPtr& task, const platform::Dictionary& output);
  void postProcess(const TaskPtr& task, const platform::Dictionary& output);
  void downloadPaused(const TaskPtr& task, const platform::Dictionary& output);
  void downloadErrored(const TaskPtr& task, const platform::Dictionary& output);
  void startNextScheduledTask();
  /// `next`, which has waited, or, under `TransferPolicy::kSafe`, the first of those behind it
  /// whose file has not come meanwhile; the others are answered. Both may be null.
  [[nodiscard]] TaskPtr firstWithoutFile(TaskPtr next);
  /// `task` may be null.
  void fire(const TaskPtr& task);

  DownloadLists& lists_;
};

}  // namespace varo::binary
