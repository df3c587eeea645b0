#include "Binary/Binary/BinaryDataManager/WaitingBlocks.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"

#include <functional>
#include <memory>

namespace varo::binary {

void callDownloadBlock(const DownloadBlock& block, const std::optional<std::string>& blobId,
                       const ErrorPtr& error, const std::optional<Dictionary>& result) noexcept {
  const auto call = [&] { block(blobId, error, result); };
  if (block) callBlock(std::cref(call));
}

void WaitingBlocks::takeStartAndResume(DownloadTask& task) noexcept {
  start.swap(task.startDownloadTaskCompletionBlock);
  resume.swap(task.resumeDownloadTaskCompletionBlock);
}

void WaitingBlocks::takePause(DownloadTask& task) noexcept {
  pause.swap(task.pauseDownloadTaskCompletionBlock);
}

void WaitingBlocks::take(DownloadTask& task) noexcept {
  takeStartAndResume(task);
  takePause(task);
}

void WaitingBlocks::call(const std::optional<std::string>& blobId, const ErrorPtr& error,
                         const std::optional<Dictionary>& result,
                         const ErrorPtr& pauseError) const noexcept {
  callDownloadBlock(start, blobId, error, result);
  callDownloadBlock(resume, blobId, error, result);
  callDownloadBlock(pause, blobId, pauseError, pauseError == nullptr ? result : std::nullopt);
}

StepQueue::Effect answering(DownloadBlock& block, const std::string& blobId, const ErrorPtr& error,
                            const std::optional<Dictionary>& result) {
  const auto held = std::make_shared<DownloadBlock>();
  StepQueue::Effect effect = [held, id = std::optional(blobId), error, result] {
    callDownloadBlock(*held, id, error, result);
  };
  // Last, since all above may throw: the block is then still with its owner.
  held->swap(block);
  return effect;
}

}  // namespace varo::binary
