#pragma once

#include "Sandbox/Storage/ByteSource.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace varo::sandbox {

/// The JSON object {"d": {"results": "..."}} whose text is other bytes in Base64, encoded as it is
/// read.
class Base64Answer final : public ByteSource {
 public:
  /// `size` is that of `bytes`, at most `kLargestBlob`.
  Base64Answer(std::shared_ptr<const ByteSource> bytes, std::uint64_t size)
      : bytes_(std::move(bytes)), size_(size) {}

  [[nodiscard]] std::uint64_t length() const;
  [[nodiscard]] std::int64_t readAt(std::uint64_t offset, std::span<char> buffer) const override;

 private:
  [[nodiscard]] std::uint64_t encodedLength() const { return (size_ + 2) / 3 * 4; }
  /// Fills the front of `buffer` with Base64 from the character at `offset`; 0 on an error.
  [[nodiscard]] std::size_t encode(std::uint64_t offset, std::span<char> buffer) const;

  const std::shared_ptr<const ByteSource> bytes_;
  const std::uint64_t size_;
};

}  // namespace varo::sandbox
