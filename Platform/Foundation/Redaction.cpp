#include "Platform/Foundation/Redaction.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <array>

namespace varo::platform {
namespace {

constexpr std::array<std::string_view, 26> kSecretKeys = {
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
    "access_token",
    "refresh_token",
    "id_token",
    "api_key",
    "apikey",
    "x-api-key",
    "client_secret",
    "secret",
    "password",
    "awsaccesskeyid",
    "x-goog-signature",
    "sig",
};

constexpr bool isKeyCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

bool isPercentEncoded(std::string_view text) {
  return text.size() >= 3 && text.front() == '%' &&
         text.substr(1, 2).find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

/// The length of a quote at the start of `text`, with the backslashes before it where the text is
/// itself quoted, or 0.
std::size_t quoteLength(std::string_view text) {
  const std::size_t quote = std::min(text.find_first_not_of('\\'), text.size());
  return quote < text.size() && (text[quote] == '"' || text[quote] == '\'') ? quote + 1 : 0;
}

/// The length of what stands between a key and its value: `": "`, `=`, `: `, `%3D` and the like; 0
/// where no value follows.
std::size_t separatorLength(std::string_view text) {
  const auto skipBlanks = [text](std::size_t i) {
    return std::min(text.find_first_not_of(' ', i), text.size());
  };
  const std::size_t sign = skipBlanks(quoteLength(text));
  const std::string_view rest = text.substr(sign);
  if (rest.starts_with(':') || rest.starts_with('=')) return skipBlanks(sign + 1);
  if (equalIgnoringCase(rest.substr(0, 3), "%3d")) return sign + 3;
  return 0;
}

/// The length of a quoted text whose quote, with its backslashes, has `opening` characters.
std::size_t quotedLength(std::string_view text, std::size_t opening) {
  const char quote = text[opening - 1];
  std::size_t backslashes = 0;
  for (std::size_t i = opening; i < text.size(); ++i) {
    // No more backslashes than at the start, or an even number, which belong to the text.
    if (text[i] == quote && (backslashes < opening || backslashes % 2 == 0)) return i + 1;
    backslashes = text[i] == '\\' ? backslashes + 1 : 0;
  }
  return text.size();
}

/// The length of an array or object of JSON, up to the bracket that ends it.
std::size_t bracketedLength(std::string_view text) {
  std::size_t depth = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (const std::size_t quote = quoteLength(text.substr(i)); quote != 0) {
      i += quotedLength(text.substr(i), quote) - 1;
    } else if (text[i] == '\\') {
      i = std::min(text.find_first_not_of('\\', i), text.size()) - 1;
    } else if (text[i] == '[' || text[i] == '{') {
      ++depth;
    } else if ((text[i] == ']' || text[i] == '}') && --depth == 0) {
      return i + 1;
    }
  }
  return text.size();
}

/// The length of a value up to its closing quote or bracket, or the end of a query parameter or
/// line. Where that is not clear, rather too much than too little.
std::size_t valueLength(std::string_view text) {
  if (const std::size_t quote = quoteLength(text); quote != 0) return quotedLength(text, quote);
  if (text.starts_with('[') || text.starts_with('{')) return bracketedLength(text);
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
      // A percent-encoded character before a key is no part of it.
      const std::size_t length = isPercentEncoded(text.substr(i)) ? 3 : 1;
      result += text.substr(i, length);
      i += length;
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

std::string redactUrl(std::string_view url) {
  const std::size_t scheme = url.find("://");
  const std::size_t start = scheme == std::string_view::npos ? 0 : scheme + 3;
  const std::size_t end = std::min(url.find_first_of("/?", start), url.size());
  // A password may have "@" and "#" in it, wherever that leads.
  const std::size_t at = url.substr(start, end - start).rfind('@');
  std::string result(url.substr(0, start));
  result += url.substr(at == std::string_view::npos ? start : start + at + 1);
  return redactSecrets(result.substr(0, result.find('#')));
}

}  // namespace varo::platform
