#pragma once

#include <chrono>

namespace varo::platform {

/// Tells the time, so that tests can. Thread-safe.
class Clock {
 public:
  virtual ~Clock() = default;

  /// The time of day: since 1970-01-01 UTC, leap seconds not counted. May jump.
  [[nodiscard]] virtual std::chrono::system_clock::time_point now() const = 0;
  /// For measuring how long something takes; never goes back.
  [[nodiscard]] virtual std::chrono::steady_clock::time_point steadyNow() const = 0;

  /// The computer's clocks.
  [[nodiscard]] static const Clock& system() noexcept;
};

}  // namespace varo::platform
