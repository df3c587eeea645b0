#include "Platform/Common/VROCommonUtility.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"

#include <utility>

namespace varo::platform {
namespace {

/// The result's value; none, with `error` set where the caller wants it, when there is none.
template <typename T>
std::optional<T> valueOrError(Result<T> result, ErrorPtr* error) {
  if (result.ok()) return std::move(result).value();
  if (error != nullptr) *error = result.error();
  return std::nullopt;
}

Result<Dictionary> requireObject(const Result<Value>& parsed) {
  if (!parsed) return parsed.error();
  if (const Dictionary* dictionary = parsed->dictionary()) return *dictionary;
  return Error::make(json::kErrorDomain, json::kNotAnObject, "The JSON is not an object");
}

}  // namespace

std::optional<Dictionary> VROCommonUtility::getDictionaryFromJSONString(std::string_view json,
                                                                        ErrorPtr* error,
                                                                        const JsonLimits& limits) {
  return valueOrError(requireObject(json::parse(json, limits)), error);
}

std::optional<Dictionary> VROCommonUtility::getDictionaryFromJSONData(const Data& json,
                                                                      ErrorPtr* error,
                                                                      const JsonLimits& limits) {
  return valueOrError(requireObject(json::parse(json, limits)), error);
}

std::optional<std::string> VROCommonUtility::getJSONStringFromNSDictionary(
    const Dictionary& dictionary, ErrorPtr* error) {
  return valueOrError(json::serialize(dictionary), error);
}

std::vector<DictionaryEntry> VROCommonUtility::convertToOrderedKeyValuePairs(
    const Dictionary& dictionary) {
  return {dictionary.begin(), dictionary.end()};
}

}  // namespace varo::platform
