#include "Binary/Binary/BinaryDataManager/DownloadScheduler.h"

#include "Binary/Binary/BinaryDataManager/DownloadAnswers.h"
#include "Binary/Binary/BinaryDataManager/DownloadRows.h"
#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::binary {

using platform::Dictionary;
using platform::Runtime;
using platform::TaskState;

namespace {

constexpr std::string_view kFire = " Fire %@ off!!";
constexpr std::string_view kPostProcessing =
    "Post processing task from finished queue for download task %@ . Calling the success callback.";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

}  // namespace

void DownloadScheduler::checkAndStartExecution(const TaskPtr& task) {
  logger().logTrace(kCheckingForEmptySlot);
  TaskPtr next = lists_.takeToStart(task);
  // The caller has looked whether its own file is there.
  fire(next == task ? next : firstWithoutFile(std::move(next)));
}

void DownloadScheduler::startNextScheduledTask() {
  if (!lists_.hasScheduled()) return;
  if (Runtime::shared().isShutDown()) return endScheduledTasks();
  logger().logTrace(kCheckingForEmptySlot);
  fire(firstWithoutFile(lists_.takeFirstToStart()));
}

DownloadScheduler::TaskPtr DownloadScheduler::firstWithoutFile(TaskPtr next) {
  while (next != nullptr && transferPolicy() == TransferPolicy::kSafe) {
    platform::ErrorPtr notAvailable;
    const auto available = DownloadRows::checkIfFileAvailableForTask(*next, &notAvailable);
    if (!available) break;
    lists_.removeFromInProgress(next);
    DownloadAnswers::answerEnd(*next, nullptr, available);
    next = lists_.takeFirstToStart();
  }
  return next;
}

void DownloadScheduler::endScheduledTasks() {
  const std::vector<TaskPtr> waiting = lists_.takeScheduled();
  for (const TaskPtr& task : waiting) DownloadAnswers::answerShutDown(*task);
}

void DownloadScheduler::fire(const TaskPtr& task) {
  if (task == nullptr) return;
  logger().logDebug(kFire, task->name());
  DownloadRows::limitOffsetToFile(*task);
  task->start();
  // An engine that was shut down meanwhile notifies nobody.
  if (task->state() == TaskState::Errored && Runtime::shared().isShutDown()) {
    downloadErrored(task, task->outputContext());
  }
}

void DownloadScheduler::downloadChanged(const TaskPtr& download, TaskState to,
                                        const Dictionary& output) {
  switch (to) {
    case TaskState::Started:
      DownloadRows::updateStateOfTask(*download, kDownloadStarted, output);
      return lists_.note(*download, to);
    case TaskState::Ended:
      return downloadEnded(download, output);
    case TaskState::Paused:
      return downloadPaused(download, output);
    case TaskState::Errored:
      return downloadErrored(download, output);
    case TaskState::NotStarted:
    case TaskState::Stopped:
      return;
  }
}

void DownloadScheduler::downloadEnded(const TaskPtr& task, const Dictionary& output) {
  lists_.moveToFinished(task);
  postProcess(task, output);
  DownloadAnswers::answerPauseAfterEnd(*task);
  startNextScheduledTask();
}

void DownloadScheduler::postProcess(const TaskPtr& task, const Dictionary& output) {
  logger().logTrace(kPostProcessing, task->name());
  DownloadRows::updateDBForTask(*task, output);
  task->releaseFile();
  lists_.removeFromFinished(task);
  lists_.note(*task, TaskState::Ended);
  DownloadAnswers::answerEnd(*task, nullptr, output);
}

void DownloadScheduler::downloadPaused(const TaskPtr& task, const Dictionary& output) {
  lists_.removeFromInProgress(task);
  DownloadRows::updateStateOfTask(*task, kDownloadPaused, output);
  lists_.note(*task, TaskState::Paused);
  DownloadAnswers::answerPause(*task, nullptr, output);
  if (transferPolicy() == TransferPolicy::kSafe) startNextScheduledTask();
}

void DownloadScheduler::downloadErrored(const TaskPtr& task, const Dictionary& output) {
  lists_.removeFromInProgress(task);
  DownloadRows::updateStateOfTask(*task, kDownloadErrored, output);
  const auto error = std::make_shared<const platform::Error>(
      std::string(kDownloadTaskError), kCodeDownloadTaskFailed, task->errorContext());
  lists_.note(*task, TaskState::Errored);
  DownloadAnswers::answerEnd(*task, error, std::nullopt);
  DownloadAnswers::answerPauseAfterEnd(*task);
  if (transferPolicy() == TransferPolicy::kSafe) startNextScheduledTask();
}

}  // namespace varo::binary
