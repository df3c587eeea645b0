#include "Platform/Network/RequestBodyReader.h"

#include <numeric>
#include <utility>

namespace varo::platform {
namespace {

std::uint64_t totalSize(const std::vector<Data>& pieces) {
  return std::accumulate(
      pieces.begin(), pieces.end(), std::uint64_t{0},
      [](std::uint64_t total, const Data& piece) { return total + piece.size(); });
}

}  // namespace

RequestBodyReader::RequestBodyReader(std::vector<Data> pieces)
    : pieces_(std::move(pieces)), size_(totalSize(pieces_)) {}

Result<std::size_t> RequestBodyReader::read(std::span<char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size() && piece_ < pieces_.size()) {
    const Data& piece = pieces_[piece_];
    const auto count = piece.read(offset_, buffer.subspan(filled));
    if (!count) return count.error();
    filled += *count;
    offset_ += *count;
    if (offset_ >= piece.size()) {
      ++piece_;
      offset_ = 0;
    }
  }
  position_ += filled;
  return filled;
}

// The HTTP library goes back where it has to send a body again: on a connection that turned out to
// be dead, for example.
bool RequestBodyReader::seek(std::uint64_t offset) {
  if (offset > size_) return false;
  position_ = offset;
  piece_ = 0;
  while (piece_ < pieces_.size() && offset >= pieces_[piece_].size()) {
    offset -= pieces_[piece_].size();
    ++piece_;
  }
  offset_ = offset;
  return true;
}

}  // namespace varo::platform
