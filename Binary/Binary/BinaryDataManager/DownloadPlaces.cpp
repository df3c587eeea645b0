#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"

#include "Binary/Binary/BinaryDataManager/BlobDownload.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"
#include "Binary/Binary/SourceNames.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>

namespace varo::binary {

void DownloadPlaces::schedule(const DownloadPtr& download) {
  // Enters before it asks for the shutdown: one that comes in between finds the download here.
  (void)queue_.schedule(download);
  if (platform::Runtime::shared().isShutDown()) return endScheduledTasks();
  logger().logTrace(log_texts::kCheckingForEmptySlot);
  if (queue_.takeToStart(download)) download->begin();
}

void DownloadPlaces::startNextScheduledTask() {
  if (queue_.waiting() == 0) return;
  if (platform::Runtime::shared().isShutDown()) return endScheduledTasks();
  logger().logTrace(log_texts::kCheckingForEmptySlot);
  const DownloadPtr next = queue_.takeFirstToStart();
  if (next == nullptr) return;
  // On a thread of its own: a row of downloads that end at once is no recursion.
  platform::Runtime::shared().pool().postOrRun([next] { next->begin(); });
}

bool DownloadPlaces::isTaskInProgress(const std::string& blobId) const {
  const auto all = queue_.runningItems();
  return std::any_of(all.begin(), all.end(),
                     [&blobId](const DownloadPtr& each) { return each->blobId() == blobId; });
}

void DownloadPlaces::endScheduledTasks() {
  for (const DownloadPtr& download : takeAllWaiting()) download->shutDown();
}

}  // namespace varo::binary
