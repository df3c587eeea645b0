#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Network/HttpTransport.h"

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
  /// Takes the time from the refusal of a request that was signed at `signedAt`. False where the
  /// difference is not why it was refused.
  [[nodiscard]] bool correct(const platform::HttpResponse& refusal,
                             std::chrono::system_clock::time_point signedAt);

 private:
  std::atomic<std::chrono::system_clock::duration> difference_{};
};

}  // namespace varo::detail
