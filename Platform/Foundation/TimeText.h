#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace varo::platform {

// A time before 1800 or after 2200 is read as the nearest one between them.

/// "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7); none for anything else.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> httpTime(std::string_view text);
/// "2009-10-12T17:50:30.000Z" or "2009-10-12T19:50:30+02:00", also without a fraction (RFC 3339,
/// section 5.6, in milliseconds); none for anything else.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> isoTime(std::string_view text);

}  // namespace varo::platform
