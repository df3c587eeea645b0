#include "Platform/Foundation/Redaction.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <array>

namespace varo::platform {
namespace {

constexpr std::array<std::string_view, 14> kSecretKeys = {
    "x-pelmar-authorization",
    "authorization",
    "proxy-authorization",
    "cookie",
    "set-cookie",
    "secretaccesskey",
    "accesskeyid",
    "sessiontoken",
    "x-amz-security-token",
    "x-amz-signature",
    "x-amz-credential",
    "signature",
    "security_key",
    "token",
};

constexpr bool isKeyCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

/// The length of what stands between a key and its value: `": "`, `=`, `: ` and the like; 0 where
/// no value follows.
std::size_t separatorLength(std::string_view text) {
  std::size_t length = 0;
  if (length < text.size() && text[length] == '"') ++length;
  while (length < text.size() && text[length] == ' ') ++length;
  if (length >= text.size() || (text[length] != ':' && text[length] != '=')) return 0;
  ++length;
  while (length < text.size() && text[length] == ' ') ++length;
  return length;
}

/// The length of a value up to its closing quote, or the end of a query parameter or line.
std::size_t valueLength(std::string_view text) {
  if (!text.empty() && text.front() == '"') {
    for (std::size_t i = 1; i < text.size(); ++i) {
      if (text[i] == '\\') {
        ++i;
      } else if (text[i] == '"') {
        return i + 1;
      }
    }
    return text.size();
  }
  return std::min(text.find_first_of("&\r\n,}]\""), text.size());
}

}  // namespace

bool isSecretKey(std::string_view key) noexcept {
  return std::any_of(kSecretKeys.begin(), kSecretKeys.end(),
                     [key](std::string_view secret) { return equalIgnoringCase(key, secret); });
}

std::string redactSecrets(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    std::size_t end = i;
    while (end < text.size() && isKeyCharacter(text[end])) ++end;
    if (end == i) {
      result += text[i++];
      continue;
    }
    const std::string_view word = text.substr(i, end - i);
    result += word;
    i = end;
    if (!isSecretKey(word)) continue;
    const std::size_t separator = separatorLength(text.substr(i));
    if (separator == 0) continue;
    result += text.substr(i, separator);
    result += kRedacted;
    i += separator;
    i += valueLength(text.substr(i));
  }
  return result;
}

}  // namespace varo::platform
