#include "Platform/Network/UrlEncoding.h"

#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <cstddef>

namespace varo::platform {
namespace {

constexpr bool isHexDigit(char c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

constexpr bool isForbiddenInUrl(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return byte <= 0x20 || byte >= 0x7F ||
         std::string_view("\"<>\\^`{|}").find(c) != std::string_view::npos;
}

}  // namespace

std::string appendQuery(const std::string& url, const Dictionary& parameters) {
  // Parameters behind a fragment would be a part of it, and never be sent.
  const std::size_t fragment = std::min(url.find('#'), url.size());
  std::string result = url.substr(0, fragment);
  const bool hasQuery = result.find('?') != std::string::npos;
  const bool isOpen = hasQuery && (result.back() == '?' || result.back() == '&');
  std::string_view separator = isOpen ? "" : hasQuery ? "&" : "?";
  for (const auto& parameter : parameters) {
    if (parameter.value.isNull()) continue;
    result += separator;
    // The services' "$filter" goes out as it is spelt.
    result += percentEncode(parameter.key, "$");
    result += '=';
    result += percentEncode(parameter.value.textValue());
    separator = "&";
  }
  return result.append(url, fragment);
}

std::string encodeForbiddenBytes(std::string_view url) {
  std::string result;
  result.reserve(url.size());
  for (std::size_t i = 0; i < url.size(); ++i) {
    // What is encoded already stays; encoded twice it would name something else.
    const bool isStrayPercent =
        url[i] == '%' && !(i + 2 < url.size() && isHexDigit(url[i + 1]) && isHexDigit(url[i + 2]));
    if (isStrayPercent || isForbiddenInUrl(url[i])) {
      result += percentEncode(url.substr(i, 1));
    } else {
      result += url[i];
    }
  }
  return result;
}

}  // namespace varo::platform
