#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"

#include <new>
#include <string_view>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::binary_callback;

constexpr char kCallbackQueue[] = "BinaryCallbackExecutionQueue";
constexpr char kProgressQueue[] = "BinaryProgressCallbackExecutionQueue";

}  // namespace

BinaryCallback::BinaryCallback()
    : blocks_(std::make_shared<Blocks>()), _binaryCallbackExecutionQueue(kCallbackQueue) {}

void BinaryCallback::setSuccessCallback(BinaryBlock successCallback) {
  blocks_->success = std::move(successCallback);
}

void BinaryCallback::setFailureCallback(BinaryBlock failureCallback) {
  blocks_->failure = std::move(failureCallback);
}

void BinaryCallback::setProgressCallback(BinaryBlock progressCallback) {
  blocks_->progress = std::move(progressCallback);
}

void BinaryCallback::setWhenEnded(std::function<void()> whenEnded) {
  whenEnded_ = std::move(whenEnded);
}

bool BinaryCallback::noteEnd() {
  // An exchange and no look before a write: failure and cancellation may come at the same time.
  if (endNoted_.exchange(true)) return false;
  if (whenEnded_) whenEnded_();
  return true;
}

void BinaryCallback::executeWithCallback(CallbackType callbackType, const Value& result) {
  switch (callbackType) {
    case CallbackType::kSuccess:
      return executeSuccessWithResult(result);
    case CallbackType::kFailure:
      return executeFailureWithError(result);
    case CallbackType::kProgress:
      return executeProgressWithCurrentStatus(result);
  }
  logger().logWarning(texts::kTypeNotFound);
}

void BinaryCallback::executeSuccessWithResult(const Value& result) {
  noteEnd();
  if (!blocks_->success) return logger().logWarning(texts::kSuccessNotDefined);
  if (result.isMissing()) logger().logWarning(texts::kNoResult);
  submit(blocks_->success, result);
}

void BinaryCallback::executeFailureWithError(const Value& error) {
  noteEnd();
  if (!blocks_->failure) return logger().logWarning(texts::kFailureNotDefined);
  if (error.isMissing()) logger().logWarning(texts::kNoError);
  submit(blocks_->failure, error);
}

void BinaryCallback::executeProgressWithCurrentStatus(const Value& status) {
  if (!blocks_->progress) return logger().logWarning(texts::kProgressNotDefined);
  if (status.isMissing()) return logger().logWarning(texts::kNoProgress);
  std::call_once(hasProgressQueue_,
                 [this] { _binaryProgressCallbackExecutionQueue.emplace(kProgressQueue); });
  // The caller waits, so that a slow block slows its own transfer and no reports pile up.
  _binaryProgressCallbackExecutionQueue->sync([&]() { run(blocks_->progress, status); });
}

std::string BinaryCallback::description() const { return "BinaryCallback"; }

void BinaryCallback::submit(const BinaryBlock& block, const Value& value) {
  try {
    _binaryCallbackExecutionQueue.async([blocks = blocks_, &block, value]() { run(block, value); });
  } catch (const std::bad_alloc&) {
    run(block, value);  // an end that is not told is worse than one that is told here
  }
}

void BinaryCallback::run(const BinaryBlock& block, const Value& value) {
  callBlock([&] { block(value); });
}

}  // namespace varo::binary
