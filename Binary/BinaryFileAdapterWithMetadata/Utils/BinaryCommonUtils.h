#pragma once

#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Filter strings and URL suffixes of the file adapter. Stateless, thread-safe.
class BinaryCommonUtils {
 public:
  BinaryCommonUtils() = delete;

  /// The "$filter" expression that asks for equality with every entry, in the dictionary's order:
  /// name eq 'a.png' and type eq 'png'. Values are not escaped, as the service expects; empty for
  /// no metadata.
  [[nodiscard]] static std::string generateFilterStringWithMetadata(
      const std::optional<platform::Dictionary>& metadata);

  /// `url` and `suffix` joined by "&" where the URL has a query part already, else by "?". Neither
  /// is checked.
  [[nodiscard]] static std::string appendSuffixToUrl(std::string_view url, std::string_view suffix);
};

}  // namespace varo::binary
