#pragma once

#include "Binary/Binary/BinaryDataManager/BoundedQueue.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace varo::binary {

class BlobDownload;

/// The downloads of blobs that wait and the few that run at once; starts one when there is a place
/// for it. Nothing is called with its lock held. Thread-safe.
class DownloadPlaces {
 public:
  using DownloadPtr = std::shared_ptr<BlobDownload>;

  /// At most `places` downloads run at once.
  explicit DownloadPlaces(std::size_t places) : queue_(places) {}

  /// Puts the download behind those that wait, and starts it if there is a place. After the
  /// runtime's shutdown does what `endScheduledTasks` does instead.
  void schedule(const DownloadPtr& download);
  /// Starts the one that has waited longest, if there is a place.
  void startNextScheduledTask();
  /// Gives back one place of the download. It may hold a second one, got in the meantime.
  void giveBack(const DownloadPtr& download) { (void)queue_.removeOneFromRunning(download); }
  /// Removes the download from those that wait and those that run.
  void leave(const DownloadPtr& download) { (void)queue_.remove(download); }

  /// Whether a download of this blob has a place.
  [[nodiscard]] bool isTaskInProgress(const std::string& blobId) const;
  [[nodiscard]] std::vector<DownloadPtr> running() const { return queue_.runningItems(); }
  /// Empties the list of those that wait.
  [[nodiscard]] std::vector<DownloadPtr> takeAllWaiting() { return queue_.takeAllWaiting(); }
  /// Tells all downloads that wait of the runtime's shutdown: none of them can start any more.
  void endScheduledTasks();

 private:
  BoundedQueue<BlobDownload> queue_;
};

}  // namespace varo::binary
