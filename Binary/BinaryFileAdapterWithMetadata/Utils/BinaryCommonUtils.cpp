#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCommonUtils.h"

#include <fmt/format.h>

namespace varo::binary {

std::string BinaryCommonUtils::generateFilterStringWithMetadata(
    const std::optional<platform::Dictionary>& metadata) {
  std::string filter;
  if (!metadata) return filter;
  for (const auto& entry : *metadata) {
    if (!filter.empty()) filter += " and ";
    filter += fmt::format("{} eq '{}'", entry.key, entry.value.textValue());
  }
  return filter;
}

std::string BinaryCommonUtils::appendSuffixToUrl(std::string_view url, std::string_view suffix) {
  const bool hasQuery = url.find('?') != std::string_view::npos;
  return fmt::format("{}{}{}", url, hasQuery ? '&' : '?', suffix);
}

}  // namespace varo::binary
