#pragma once

#include "Platform/Foundation/JsonLimits.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

/// JSON text to dictionaries and back, and ordered key-value pairs. Stateless, thread-safe.
class VROCommonUtility {
 public:
  VROCommonUtility() = delete;

  /// The object that is the whole of `json`. None, with `error` set unless it is null, when the
  /// text is not JSON, its top level is not an object, or it goes beyond `limits`.
  [[nodiscard]] static std::optional<Dictionary> getDictionaryFromJSONString(
      std::string_view json, ErrorPtr* error, const JsonLimits& limits = kListJsonLimits);
  /// The same of bytes, which are read piece by piece.
  [[nodiscard]] static std::optional<Dictionary> getDictionaryFromJSONData(
      const Data& json, ErrorPtr* error, const JsonLimits& limits = kListJsonLimits);

  /// Compact JSON. None, with `error` set unless it is null, when an entry has no JSON form: bytes,
  /// errors, shared objects, numbers that are not finite, text that is not UTF-8.
  [[nodiscard]] static std::optional<std::string> getJSONStringFromNSDictionary(
      const Dictionary& dictionary, ErrorPtr* error);

  /// The entries in the dictionary's order.
  [[nodiscard]] static std::vector<DictionaryEntry> convertToOrderedKeyValuePairs(
      const Dictionary& dictionary);
};

}  // namespace varo::platform
