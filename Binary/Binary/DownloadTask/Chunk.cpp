#include "Binary/Binary/DownloadTask/Chunk.h"

#include <fmt/format.h>

namespace varo::binary {

std::string Chunk::description() const {
  if (!data_) return "chunk without data";
  return fmt::format("chunk of {} bytes at {}", data_->size(), offset_);
}

}  // namespace varo::binary
