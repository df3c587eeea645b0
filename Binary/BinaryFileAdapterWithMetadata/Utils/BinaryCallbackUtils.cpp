#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"

#include "Binary/Binary/SourceNames.h"

#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {
namespace {

constexpr std::string_view kSuccessNotDefined = "Success callback not defined";
constexpr std::string_view kFailureNotDefined = "Failure callback not defined";
constexpr std::string_view kProgressNotDefined = "Progress callback not defined";
constexpr std::string_view kSuccessNotProvided =
    "Trying to invoke success callback with result %@. Callbacks are not provided";
constexpr std::string_view kFailureNotProvided =
    "Trying to invoke failure callback with error %@. Callbacks are not provided";
constexpr std::string_view kProgressNotProvided =
    "Trying to invoke progress callback with progress %@. Callbacks are not provided";

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
      orStandBy(std::move(onSuccess), kSuccessNotDefined, kSuccessNotProvided));
  callback->setFailureCallback(
      orStandBy(std::move(onFailure), kFailureNotDefined, kFailureNotProvided));
  callback->setProgressCallback(
      orStandBy(std::move(onProgress), kProgressNotDefined, kProgressNotProvided));
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
