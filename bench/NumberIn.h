#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace varo::bench {

/// The whole text as a decimal number; 0 where it is none.
inline std::int64_t numberIn(std::string_view text) {
  std::int64_t number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  return parsed.ec == std::errc{} && parsed.ptr == text.data() + text.size() ? number : 0;
}

}  // namespace varo::bench
