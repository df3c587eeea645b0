#pragma once

#include "Platform/Foundation/Sleeper.h"

#include <chrono>
#include <stop_token>

namespace varo::binary {

/// Waits with another sleeper, and wakes at once where a cancellation comes first.
///
/// For one loop: `setCancellation` comes before its first wait, on whatever thread.
class CancellableSleeper final : public platform::Sleeper {
 public:
  /// `sleeper` must outlive this one.
  explicit CancellableSleeper(platform::Sleeper& sleeper) : sleeper_(sleeper) {}

  void setCancellation(std::stop_token cancellation);
  /// A cancelled wait ends like one that has elapsed; whoever waited checks for the cancellation.
  void wakeAfter(std::chrono::milliseconds delay, platform::TimerQueue::Job wake) override;

 private:
  platform::Sleeper& sleeper_;
  std::stop_token cancellation_;
};

}  // namespace varo::binary
