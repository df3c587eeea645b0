#include "Binary/Binary/Utils/CommonUtils.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/UtilsLogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"

#include <chrono>
#include <dlfcn.h>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::common_utils;

/// A response is shown or parsed as text; more than this is neither. Bytes.
constexpr std::uint64_t kMaxResponseText = std::uint64_t{64} * 1024 * 1024;
constexpr char kTestProbe[] = "XCTestProbe_isTesting";

Value valueOrMissing(Result<Value> parsed) {
  return parsed.ok() ? std::move(parsed).value() : Value();
}

}  // namespace

ErrorPtr CommonUtils::generateErrorWith(std::string_view domain, std::int64_t andCode,
                                        std::string_view andDescription) {
  return Error::make(domain, andCode, std::string(andDescription));
}

std::shared_ptr<const VSTaskError> CommonUtils::getErrorForTask(
    std::int64_t taskID, std::string_view andDomain, std::int64_t withCode,
    std::string_view withMessage, const std::optional<std::string>& /*andNetworkResponse*/,
    const ErrorPtr& cause) {
  Dictionary userInfo{{std::string(platform::kErrorMessageKey), withMessage}};
  if (cause != nullptr) userInfo.set(std::string(platform::kUnderlyingError), cause);
  return std::make_shared<const VSTaskError>(taskID, std::string(andDomain), withCode,
                                             std::move(userInfo));
}

std::shared_ptr<const VSTaskError> CommonUtils::validateResponseforTask(
    std::int64_t taskID, std::string_view withDomain, const Dictionary& /*withResponseDictionary*/,
    const std::optional<Data>& /*withData*/, const ErrorPtr& andError) {
  if (andError == nullptr) return nullptr;
  return getErrorForTask(taskID, withDomain, kCodeUploadFailure,
                         platform::formatMessage(
                             kMessageAndDetail, {kUploadFailure, andError->localizedDescription()}),
                         std::nullopt, andError);
}

Value CommonUtils::parseJsonString(const std::optional<std::string>& json,
                                   const platform::JsonLimits& limits) {
  if (!json || json->empty()) return {};
  return valueOrMissing(platform::json::parse(*json, limits));
}

Value CommonUtils::jsonObjectFromData(const Data& data, const platform::JsonLimits& limits) {
  return valueOrMissing(platform::json::parse(data, limits));
}

std::optional<std::string> CommonUtils::jsonStringFromDictionary(const Dictionary& dictionary) {
  return platform::VROCommonUtility::getJSONStringFromNSDictionary(dictionary, nullptr);
}

Result<std::string> CommonUtils::responseText(const std::optional<Data>& data) {
  const Result<std::string> bytes = data.value_or(Data()).readAll(kMaxResponseText);
  if (!bytes) return bytes.error();
  return platform::sanitizeUtf8(*bytes);
}

std::string CommonUtils::getResponseString(const std::optional<Data>& data) {
  Result<std::string> text = responseText(data);
  if (text) return std::move(text).value();
  logger().logError(texts::kResponseUnreadable, text.error());
  return {};
}

std::string CommonUtils::responseExcerpt(const std::optional<Data>& data) {
  return platform::excerptOf(data.value_or(Data()));
}

void CommonUtils::addAnswer(Dictionary& userInfo, int status, const std::optional<Data>& body) {
  userInfo.set(kHttpStatusCode, status);
  if (body) userInfo.set(kResponseBody, responseExcerpt(body));
}

std::int32_t CommonUtils::getEpochTime(const platform::Clock& clock) {
  const auto now = clock.now().time_since_epoch();
  return static_cast<std::int32_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

bool CommonUtils::areWeBeingUnitTested() {
  using Probe = bool (*)();
  // POSIX guarantees that a function's address survives the void pointer.
  const auto probe = reinterpret_cast<Probe>(::dlsym(RTLD_DEFAULT, kTestProbe));
  return probe != nullptr && probe();
}

}  // namespace varo::binary
