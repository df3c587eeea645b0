#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"

#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::binary_callback_utils;

/// The block, or one that logs `whenCalled`, after a warning that there is none.
BinaryBlock orStandBy(BinaryBlock block, std::string_view notDefined, std::string_view whenCalled) {
  if (block) return block;
  logger().logWarning(notDefined);
  return [whenCalled](const Value& value) { logger().logWarning(whenCalled, value); };
}

}  // namespace

std::shared_ptr<BinaryCallback> BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(
    BinaryBlock onSuccess, BinaryBlock onFailure, BinaryBlock onProgress) {
  auto callback = std::make_shared<BinaryCallback>();
  callback->setSuccessCallback(
      orStandBy(std::move(onSuccess), texts::kSuccessNotDefined, texts::kSuccessNotProvided));
  callback->setFailureCallback(
      orStandBy(std::move(onFailure), texts::kFailureNotDefined, texts::kFailureNotProvided));
  callback->setProgressCallback(
      orStandBy(std::move(onProgress), texts::kProgressNotDefined, texts::kProgressNotProvided));
  return callback;
}

void BinaryCallbackUtils::executeSuccessCallback(const std::shared_ptr<BinaryCallback>& callback,
                                                 const Value& withResult) {
  if (callback != nullptr) callback->executeWithCallback(CallbackType::kSuccess, withResult);
}

void BinaryCallbackUtils::executeFailureCallback(const std::shared_ptr<BinaryCallback>& callback,
                                                 const ErrorPtr& withError) {
  if (callback == nullptr) return;
  Dictionary failure;
  if (withError != nullptr) {
    failure = {
        {keys::kCode, std::to_string(withError->code())},
        {keys::kLocalizedDescription, withError->userInfo()[platform::kLocalizedDescriptionKey]},
        {keys::kDomain, withError->domain()},
        {keys::kUserInfo, withError->userInfo()}};
  }
  callback->executeWithCallback(CallbackType::kFailure, std::move(failure));
}

void BinaryCallbackUtils::executeProgressCallback(const std::shared_ptr<BinaryCallback>& callback,
                                                  OperationState operationState,
                                                  const Value& progressData) {
  if (callback == nullptr) return;
  callback->executeWithCallback(
      CallbackType::kProgress,
      Dictionary{{keys::kState, static_cast<std::uint32_t>(operationState)},
                 {keys::kProgressData, progressData}});
}

}  // namespace varo::binary
