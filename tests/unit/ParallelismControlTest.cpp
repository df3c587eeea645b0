#include "Platform/Network/ParallelismControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace varo::test {
namespace {

using platform::ParallelismControl;

constexpr std::uint64_t kPart = 1'000'000;

/// A line in bytes a millisecond, and a wait before the first byte of each part.
struct Line {
  const char* name;
  double each, all;
  int delayMs;
};

struct Outcome {
  std::size_t most = 0, last = 0;
  double milliseconds = 0;
};

/// Moves the parts over the line, a millisecond a step, as many at once as the control allows.
Outcome moved(ParallelismControl& control, const Line& line, int parts) {
  struct Moving {
    ParallelismControl::Flight flight;
    int delay;
    double left;
  };
  Outcome run;
  std::vector<Moving> moving;
  ParallelismControl::TimePoint now{};
  while (parts > 0 || !moving.empty()) {
    while (parts > 0) {
      const auto flight = control.begin(now);
      if (!flight) break;
      --parts;
      moving.push_back({*flight, line.delayMs, kPart});
      run.last = control.allowed();
    }
    run.most = std::max(run.most, moving.size());
    now += std::chrono::milliseconds(1);
    run.milliseconds += 1;
    const auto busy = std::count_if(moving.begin(), moving.end(),
                                    [](const Moving& one) { return one.delay == 0; });
    for (Moving& one : moving) {
      if (one.delay-- > 0) continue;
      one.delay = 0;
      one.left -= std::min(line.each, line.all / static_cast<double>(std::max<long>(busy, 1)));
      if (one.left <= 0) control.succeeded(one.flight, now, kPart);
    }
    std::erase_if(moving, [](const Moving& one) { return one.left <= 0; });
  }
  EXPECT_EQ(control.inFlight(), 0U);
  return run;
}

TEST(ParallelismControlTest, GoesAsFarAsItPays) {
  constexpr double kNoLimit = std::numeric_limits<double>::max();
  const struct {
    Line line;
    std::size_t limit, least, most;
  } cases[] = {
      {{"each connection is slow", 10'000, kNoLimit, 0}, 8, 8, 8},
      {{"each answer comes late", 100'000, kNoLimit, 200}, 8, 8, 8},
      {{"a higher limit", 10'000, kNoLimit, 50}, 24, 24, 24},
      {{"one fills the line", kNoLimit, 10'000, 0}, 8, 1, 1},
      {{"four fill the line", 10'000, 40'000, 0}, 8, 4, 5},
      {{"one alone", 10'000, kNoLimit, 200}, 1, 1, 1},
      {{"no limit is none at once", 10'000, kNoLimit, 0}, 0, 1, 1},
  };
  for (const auto& [line, limit, least, most] : cases) {
    SCOPED_TRACE(line.name);
    ParallelismControl control(limit);
    const Outcome run = moved(control, line, 800);
    EXPECT_GE(control.allowed(), least);
    EXPECT_LE(control.allowed(), most + 1);  // the one that it tries at times
    EXPECT_LE(run.most, std::max<std::size_t>(limit, 1));
    EXPECT_LE(run.most, most + 1);
  }
}

TEST(ParallelismControlTest, FewPartsAreEnoughToProfit) {
  ParallelismControl control(8);
  const Line line{"each answer comes late", 100'000, 1e9, 90};
  EXPECT_LT(moved(control, line, 36).milliseconds, 36 * 100 * 0.3);
}

TEST(ParallelismControlTest, FollowsALineThatGetsWider) {
  ParallelismControl control(8);
  EXPECT_LE(moved(control, {"narrow", 10'000, 10'000, 0}, 200).last, 2U);
  EXPECT_EQ(moved(control, {"wide", 10'000, 1e9, 0}, 400).last, 8U);
}

TEST(ParallelismControlTest, FailuresThatComeTogetherHalveItOnce) {
  ParallelismControl control(8);
  static_cast<void>(moved(control, {"wide", 10'000, 1e9, 0}, 100));
  std::vector<ParallelismControl::Flight> flights;
  while (const auto flight = control.begin({})) flights.push_back(*flight);
  ASSERT_EQ(flights.size(), 8U);
  for (std::size_t i = 0; i < 4; ++i) control.failed(flights[i]);
  EXPECT_EQ(control.allowed(), 4U);
  EXPECT_FALSE(control.begin({})) << "four are in flight still";
  // One that is sent again is in flight, and its time counts for nothing.
  control.hadTrouble(flights[4]);
  for (std::size_t i = 4; i < 8; ++i) control.succeeded(flights[i], {}, kPart);
  EXPECT_EQ(control.allowed(), 4U);
  for (const std::size_t left : {2U, 1U, 1U}) {
    control.failed(*control.begin({}));
    EXPECT_EQ(control.allowed(), left);
  }
  EXPECT_EQ(moved(control, {"wide", 10'000, 1e9, 0}, 100).last, 8U) << "grows again";
}

}  // namespace
}  // namespace varo::test
