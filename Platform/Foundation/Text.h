#pragma once

#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace varo::platform {

/// Comparison, search and conversion of text. ASCII letters only; other bytes count as they are.
[[nodiscard]] bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept;
[[nodiscard]] std::string lowerCase(std::string_view text);
/// `text` without the white space and line breaks at its two ends.
[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;

/// The decimal number that is the whole of `text`, or nothing (also where it does not fit).
[[nodiscard]] std::optional<std::int64_t> parseInteger(std::string_view text) noexcept;

/// Fills the placeholders of a message in order: "%@" with a value's description, "%d", "%ld",
/// "%lld" and "%lu" with its integer. Surplus placeholders stay as they are, surplus values are
/// dropped. For error texts: nothing is cut; secrets in dictionaries are redacted.
[[nodiscard]] std::string formatMessage(std::string_view pattern,
                                        std::initializer_list<Value> values);
/// The same for a log line: each value is cut after `Value::kLogLimit` bytes.
[[nodiscard]] std::string formatLogMessage(std::string_view pattern,
                                           std::initializer_list<Value> values);

/// Replaces whatever is not UTF-8 (overlong forms and surrogates included) by U+FFFD.
[[nodiscard]] std::string sanitizeUtf8(std::string_view bytes);
/// The first `limit` bytes of `text`, or up to three fewer so that no character of UTF-8 is cut.
[[nodiscard]] std::string_view utf8Prefix(std::string_view text, std::size_t limit) noexcept;
[[nodiscard]] bool isUtf8(std::string_view bytes) noexcept;

}  // namespace varo::platform
