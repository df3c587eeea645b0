#pragma once

#include "Platform/Foundation/Clock.h"

#include <atomic>
#include <chrono>

namespace varo::detail {

/// The time of a store as far as it is known: this computer's, corrected where the store has said
/// that it is too far away. Thread-safe.
class StoreClock final : public platform::Clock {
 public:
  [[nodiscard]] std::chrono::system_clock::time_point now() const override {
    return platform::Clock::system().now() + difference_.load();
  }
  [[nodiscard]] std::chrono::steady_clock::time_point steadyNow() const override {
    return platform::Clock::system().steadyNow();
  }
  void set(std::chrono::system_clock::time_point store) noexcept {
    difference_ = store - platform::Clock::system().now();
  }

 private:
  std::atomic<std::chrono::system_clock::duration> difference_{};
};

}  // namespace varo::detail
