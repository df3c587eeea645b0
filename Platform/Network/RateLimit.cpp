#include "Platform/Network/RateLimit.h"

#include <algorithm>

namespace varo::platform {

TokenBucket::TokenBucket(std::uint64_t bytesPerSecond, const Clock& clock)
    : nanosecondsPerByte_(1e9 / static_cast<double>(std::max<std::uint64_t>(bytesPerSecond, 1))),
      clock_(clock),
      readyAt_(clock.steadyNow()) {}

TokenBucket::Duration TokenBucket::wait() const {
  const auto now = clock_.steadyNow();
  const MutexLock lock(mutex_);
  return std::max(std::chrono::duration_cast<Duration>(readyAt_ - now), Duration::zero());
}

void TokenBucket::take(std::uint64_t bytes) {
  // A debt that takes longer is none that anybody waits for; and no sum of two overflows.
  constexpr double kLongest = 1e9 * 60 * 60 * 24 * 365;
  const double cost = std::min(static_cast<double>(bytes) * nanosecondsPerByte_, kLongest);
  const auto now = clock_.steadyNow();
  const MutexLock lock(mutex_);
  const TimePoint latest = now + Duration(static_cast<std::int64_t>(kLongest));
  readyAt_ = std::max(readyAt_, now - kSaved) + Duration(static_cast<std::int64_t>(cost));
  readyAt_ = std::min(readyAt_, latest);
}

std::uint64_t RateLimit::piece() const noexcept {
  constexpr std::uint64_t kPiecesPerSecond = 20;
  constexpr std::uint64_t kLeast = 1024;
  return std::max(bytesPerSecond_ / kPiecesPerSecond, kLeast);
}

}  // namespace varo::platform
