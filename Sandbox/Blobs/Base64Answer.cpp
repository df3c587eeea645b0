#include "Sandbox/Blobs/Base64Answer.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace varo::sandbox {
namespace {

constexpr std::string_view kBefore = R"({"d":{"results":")";
constexpr std::string_view kAfter = R"("}})";
constexpr std::size_t kGroups = 4096;  // of three bytes, encoded at once

}  // namespace

std::uint64_t Base64Answer::length() const {
  return kBefore.size() + encodedLength() + kAfter.size();
}

bool Base64Answer::read(std::uint64_t offset, std::span<char> buffer) const {
  std::size_t done = 0;
  if (offset > length() || buffer.size() > length() - offset) return false;
  while (done < buffer.size()) {
    const std::uint64_t position = offset + done;
    const std::span<char> rest = buffer.subspan(done);
    const std::uint64_t end = kBefore.size() + encodedLength();
    std::size_t piece = 0;
    if (position < kBefore.size()) {
      piece = kBefore.copy(rest.data(), rest.size(), static_cast<std::size_t>(position));
    } else if (position >= end) {
      piece = kAfter.copy(rest.data(), rest.size(), static_cast<std::size_t>(position - end));
    } else {
      piece = encode(position - kBefore.size(), rest);
      if (piece == 0) return false;
    }
    done += piece;
  }
  return true;
}

std::size_t Base64Answer::encode(std::uint64_t offset, std::span<char> buffer) const {
  std::array<char, 3 * kGroups> raw;
  std::array<unsigned char, 4 * kGroups + 1> text;  // the encoder ends it with a zero byte
  // Three bytes are four characters, and only such a group can be encoded alone. Padding is right,
  // too: fewer bytes than asked for come at the end only, as long as pieces are whole groups.
  const std::uint64_t begin = offset / 4 * 3;
  const std::uint64_t wanted = std::min<std::uint64_t>(size_ - begin, raw.size());
  if (!bytes_(begin, std::span(raw).first(wanted))) return 0;
  const int encoded = ::EVP_EncodeBlock(
      text.data(), reinterpret_cast<const unsigned char*>(raw.data()), static_cast<int>(wanted));
  const std::string_view view(reinterpret_cast<const char*>(text.data()),
                              static_cast<std::size_t>(encoded));
  return view.copy(buffer.data(), buffer.size(), static_cast<std::size_t>(offset % 4));
}

}  // namespace varo::sandbox
