#include "Platform/Network/ParallelismControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
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
  std::size_t most = 0;
  double milliseconds = 0;
};

/// Moves the parts over the line, as many at once as the control allows.
Outcome moved(ParallelismControl& control, const Line& line, int parts) {
  Outcome outcome;
  double& now = outcome.milliseconds;
  const auto at = [](double time) {
    return ParallelismControl::TimePoint(std::chrono::microseconds(std::llround(time * 1'000)));
  };
  std::multimap<double, ParallelismControl::Flight> moving;  // by their end
  while (parts > 0 || !moving.empty()) {
    while (const auto flight = parts > 0 ? control.begin(at(now)) : std::nullopt) {
      const double share = line.all / static_cast<double>(control.allowed());
      moving.emplace(now + line.delayMs + kPart / std::min(line.each, share), *flight);
      --parts;
    }
    outcome.most = std::max(outcome.most, moving.size());
    now = moving.begin()->first;
    control.succeeded(moving.begin()->second, at(now), kPart);
    moving.erase(moving.begin());
  }
  EXPECT_EQ(control.inFlight(), 0U);
  return outcome;
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
      {{"one fills the line", kNoLimit, 10'000, 0}, 8, 1, 8},
      {{"four fill the line", 10'000, 40'000, 0}, 24, 4, 16},
      {{"a few fill the line", 10'000, 60'000, 0}, 8, 5, 8},
      {{"one alone", 10'000, kNoLimit, 200}, 1, 1, 1},
      {{"no limit is none at once", 10'000, kNoLimit, 0}, 0, 1, 1},
  };
  for (const auto& [line, limit, least, most] : cases) {
    SCOPED_TRACE(line.name);
    ParallelismControl control(limit);
    const std::size_t atOnce = moved(control, line, 800).most;
    EXPECT_GE(control.allowed(), least);
    EXPECT_LE(atOnce, most);  // it has to try more than it keeps
    const bool isHeldBack = most < limit;
    EXPECT_TRUE(!isHeldBack || control.allowed() <= least + 1) << control.allowed();
  }
}

TEST(ParallelismControlTest, FewPartsAreEnoughToProfit) {
  ParallelismControl control(8);
  const Outcome outcome = moved(control, {"each answer comes late", 100'000, 1e9, 90}, 36);
  EXPECT_LT(outcome.milliseconds, 36 * 100 / 5.0);
}

TEST(ParallelismControlTest, ALateAnswerToTheFirstAllowsEightAtOnce) {
  const auto allowedAfter = [](std::chrono::milliseconds wait, std::size_t most) {
    ParallelismControl control(most);
    control.answered(*control.begin({}), ParallelismControl::TimePoint(wait));
    return control.allowed();
  };
  using std::chrono_literals::operator""ms;
  EXPECT_EQ(allowedAfter(9ms, 24), 1U);
  EXPECT_EQ(allowedAfter(10ms, 24), 8U);
  EXPECT_EQ(allowedAfter(10ms, 3), 3U);
  ParallelismControl control(8);
  control.failed(*control.begin({}));
  control.answered(*control.begin({}), ParallelismControl::TimePoint(10ms));
  EXPECT_EQ(control.allowed(), 1U) << "a server in trouble is not to be pressed";
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
  EXPECT_EQ(moved(control, {"wide", 10'000, 1e9, 0}, 100).most, 8U) << "grows again";
}

}  // namespace
}  // namespace varo::test
