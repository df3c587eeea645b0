#include "Platform/Foundation/Base64.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace varo::platform::base64 {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kForeign = 0xFF;

constexpr std::array<std::uint8_t, 256> makeDigits() {
  std::array<std::uint8_t, 256> digits{};
  digits.fill(kForeign);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    digits[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return digits;
}
constexpr std::array<std::uint8_t, 256> kDigits = makeDigits();

}  // namespace

std::optional<std::string> decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && text.ends_with('=')) {
    text.remove_suffix(1);
    ++padding;
  }
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t bits = 0;
  unsigned pending = 0;  // bits that have not become a byte
  for (const char c : text) {
    const std::uint8_t digit = kDigits[static_cast<unsigned char>(c)];
    if (digit == kForeign) return std::nullopt;
    // Bits that have become bytes already run out at the top.
    bits = (bits << 6U) | digit;
    pending += 6;
    if (pending < 8) continue;
    pending -= 8;
    bytes += static_cast<char>((bits >> pending) & 0xFFU);
  }
  return bytes;
}

}  // namespace varo::platform::base64
