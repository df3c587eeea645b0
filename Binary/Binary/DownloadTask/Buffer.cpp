#include "Binary/Binary/DownloadTask/Buffer.h"

#include <utility>

namespace varo::binary {

void Buffer::addChunkToBuffer(std::shared_ptr<Chunk> chunk) {
  _buffer.push_back(std::move(chunk));
  ++_count;
}

std::shared_ptr<Chunk> Buffer::removeChunkFromBuffer() {
  if (isBufferEmpty()) return nullptr;
  std::shared_ptr<Chunk> chunk = std::move(_buffer.front());
  _buffer.pop_front();
  --_count;
  return chunk;
}

const Chunk* Buffer::first() const noexcept {
  return isBufferEmpty() ? nullptr : _buffer.front().get();
}

}  // namespace varo::binary
