#include "Cli/Arguments/Arguments.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>

namespace varo::cli {

using platform::Dictionary;
using platform::Result;
using platform::Value;

namespace {

/// Far more than any token; keeps a wrong file from being read whole.
constexpr std::size_t kLongestToken = std::size_t{64} * 1024;

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

bool isTokenCharacter(char c) {
  constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
  const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return letter || (c >= '0' && c <= '9') || kSymbols.find(c) != std::string_view::npos;
}

std::string_view trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

Value typed(const std::string& text) {
  if (text == "true") return true;
  if (text == "false") return false;
  if (const std::optional<std::int64_t> number = platform::parseInteger(text)) return *number;
  return text;
}

std::optional<std::string> existingHeader(const Dictionary& headers, std::string_view name) {
  for (const auto& entry : headers) {
    if (platform::equalIgnoringCase(entry.key, name)) return entry.key;
  }
  return std::nullopt;
}

}  // namespace

platform::ErrorPtr usageError(std::string message) {
  return platform::Error::make(kUsageErrorDomain, kCodeWrongUsage, std::move(message));
}

Result<TextPair> parsePair(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos || equals == 0) {
    return usageError(fmt::format("'{}' is not of the form KEY=VALUE", text));
  }
  return TextPair(text.substr(0, equals), text.substr(equals + 1));
}

Result<Dictionary> textDictionary(const std::vector<std::string>& pairs) {
  Dictionary dictionary;
  for (const std::string& text : pairs) {
    Result<TextPair> pair = parsePair(text);
    if (!pair) return pair.error();
    dictionary.set(std::move(pair.value().first), std::move(pair.value().second));
  }
  return dictionary;
}

Result<Dictionary> typedDictionary(const std::vector<std::string>& pairs) {
  Dictionary dictionary;
  for (const std::string& text : pairs) {
    Result<TextPair> pair = parsePair(text);
    if (!pair) return pair.error();
    dictionary.set(std::move(pair.value().first), typed(pair.value().second));
  }
  return dictionary;
}

Result<TextPair> parseHeader(std::string_view text) {
  const std::size_t colon = text.find(':');
  const std::string_view name = text.substr(0, colon);
  const bool isName = !name.empty() && std::all_of(name.begin(), name.end(), isTokenCharacter);
  if (colon == std::string_view::npos || !isName) {
    // Only the name is shown: the rest may be a secret.
    return usageError(fmt::format("the header '{}' is not of the form 'Name: value'",
                                  platform::sanitizeUtf8(name.substr(0, 40))));
  }
  const std::string_view value = trim(text.substr(colon + 1));
  if (std::any_of(value.begin(), value.end(), isControl)) {
    return usageError(fmt::format("the value of the header '{}' has control characters", name));
  }
  return TextPair(name, value);
}

void setHeader(Dictionary& headers, std::string name, std::string value) {
  if (const std::optional<std::string> existing = existingHeader(headers, name)) {
    headers.remove(*existing);
  }
  headers.set(std::move(name), std::move(value));
}

bool hasHeader(const Dictionary& headers, std::string_view name) {
  return existingHeader(headers, name).has_value();
}

Result<std::string> readSecretFile(const std::string& path, std::string_view what) {
  // A stream, since the token may come through a pipe.
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    return platform::Error::fromErrno(errno, fmt::format("cannot read the {} file", what), path);
  }
  std::string content(kLongestToken, '\0');
  stream.read(content.data(), static_cast<std::streamsize>(content.size()));
  content.resize(static_cast<std::size_t>(stream.gcount()));
  const std::string_view token = trim(std::string_view(content).substr(0, content.find('\n')));
  const bool usable = !token.empty() && std::none_of(token.begin(), token.end(), isControl);
  if (!usable) return usageError(fmt::format("the first line of '{}' is not a {}", path, what));
  return std::string(token);
}

}  // namespace varo::cli
