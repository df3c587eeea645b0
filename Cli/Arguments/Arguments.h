#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::cli {

using TextPair = std::pair<std::string, std::string>;

/// "KEY=VALUE" at its first "="; the key must not be empty, the value may be.
[[nodiscard]] platform::Result<TextPair> parsePair(std::string_view text);

/// Pairs whose values are text. Of a repeated key the last value counts.
[[nodiscard]] platform::Result<platform::Dictionary> textDictionary(
    const std::vector<std::string>& pairs);

/// Pairs whose values are booleans ("true", "false"), whole numbers, or else text.
[[nodiscard]] platform::Result<platform::Dictionary> typedDictionary(
    const std::vector<std::string>& pairs);

/// A request header "Name: value". The name is a token (RFC 9110), the value has no control
/// characters; blanks around it are dropped.
[[nodiscard]] platform::Result<TextPair> parseHeader(std::string_view text);

/// Sets a header, replacing one whose name differs only in letter case.
void setHeader(platform::Dictionary& headers, std::string name, std::string value);
[[nodiscard]] bool hasHeader(const platform::Dictionary& headers, std::string_view name);

/// The token, or other secret that `what` names, in the file at `path`: its first line, without
/// blanks around it. An error when there is none or the file cannot be read.
[[nodiscard]] platform::Result<std::string> readSecretFile(const std::string& path,
                                                           std::string_view what = "token");

/// What was typed makes no sense. Leads to exit status 2; docs/errors.md lists it with the others.
inline constexpr std::string_view kUsageErrorDomain = "Usage";
inline constexpr std::int64_t kCodeWrongUsage = 2;

/// The error of that domain and code.
[[nodiscard]] platform::ErrorPtr usageError(std::string message);

}  // namespace varo::cli
