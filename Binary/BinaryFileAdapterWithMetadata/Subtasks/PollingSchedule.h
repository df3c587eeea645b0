#pragma once

#include <chrono>
#include <cstdint>

/// When the status of an accepted delete is asked for. Help and documents take the numbers from
/// here.
namespace varo::binary::polling {

/// Status requests at most for one delete; after the last one it counts as failed.
inline constexpr std::int32_t kMaxStatusRequests = 5;

/// The longest wait between the status request of this number, from 1, and the next one: 1, 3, 7,
/// 15 seconds. The wait is a random number of whole seconds from 0 to that.
[[nodiscard]] constexpr std::chrono::seconds longestWaitAfter(std::int32_t request) noexcept {
  return std::chrono::seconds((std::int64_t{1} << request) - 1);
}

/// The longest of all waits.
inline constexpr std::chrono::seconds kLongestWait = longestWaitAfter(kMaxStatusRequests - 1);

/// All waits of one delete together, at most.
inline constexpr std::chrono::seconds kLongestWaits = [] {
  std::chrono::seconds sum{0};
  for (std::int32_t request = 1; request < kMaxStatusRequests; ++request) {
    sum += longestWaitAfter(request);
  }
  return sum;
}();

}  // namespace varo::binary::polling
