#include "Cli/Arguments/OptionValues.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>

namespace varo::cli {

using platform::Dictionary;
using platform::LogLevel;
using platform::Result;
using platform::Value;

namespace {

/// A day; more is a slip of the pen.
constexpr double kLongestTimeout = 86'400;
constexpr int kMostParallel = 64;
/// With the first attempt a hundred, which is the library's limit.
constexpr int kMostRetries = 99;
/// Far more than any configuration; keeps a wrong file from being read whole.
constexpr std::size_t kLargestJson = std::size_t{4} * 1024 * 1024;

/// Whether a word is a further pair of a list, and not the URL or FILE that may follow it.
bool looksLikePair(std::string_view word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string_view::npos || equals == 0 || word.front() == '-') return false;
  return word.substr(0, equals).find_first_of("/:") == std::string_view::npos;
}

}  // namespace

Result<std::chrono::milliseconds> parseSeconds(const std::string& text) {
  double seconds = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  const bool usable = error == std::errc() && stop == end && std::isfinite(seconds) &&
                      seconds >= 0.001 && seconds <= kLongestTimeout;
  if (usable) return std::chrono::milliseconds(std::llround(seconds * 1000));
  return usageError(fmt::format("'{}' is not a number of seconds between 0.001 and 86400", text));
}

Result<std::uint16_t> parsePort(const std::string& text) {
  const auto number = platform::parseInteger(text);
  if (number && *number >= 0 && *number <= std::numeric_limits<std::uint16_t>::max()) {
    return static_cast<std::uint16_t>(*number);
  }
  return usageError(fmt::format("'{}' is not a port (0 to 65535)", text));
}

Result<LogLevel> parseLogLevel(const std::string& text) {
  if (const auto level = platform::logLevelNamed(text)) return *level;
  return usageError(
      fmt::format("'{}' is not one of {}", text, fmt::join(platform::kLogLevelNames, ", ")));
}

Result<binary::TransferPolicy> parsePolicy(const std::string& text) {
  if (text == "safe") return binary::TransferPolicy::kSafe;
  if (text == "compatible") return binary::TransferPolicy::kCompatible;
  return usageError(fmt::format("'{}' is neither safe nor compatible", text));
}

Result<std::string> parseStoreUrl(const std::string& text) {
  const std::size_t scheme = text.starts_with("http://")    ? 7
                             : text.starts_with("https://") ? 8
                                                            : std::string::npos;
  const std::string url = text.ends_with('/') ? text.substr(0, text.size() - 1) : text;
  const std::string_view authority = std::string_view(url).substr(std::min(scheme, url.size()));
  const bool usable =
      !authority.empty() && std::all_of(authority.begin(), authority.end(), [](char c) {
        return c > ' ' && c < 0x7F &&
               std::string_view("/?#@\\\"").find(c) == std::string_view::npos;
      });
  if (usable) return url;
  return usageError(fmt::format("'{}' is not scheme, host and port of a store", text));
}

Result<std::string> parseBaseUrl(const std::string& text) {
  // Whether the rest is a URL is for the library to say: its failure has a code.
  return text.substr(0, text.find_last_not_of('/') + 1);
}

Result<int> parseParallel(const std::string& text) {
  const auto number = platform::parseInteger(text);
  if (number && *number >= 1 && *number <= kMostParallel) return static_cast<int>(*number);
  return usageError(fmt::format("'{}' is not a number from 1 to {}", text, kMostParallel));
}

Result<int> parseRetries(const std::string& text) {
  const auto number = platform::parseInteger(text);
  if (number && *number >= 0 && *number <= kMostRetries) return static_cast<int>(*number);
  return usageError(fmt::format("'{}' is not a number from 0 to {}", text, kMostRetries));
}

Result<IfExists> parseIfExists(const std::string& text) {
  const auto* name = std::find(kIfExistsNames.begin(), kIfExistsNames.end(), text);
  // In the order of the enumeration.
  if (name != kIfExistsNames.end()) return static_cast<IfExists>(name - kIfExistsNames.begin());
  return usageError(fmt::format("'{}' is not one of {}", text, fmt::join(kIfExistsNames, ", ")));
}

Result<std::int64_t> parseChunkSize(const std::string& text) {
  if (const auto size = parseByteCount(text)) return *size;
  return usageError(fmt::format("'{}' is not a positive size", text));
}

Result<std::int64_t> parsePartSize(const std::string& text) {
  constexpr std::int64_t kMiB = std::int64_t{1} << 20;
  const auto size = parseByteCount(text);
  if (size && *size >= 5 * kMiB && *size <= std::int64_t{5} * 1024 * kMiB) return *size;
  return usageError(fmt::format("'{}' is not a size from 5M to 5G", text));
}

Result<Dictionary> readJsonFile(const std::string& path) {
  errno = 0;
  std::ifstream stream(path, std::ios::binary);
  std::string text(kLargestJson, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  // A directory opens but cannot be read.
  if (!stream.is_open() || stream.bad()) {
    return platform::Error::fromErrno(errno, "cannot read", path);
  }
  if (text.size() == kLargestJson) return usageError(fmt::format("'{}' is too large", path));
  const Result<Value> value = platform::json::parse(text);
  if (!value) {
    return usageError(
        fmt::format("'{}' is not JSON: {}", path, value.error()->localizedDescription()));
  }
  if (value->isDictionary()) return value->dictionaryValue();
  return usageError(fmt::format("'{}' holds no JSON object", path));
}

Result<Dictionary> readBlobConfiguration(const std::string& path) {
  Result<Dictionary> config = readJsonFile(path);
  if (config && (*config)[binary::kStreaming].boolValue()) {
    return usageError(
        fmt::format("'{}' asks for \"{}\", which leaves no file", path, binary::kStreaming));
  }
  return config;
}

std::vector<std::string> withListsSpelledOut(const std::vector<std::string>& words,
                                             std::span<const std::string> lists) {
  std::vector<std::string> result;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == kEndOfOptions) {
      result.insert(result.end(), words.begin() + static_cast<std::ptrdiff_t>(i), words.end());
      break;
    }
    result.push_back(word);
    const std::string name = word.substr(0, word.find('='));
    if (std::find(lists.begin(), lists.end(), name) == lists.end()) continue;
    if (word == name && i + 1 < words.size()) result.push_back(words[++i]);
    while (i + 1 < words.size() && looksLikePair(words[i + 1])) {
      result.push_back(name);
      result.push_back(words[++i]);
    }
  }
  return result;
}

}  // namespace varo::cli
