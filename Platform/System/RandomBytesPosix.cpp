#include "Platform/System/RandomBytes.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <random>

namespace varo::platform::system {
namespace {

/// Where the system has no descriptor or memory left for its generator: not secret, but other
/// numbers in each process, thread and call.
std::uint64_t numberOfThisMoment() noexcept {
  const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  std::uint64_t number = static_cast<std::uint64_t>(now) ^ reinterpret_cast<std::uintptr_t>(&now);
  // The last step of SplitMix64, so that every bit of the number changes.
  number = (number ^ (number >> 30U)) * 0xbf58476d1ce4e5b9U;
  number = (number ^ (number >> 27U)) * 0x94d049bb133111ebU;
  return number ^ (number >> 31U);
}

}  // namespace

void fillRandom(std::span<std::byte> bytes) noexcept {
  try {
    std::random_device device;
    for (std::byte& byte : bytes) byte = static_cast<std::byte>(device());
  } catch (const std::exception&) {
    for (std::byte& byte : bytes) byte = static_cast<std::byte>(numberOfThisMoment());
  }
}

}  // namespace varo::platform::system
