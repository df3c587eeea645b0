#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace varo::binary {

/// What a Content-Range field of the unit "bytes" says (RFC 9110, section 14.4).
struct ContentRange {
  /// Positions of the first and the last byte, both inclusive.
  struct Span {
    std::int64_t first;
    std::int64_t last;
  };

  /// None in "bytes */42": nothing of the object was sent.
  std::optional<Span> span;
  /// Size of the whole object; none for "*".
  std::optional<std::int64_t> total;

  /// None where the text is no such field: its positions are out of order or beyond the total, a
  /// number does not fit, or there is something before or after it.
  [[nodiscard]] static std::optional<ContentRange> parse(std::string_view field) noexcept;
};

}  // namespace varo::binary
