#pragma once

#include "Binary/Binary/DownloadTask/Chunk.h"

#include <cstddef>
#include <deque>
#include <memory>

namespace varo::binary {

/// A first-in, first-out queue of chunks that wait to be written. Not thread-safe.
class Buffer {
 public:
  void addChunkToBuffer(std::shared_ptr<Chunk> chunk);
  /// Takes the first one; null when there is none.
  std::shared_ptr<Chunk> removeChunkFromBuffer();
  [[nodiscard]] bool isBufferEmpty() const noexcept { return _count == 0; }
  [[nodiscard]] std::size_t count() const noexcept { return _count; }
  /// The one that `removeChunkFromBuffer` would take.
  [[nodiscard]] const Chunk* first() const noexcept;

 private:
  std::size_t _count = 0;
  std::deque<std::shared_ptr<Chunk>> _buffer;
};

}  // namespace varo::binary
