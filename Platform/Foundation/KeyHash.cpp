#include "Platform/Foundation/KeyHash.h"

#include "Platform/System/RandomBytes.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

namespace varo::platform {
namespace {

using Seed = std::array<std::uint64_t, 2>;

const Seed& seed() noexcept {
  static const Seed instance = [] {
    Seed bits{};
    // Others in each process, so that no server can send keys that all hash alike.
    system::fillRandom(std::as_writable_bytes(std::span(bits)));
    return bits;
  }();
  return instance;
}

struct SipState {
  std::uint64_t v0, v1, v2, v3;

  void round() noexcept {
    v0 += v1;
    v1 = std::rotl(v1, 13) ^ v0;
    v0 = std::rotl(v0, 32);
    v2 += v3;
    v3 = std::rotl(v3, 16) ^ v2;
    v0 += v3;
    v3 = std::rotl(v3, 21) ^ v0;
    v2 += v1;
    v1 = std::rotl(v1, 17) ^ v2;
    v2 = std::rotl(v2, 32);
  }
  void take(std::uint64_t word) noexcept {
    v3 ^= word;
    round();
    v0 ^= word;
  }
};

}  // namespace

std::uint64_t keyHash(std::string_view key) noexcept {
  const auto& [k0, k1] = seed();
  // SipHash-1-3: one round for each word, three at the end. The constants are the algorithm's own.
  SipState state{k0 ^ 0x736f6d6570736575U, k1 ^ 0x646f72616e646f6dU, k0 ^ 0x6c7967656e657261U,
                 k1 ^ 0x7465646279746573U};
  const std::uint64_t length = key.size();
  for (; key.size() >= sizeof(std::uint64_t); key.remove_prefix(sizeof(std::uint64_t))) {
    std::uint64_t word = 0;
    std::memcpy(&word, key.data(), sizeof(word));
    state.take(word);
  }
  std::uint64_t last = 0;
  if (!key.empty()) std::memcpy(&last, key.data(), key.size());
  state.take(last | (length << 56U));
  state.v2 ^= 0xFFU;
  for (int i = 0; i < 3; ++i) state.round();
  return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace varo::platform
