#pragma once

#include "Platform/TaskEngine/VSTask.h"

#include <atomic>
#include <memory>
#include <string>

namespace varo::binary {

class ChunkedFileDownloaderTask;

/// Downloads a file in two steps: looks up its record, then fetches the bytes into the downloads
/// directory. Its name is the file's identifier. Who starts it listens for the outcome; only a
/// failed look-up reports to the callback as well.
///
/// Input: "url", "filter", "headers", "callback", "queryParamsForDownload" and, optional,
/// "options". Output: "file_name", "filePath" and what the look-up left.
class BinaryFileDownloaderTask final : public platform::VSTask {
 public:
  explicit BinaryFileDownloaderTask(const std::string& fileId);

  void execute() override;

  /// Whether nobody has taken the end of this download to report it yet.
  [[nodiscard]] bool takeEnd() noexcept { return !endTaken_.exchange(true); }

 private:
  void setupSubtasks(const std::string& fileId);

  /// Weak, since a running subtask holds its parent. While it rests, this task's list of subtasks
  /// holds it.
  std::weak_ptr<ChunkedFileDownloaderTask> downloader_;
  std::atomic<bool> endTaken_{false};
};

}  // namespace varo::binary
