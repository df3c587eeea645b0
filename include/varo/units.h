#pragma once

#include <compare>
#include <cstdint>

namespace varo {

/// A number of bytes. Never made from a bare number: write `4_MiB` or `Bytes(n)`.
struct Bytes {
  constexpr Bytes() noexcept = default;
  explicit constexpr Bytes(std::uint64_t number) noexcept : count(number) {}

  std::uint64_t count = 0;

  friend constexpr auto operator<=>(const Bytes&, const Bytes&) noexcept = default;
};

/// `using namespace varo::literals;`
inline namespace literals {

constexpr Bytes operator""_B(unsigned long long number) noexcept { return Bytes(number); }
constexpr Bytes operator""_KiB(unsigned long long number) noexcept { return Bytes(number << 10U); }
constexpr Bytes operator""_MiB(unsigned long long number) noexcept { return Bytes(number << 20U); }
constexpr Bytes operator""_GiB(unsigned long long number) noexcept { return Bytes(number << 30U); }

}  // namespace literals

}  // namespace varo
