#pragma once

#include <cstdint>
#include <span>

namespace varo::sandbox {

/// Bytes that are read piece by piece, so that an answer of any size needs no memory.
/// Reading is thread-safe.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  /// Fills `buffer` as far as the bytes go; -1 on an error.
  [[nodiscard]] virtual std::int64_t readAt(std::uint64_t offset, std::span<char> buffer) const = 0;
};

}  // namespace varo::sandbox
