#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace varo::platform::base64 {

/// `bytes` in the standard alphabet with padding (RFC 4648, section 4), without line breaks.
[[nodiscard]] std::string encode(std::string_view bytes);

/// The bytes that `text` encodes. None where it is not the one encoding of any bytes: foreign
/// characters (blanks and line breaks too), missing padding, bits set that no byte uses.
[[nodiscard]] std::optional<std::string> decode(std::string_view text);

}  // namespace varo::platform::base64
