#pragma once

#include <string>
#include <string_view>

namespace varo::platform {

/// Percent-encodes every byte except RFC 3986's unreserved ones and those in `alsoKept`.
[[nodiscard]] std::string percentEncode(std::string_view text, std::string_view alsoKept = {});

/// Undoes one level of percent-encoding. A percent sign that two hexadecimal digits do not follow
/// stands for itself, so the result is shorter exactly where something was decoded.
[[nodiscard]] std::string percentDecode(std::string_view text);

}  // namespace varo::platform
