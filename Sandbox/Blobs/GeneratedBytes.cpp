#include "Sandbox/Blobs/GeneratedBytes.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace varo::sandbox {
namespace {

constexpr std::size_t kWordSize = 8;
using Word = std::array<char, kWordSize>;

// SplitMix64, whose state is a multiple of its step: any word can be had without those before it.
Word wordAt(std::uint64_t seed, std::uint64_t index) {
  std::uint64_t z = seed + (index + 1) * 0x9e3779b97f4a7c15u;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  z ^= z >> 31;
  Word word{};
  for (std::size_t i = 0; i < word.size(); ++i) word[i] = static_cast<char>(z >> (8 * i));
  return word;
}

}  // namespace

std::int64_t GeneratedBytes::readAt(std::uint64_t offset, std::span<char> buffer) const {
  const std::uint64_t rest = offset < size_ ? size_ - offset : 0;
  const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(rest, buffer.size()));
  std::size_t done = 0;
  while (done < length) {
    const std::uint64_t position = offset + done;
    const Word word = wordAt(seed_, position / kWordSize);
    const auto begin = static_cast<std::size_t>(position % kWordSize);
    const std::size_t piece = std::min(kWordSize - begin, length - done);
    std::memcpy(buffer.data() + done, word.data() + begin, piece);
    done += piece;
  }
  return static_cast<std::int64_t>(length);
}

}  // namespace varo::sandbox
