#pragma once

#include "Platform/Foundation/Clock.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace varo::test {

/// Starts at a given second since 1970-01-01 UTC, and `past` it, and goes on by `step` seconds each
/// time it is read.
class SteppingClock final : public platform::Clock {
 public:
  explicit SteppingClock(std::int64_t second, std::int64_t step = 0,
                         std::chrono::milliseconds past = {})
      : second_(second), step_(step), past_(past) {}

  [[nodiscard]] std::chrono::system_clock::time_point now() const override {
    return std::chrono::system_clock::time_point(std::chrono::seconds(second_.fetch_add(step_)) +
                                                 past_);
  }
  [[nodiscard]] std::chrono::steady_clock::time_point steadyNow() const override {
    return std::chrono::steady_clock::time_point(std::chrono::seconds(second_.load()) +
                                                 std::chrono::nanoseconds(advanced_.load()));
  }
  /// Of the clock that never goes back.
  void advance(std::chrono::nanoseconds by) { advanced_ += by.count(); }

 private:
  mutable std::atomic<std::int64_t> second_;
  std::atomic<std::int64_t> advanced_{0};  // nanoseconds
  const std::int64_t step_;
  const std::chrono::milliseconds past_;
};

}  // namespace varo::test
