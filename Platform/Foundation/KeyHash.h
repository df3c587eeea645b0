#pragma once

#include <cstdint>
#include <string_view>

namespace varo::platform {

/// SipHash-1-3 of `key` with a seed of the process: whoever chooses the keys of a dictionary, a
/// server's response for one, cannot have them collide. Thread-safe.
[[nodiscard]] std::uint64_t keyHash(std::string_view key) noexcept;

}  // namespace varo::platform
