#pragma once

#include "Platform/TaskEngine/VSTask.h"

#include <memory>

namespace varo::binary {

/// Uploads a file in three steps: creates its metadata record, sends its bytes chunk by chunk, and
/// commits. The steps report to the callback themselves.
///
/// Input: "url", "uploadParams" ("headers", "metadata", "file", "chunkSize"), "callback" and,
/// optional, "options".
class BinaryFileUploaderTask final : public platform::VSTask {
 public:
  /// `place` is kept as long as the task is; null: it needs none.
  explicit BinaryFileUploaderTask(std::shared_ptr<void> place = nullptr);

 private:
  void setupSubtasks();

  const std::shared_ptr<void> place_;
};

}  // namespace varo::binary
