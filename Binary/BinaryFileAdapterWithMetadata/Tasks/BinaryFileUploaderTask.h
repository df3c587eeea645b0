#pragma once

#include "Platform/TaskEngine/VSTask.h"

namespace varo::binary {

/// Uploads a file in three steps: creates its metadata record, sends its bytes chunk by chunk, and
/// commits. The steps report to the callback themselves.
///
/// Input: "url", "uploadParams" ("headers", "metadata", "file", "chunkSize"), "callback" and,
/// optional, "options".
class BinaryFileUploaderTask final : public platform::VSTask {
 public:
  BinaryFileUploaderTask();

 private:
  void setupSubtasks();
};

}  // namespace varo::binary
