#include "Platform/Network/UrlEncoding.h"

#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <cstddef>

namespace varo::platform {
namespace {

constexpr bool isUnreserved(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

constexpr bool isHexDigit(char c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

constexpr bool isForbiddenInUrl(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return byte <= 0x20 || byte >= 0x7F ||
         std::string_view("\"<>\\^`{|}").find(c) != std::string_view::npos;
}

void appendEncoded(std::string& result, char c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  result += '%';
  result += kDigits[byte >> 4U];
  result += kDigits[byte & 0x0FU];
}

}  // namespace

std::string percentEncode(std::string_view text, std::string_view alsoKept) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (isUnreserved(c) || alsoKept.find(c) != std::string_view::npos) {
      result += c;
    } else {
      appendEncoded(result, c);
    }
  }
  return result;
}

std::string appendQuery(const std::string& url, const Dictionary& parameters) {
  const std::size_t fragment = std::min(url.find('#'), url.size());
  std::string result = url.substr(0, fragment);
  const bool hasQuery = result.find('?') != std::string::npos;
  const bool isOpen = hasQuery && (result.back() == '?' || result.back() == '&');
  std::string_view separator = isOpen ? "" : hasQuery ? "&" : "?";
  for (const DictionaryEntry& parameter : parameters) {
    if (parameter.value.isNull()) continue;
    result += separator;
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
    const bool isStrayPercent =
        url[i] == '%' && !(i + 2 < url.size() && isHexDigit(url[i + 1]) && isHexDigit(url[i + 2]));
    if (isStrayPercent || isForbiddenInUrl(url[i])) {
      appendEncoded(result, url[i]);
    } else {
      result += url[i];
    }
  }
  return result;
}

}  // namespace varo::platform
