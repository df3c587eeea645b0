#pragma once

#include <cstdint>
#include <string_view>

namespace varo::sandbox {

/// What a Range header asks of a file.
struct ByteRange {
  enum class Kind {
    kWhole,  ///< No range, or one that may be ignored (RFC 9110, 14.2).
    kPart,
    kUnsatisfiable,  ///< A well-formed range that holds no byte of the file.
  };
  Kind kind = Kind::kWhole;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

/// Reads the value of a Range header against a file of `size` bytes. Only a single range of bytes
/// is honoured; everything else means the whole file.
[[nodiscard]] ByteRange parseByteRange(std::string_view value, std::uint64_t size);

}  // namespace varo::sandbox
