#pragma once

#include <cstddef>
#include <span>

namespace varo::platform::system {

/// Fills `bytes` from the system's generator, which no one can predict. Thread-safe.
void fillRandom(std::span<std::byte> bytes) noexcept;

}  // namespace varo::platform::system
