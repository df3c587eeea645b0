#pragma once

#include "varo/failure.h"
#include "varo/outcome.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

namespace varo::capi {

/// A mistake of the caller.
[[nodiscard]] Failure invalid(std::string message);
/// That the argument of this name is NULL.
[[nodiscard]] Failure missing(const char* argument);

/// A structure that the caller has filled, of whatever version: what an older header did not have
/// is zero, and what this library does not know has to be. NULL: all zero. `name` is its name in C.
template <typename Struct>
Outcome<Struct> givenStruct(const Struct* from, const char* name) {
  static_assert(std::is_trivially_copyable_v<Struct>);
  constexpr std::size_t kKnown = sizeof(Struct);
  // Nobody's structure has more; a larger number is none of ours.
  constexpr std::size_t kMost = 16 * kKnown;
  Struct copy;
  std::memset(&copy, 0, kKnown);
  if (from == nullptr) return copy;
  const std::size_t size = from->size;
  // Every version ends where a pointer or a number of 64 bits does.
  if (size == 0 || size % alignof(Struct) != 0 || size > kMost) {
    return invalid(std::string(name) + "::size is " + std::to_string(size) + ", not the size of " +
                   name);
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(from);
  std::memcpy(&copy, bytes, std::min(size, kKnown));
  if (size > kKnown &&
      std::any_of(bytes + kKnown, bytes + size, [](unsigned char byte) { return byte != 0; })) {
    return invalid(std::string(name) + " has a setting that this version of the library lacks");
  }
  return copy;
}

/// Fills as much of the caller's structure as it has. False where its size was not set.
template <typename Struct>
bool fillStruct(Struct* to, Struct filled) {
  static_assert(std::is_trivially_copyable_v<Struct>);
  const std::size_t size = to->size;
  if (size == 0 || size % alignof(Struct) != 0) return false;
  filled.size = size;
  std::memcpy(to, &filled, std::min(size, sizeof(Struct)));
  return true;
}

}  // namespace varo::capi
