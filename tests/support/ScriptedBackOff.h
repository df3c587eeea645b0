#pragma once

#include "Platform/Foundation/Random.h"
#include "Platform/Foundation/Sleeper.h"
#include "tests/support/Await.h"
#include "tests/support/CallLog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

namespace varo::test {

/// Draws the greatest number and notes the bounds. For one loop at a time.
class GreatestRandom final : public platform::Random {
 public:
  std::int64_t integer(std::int64_t least, std::int64_t greatest) override {
    EXPECT_EQ(least, 0);
    bounds.push_back(greatest);
    return greatest;
  }
  std::vector<std::int64_t> bounds;
};

/// Notes the delays, in milliseconds, and wakes at once. For one loop at a time.
class RecordingSleeper final : public platform::Sleeper {
 public:
  void wakeAfter(std::chrono::milliseconds delay, platform::TimerQueue::Job wake) override {
    delays.push_back(delay.count());
    wake(reason);
  }
  platform::TimerQueue::Reason reason = platform::TimerQueue::Reason::kDue;
  std::vector<std::int64_t> delays;
};

/// Keeps each wake-up until the test calls it.
class KeepingSleeper final : public platform::Sleeper {
 public:
  void wakeAfter(std::chrono::milliseconds /*delay*/, platform::TimerQueue::Job wake) override {
    wakes.add(std::move(wake));
  }
  /// When it has come.
  [[nodiscard]] platform::TimerQueue::Job first() const {
    EXPECT_TRUE(eventually([this] { return !wakes.calls().empty(); }));
    return wakes.calls().at(0);
  }
  CallLog<platform::TimerQueue::Job> wakes;
};

}  // namespace varo::test
