#pragma once

#include "Platform/TaskEngine/VSTask.h"

#include <string>

namespace varo::binary {

/// Downloads a file in two steps: looks up its record, then fetches the bytes into the downloads
/// directory. Its name is the file's identifier. Who starts it listens for the outcome; only a
/// failed look-up reports to the callback as well.
///
/// Input: "url", "filter", "headers", "callback", "queryParamsForDownload" and, optional,
/// "options". Output: "file_name", "filePath" and what the look-up left.
class BinaryFileDownloaderTask final : public platform::VSTask {
 public:
  explicit BinaryFileDownloaderTask(const std::string& fileId);

 private:
  void setupSubtasks(const std::string& fileId);
};

}  // namespace varo::binary
