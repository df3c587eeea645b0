#include "Platform/Network/RateLimit.h"
#include "tests/support/SteppingClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

namespace varo::test {
namespace {

using namespace platform;
using namespace std::chrono_literals;

constexpr std::uint64_t kKiB = 1024;

/// Bytes that move in ten seconds where whoever moves them looks every `tick`, in pieces of `piece`
/// bytes; after the first five seconds it sleeps for `nap`.
std::uint64_t movedInTenSeconds(std::uint64_t rate, std::uint64_t piece,
                                std::chrono::microseconds tick, std::chrono::milliseconds nap) {
  SteppingClock clock(1'000);
  TokenBucket bucket(rate, clock);
  const auto begin = clock.steadyNow();
  std::uint64_t moved = 0;
  while (clock.steadyNow() - begin < 10s) {
    for (; bucket.wait() == 0ns; moved += piece) bucket.take(piece);
    // As the engine does: until the next turn, and never finer than it can wait.
    clock.advance(std::max<std::chrono::nanoseconds>(bucket.wait(), tick));
    if (nap > 0ms && clock.steadyNow() - begin > 5s) clock.advance(std::exchange(nap, 0ms));
  }
  return moved;
}

TEST(TokenBucketTest, KeepsItsRateOverTenSecondsWithinFivePercent) {
  const struct {
    std::uint64_t rate, piece;
    std::chrono::microseconds tick;
    std::chrono::milliseconds nap;
  } cases[] = {
      {100 * kKiB, 16 * kKiB, 1ms, 0ms},
      {1'000'000, 16 * kKiB, 1ms, 0ms},
      {1'000'000, 16 * kKiB, 50ms, 0ms},     // a busy machine
      {1'000'000, 16 * kKiB, 1ms, 190ms},    // what is missed in a short sleep is made up for
      {200'000'000, 16 * kKiB, 1ms, 0ms},    // many pieces a turn
      {50 * kKiB, 1, 1ms, 0ms},              // pieces of less than a turn
      {300'000'000, 16 * kKiB, 100us, 0ms},  // a piece takes microseconds
  };
  for (const auto& [rate, piece, tick, nap] : cases) {
    const double share = static_cast<double>(movedInTenSeconds(rate, piece, tick, nap)) /
                         (10.0 * static_cast<double>(rate));
    EXPECT_GT(share, 0.95) << rate << " in pieces of " << piece;
    EXPECT_LT(share, 1.05) << rate << " in pieces of " << piece;
  }
}

TEST(TokenBucketTest, SavesUpNoMoreThanAShortWhile) {
  SteppingClock clock(1'000);
  TokenBucket bucket(1'000'000, clock);
  clock.advance(1h);
  std::uint64_t atOnce = 0;
  for (; bucket.wait() == 0ns; atOnce += 1'000) bucket.take(1'000);
  EXPECT_EQ(atOnce, 201'000U);  // 0.2 s, and the piece that makes the debt
  EXPECT_EQ(bucket.wait(), 1ms);
}

TEST(TokenBucketTest, SurvivesNumbersBeyondMeasure) {
  SteppingClock clock(1'000);
  for (const std::uint64_t rate : {std::uint64_t{0}, std::uint64_t{1}, ~std::uint64_t{0}}) {
    TokenBucket bucket(rate, clock);
    for (int i = 0; i < 1'000; ++i) bucket.take(~std::uint64_t{0});
    EXPECT_GT(bucket.wait(), 0ns);
  }
}

}  // namespace
}  // namespace varo::test
