#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace varo::platform::base64 {

/// `bytes` in the standard alphabet with padding (RFC 4648, section 4), without line breaks.
[[nodiscard]] std::string encode(std::string_view bytes);

/// The bytes that `text` encodes. None where it encodes none: foreign characters (blanks and line
/// breaks too), missing padding. Bits of the last character that belong to no byte are ignored.
[[nodiscard]] std::optional<std::string> decode(std::string_view text);

}  // namespace varo::platform::base64
