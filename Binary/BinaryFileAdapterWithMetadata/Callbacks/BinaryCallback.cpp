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

constexpr std::string_view kCallbackQueue = "BinaryCallbackExecutionQueue";
constexpr std::string_view kProgressQueue = "BinaryProgressCallbackExecutionQueue";

std::shared_ptr<const BinaryBlock> shared(BinaryBlock block) {
  return block ? std::make_shared<const BinaryBlock>(std::move(block)) : nullptr;
}

}  // namespace

BinaryCallback::BinaryCallback()
    : _binaryCallbackExecutionQueue(std::string(kCallbackQueue)),
      _binaryProgressCallbackExecutionQueue(std::string(kProgressQueue)) {}

void BinaryCallback::setSuccessCallback(BinaryBlock successCallback) {
  _successCallback = shared(std::move(successCallback));
}

void BinaryCallback::setFailureCallback(BinaryBlock failureCallback) {
  _failureCallback = shared(std::move(failureCallback));
}

void BinaryCallback::setProgressCallback(BinaryBlock progressCallback) {
  _progressCallback = shared(std::move(progressCallback));
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
  if (_successCallback == nullptr) return logger().logWarning(texts::kSuccessNotDefined);
  if (result.isMissing()) logger().logWarning(texts::kNoResult);
  submit(_successCallback, result);
}

void BinaryCallback::executeFailureWithError(const Value& error) {
  noteEnd();
  if (_failureCallback == nullptr) return logger().logWarning(texts::kFailureNotDefined);
  if (error.isMissing()) logger().logWarning(texts::kNoError);
  submit(_failureCallback, error);
}

void BinaryCallback::executeProgressWithCurrentStatus(const Value& status) {
  if (_progressCallback == nullptr) return logger().logWarning(texts::kProgressNotDefined);
  if (status.isMissing()) return logger().logWarning(texts::kNoProgress);
  // The caller waits, so that a slow block slows its own transfer and no reports pile up.
  _binaryProgressCallbackExecutionQueue.sync([&]() { run(*_progressCallback, status); });
}

std::string BinaryCallback::description() const { return "BinaryCallback"; }

void BinaryCallback::submit(const SharedBlock& block, const Value& value) {
  try {
    _binaryCallbackExecutionQueue.async([block, value]() { run(*block, value); });
  } catch (const std::bad_alloc&) {
    run(*block, value);  // an end that is not told is worse than one that is told here
  }
}

void BinaryCallback::run(const BinaryBlock& block, const Value& value) {
  callBlock([&] { block(value); });
}

}  // namespace varo::binary
