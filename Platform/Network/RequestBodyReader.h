#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Result.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace varo::platform {

/// Reads the pieces of a request body one after the other, straight into the sender's buffer.
/// Not thread-safe.
class RequestBodyReader {
 public:
  explicit RequestBodyReader(std::vector<Data> pieces);

  /// Bytes of all pieces.
  [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

  /// Fills `buffer` as far as there are bytes; 0 at the end. Errors: domain "POSIX", for example
  /// EIO with the path where a file has become shorter than its piece.
  [[nodiscard]] Result<std::size_t> read(std::span<char> buffer);

  /// Bytes before the next one to read.
  [[nodiscard]] std::uint64_t position() const noexcept { return position_; }

  /// Goes on at `offset` from the start; false, and nothing changes, beyond the end.
  [[nodiscard]] bool seek(std::uint64_t offset);

 private:
  const std::vector<Data> pieces_;
  const std::uint64_t size_;
  std::size_t piece_ = 0;
  std::uint64_t offset_ = 0;  // in the piece
  std::uint64_t position_ = 0;
};

}  // namespace varo::platform
