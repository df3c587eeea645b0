#pragma once

#include "Sandbox/Http/HttpResponse.h"

#include <cstdint>
#include <span>
#include <utility>

namespace varo::sandbox {

/// The JSON object {"d": {"results": "..."}} whose text is other bytes in Base64, encoded as it is
/// read.
class Base64Answer {
 public:
  /// `size` is that of `bytes`, at most `kLargestBlob`.
  Base64Answer(ContentReader bytes, std::uint64_t size) : bytes_(std::move(bytes)), size_(size) {}

  [[nodiscard]] std::uint64_t length() const;
  /// As `ContentReader` does.
  [[nodiscard]] bool read(std::uint64_t offset, std::span<char> buffer) const;

 private:
  [[nodiscard]] std::uint64_t encodedLength() const { return (size_ + 2) / 3 * 4; }
  /// Fills the front of `buffer` with Base64 from the character at `offset`; 0 on an error.
  [[nodiscard]] std::size_t encode(std::uint64_t offset, std::span<char> buffer) const;

  ContentReader bytes_;
  std::uint64_t size_;
};

}  // namespace varo::sandbox
