#include "Binary/Binary/BinaryDataManager/WaitingBlocks.h"

#include "Binary/Binary/Utils/BlockCall.h"

#include <memory>

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;

namespace {

void callOne(const DownloadBlock& block, const std::string& blobId, const ErrorPtr& error,
             const std::optional<Dictionary>& result) {
  if (block) callBlock([&] { block(blobId, error, result); });
}

}  // namespace

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

void WaitingBlocks::call(const std::string& blobId, const ErrorPtr& error,
                         const std::optional<Dictionary>& result,
                         const ErrorPtr& pauseError) const {
  callOne(start, blobId, error, result);
  callOne(resume, blobId, error, result);
  callOne(pause, blobId, pauseError, pauseError == nullptr ? result : std::nullopt);
}

StepQueue::Effect answering(DownloadBlock& block, const std::string& blobId, const ErrorPtr& error,
                            const std::optional<Dictionary>& result) {
  const auto held = std::make_shared<DownloadBlock>();
  StepQueue::Effect effect = [held, blobId, error, result] {
    callOne(*held, blobId, error, result);
  };
  held->swap(block);
  return effect;
}

}  // namespace varo::binary
