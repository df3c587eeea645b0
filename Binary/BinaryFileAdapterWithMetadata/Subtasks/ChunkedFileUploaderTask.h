#pragma once

#include "Platform/TaskEngine/VSAbstractLoopingTask.h"

namespace varo::binary {

/// The middle step of an upload: runs a `ChunkUploaderTask` chunk after chunk until the one just
/// sent was the last. A failed chunk ends it; nothing is retried.
class ChunkedFileUploaderTask final : public platform::VSAbstractLoopingTask {
 public:
  /// `error` is set, unless it is null, where the loop cannot be made.
  explicit ChunkedFileUploaderTask(platform::ErrorPtr* error = nullptr);

  [[nodiscard]] bool shouldIterate(platform::TaskState subTaskState) override;
  void transformInputContextForNextIteration() override;
  [[nodiscard]] bool treatErrorAsSuccess() override;
};

}  // namespace varo::binary
