#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Mutex.h"

#include <chrono>
#include <cstdint>

namespace varo::platform {

/// A token bucket: how many bytes may move in a second. Thread-safe.
///
/// Bytes come in pieces that nobody can cut, so a piece may be taken as soon as the bucket is not
/// in debt, and puts it there. Over any time the bytes are at most the rate times that time, one
/// piece more, and what was saved up while nothing moved: `kSaved` at the most.
class TokenBucket {
 public:
  using Duration = std::chrono::nanoseconds;

  /// What a pause may save up: enough that a thread which wakes late makes up for it.
  static constexpr std::chrono::milliseconds kSaved{200};

  /// `bytesPerSecond` is at least 1; `clock` must outlive it.
  explicit TokenBucket(std::uint64_t bytesPerSecond, const Clock& clock = Clock::system());

  /// How long until the next piece may be taken; zero: now.
  [[nodiscard]] Duration wait() const;
  void take(std::uint64_t bytes);

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  const double nanosecondsPerByte_;
  const Clock& clock_;
  mutable Mutex mutex_;
  TimePoint readyAt_ VARO_GUARDED_BY(mutex_);  // no debt from then on
};

/// How fast bytes may move, received and sent apart from each other, as lines are. Thread-safe.
class RateLimit {
 public:
  /// `bytesPerSecond` in each direction, at least 1.
  explicit RateLimit(std::uint64_t bytesPerSecond, const Clock& clock = Clock::system())
      : bytesPerSecond_(bytesPerSecond),
        receiving_(bytesPerSecond, clock),
        sending_(bytesPerSecond, clock) {}

  [[nodiscard]] TokenBucket& receiving() noexcept { return receiving_; }
  [[nodiscard]] TokenBucket& sending() noexcept { return sending_; }
  /// The largest piece, in bytes, that lets the rate be even; at least 1 KiB.
  [[nodiscard]] std::uint64_t piece() const noexcept;

 private:
  const std::uint64_t bytesPerSecond_;
  TokenBucket receiving_;
  TokenBucket sending_;
};

}  // namespace varo::platform
