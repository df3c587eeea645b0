#pragma once

#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>

namespace varo::binary {

/// Calls a block, which may be empty. Needs no memory, so the call cannot fail for lack of it.
void callDownloadBlock(const DownloadBlock& block, const std::optional<std::string>& blobId,
                       const platform::ErrorPtr& error,
                       const std::optional<platform::Dictionary>& result) noexcept;

/// The application's blocks that wait for an outcome of a download. A step takes them from the task
/// as its last action, when nothing can fail any more; an effect calls them. Each may be empty.
struct WaitingBlocks {
  DownloadBlock start, resume, pause;

  void takeStartAndResume(DownloadTask& task) noexcept;
  void takePause(DownloadTask& task) noexcept;
  void take(DownloadTask& task) noexcept;

  /// Calls those that were taken; the pause has `pauseError`, or the result where that is null.
  void call(const std::optional<std::string>& blobId, const platform::ErrorPtr& error,
            const std::optional<platform::Dictionary>& result,
            const platform::ErrorPtr& pauseError) const noexcept;
};

/// An effect that calls the block, which may be empty. The block is taken, so that it is called
/// only once, and taken last: if this function throws, the block is where it was.
[[nodiscard]] StepQueue::Effect answering(DownloadBlock& block, const std::string& blobId,
                                          const platform::ErrorPtr& error,
                                          const std::optional<platform::Dictionary>& result);

}  // namespace varo::binary
