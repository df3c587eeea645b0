#pragma once

#include <cstdint>
#include <span>

namespace varo::sandbox {

/// Bytes that nobody stores: each follows from the seed and its position, so every part is the same
/// at every reading. They look random, and a part that is in the wrong place is noticed.
class GeneratedBytes {
 public:
  GeneratedBytes(std::uint64_t seed, std::uint64_t size) : seed_(seed), size_(size) {}

  /// Reads until `buffer` is full or the bytes end; returns their number.
  [[nodiscard]] std::int64_t readAt(std::uint64_t offset, std::span<char> buffer) const;

 private:
  const std::uint64_t seed_;
  const std::uint64_t size_;
};

}  // namespace varo::sandbox
