#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace varo::platform::base64 {

/// The bytes that `text` encodes (RFC 4648, section 4). None where it encodes none: foreign
/// characters (blanks and line breaks too), missing padding. Bits of the last character that belong
/// to no byte are ignored.
[[nodiscard]] std::optional<std::string> decode(std::string_view text);

}  // namespace varo::platform::base64
