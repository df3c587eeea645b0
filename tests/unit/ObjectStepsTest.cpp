#include "Client/Failures.h"
#include "Client/ObjectSteps.h"
#include "Platform/Foundation/Cancellation.h"
#include "tests/support/Await.h"
#include "tests/support/CallLog.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace varo::detail {
namespace {

using test::eventually;

/// Nine steps that begin, and end when the test says so.
class ObjectStepsTest : public testing::Test {
 protected:
  void start(std::size_t most, std::size_t window) {
    ObjectSteps::run(
        {0, 1, 2, 3, 4, 5, 6, 7, 8}, {platform::ParallelismControl(most), window},
        cancellation_.token(), [this](const ObjectSteps::Step& step) { begun_.add(step); },
        [this](const Outcome<void>& outcome) { outcomes_.add(outcome); });
  }
  [[nodiscard]] bool hasBegun(std::size_t index) const {
    return eventually([&] { return step(index).done != nullptr; });
  }
  [[nodiscard]] ObjectSteps::Step step(std::size_t index) const {
    for (const ObjectSteps::Step& one : begun_.calls()) {
      if (one.index == index) return one;
    }
    return {};
  }
  /// The later ones move so much that more at once pay, whatever the time.
  void end(std::size_t index) const { step(index).done(index == 0 ? 1 : std::uint64_t{1} << 60U); }

  platform::Cancellation cancellation_;
  test::CallLog<ObjectSteps::Step> begun_;
  test::CallLog<Outcome<void>> outcomes_;
};

TEST_F(ObjectStepsTest, OneThatGetsStuckHoldsUpOnlyWhatIsFarBehindIt) {
  start(3, 4);
  for (const std::size_t index : {0U, 2U, 3U, 4U}) {
    ASSERT_TRUE(hasBegun(index));
    end(index);
  }
  end(4);  // counts once
  EXPECT_EQ(begun_.calls().size(), 5U) << "5 waits for 1";
  end(1);
  for (std::size_t index = 5; index < 9; ++index) {
    ASSERT_TRUE(hasBegun(index));
    EXPECT_TRUE(outcomes_.calls().empty());
    end(index);
  }
  ASSERT_EQ(outcomes_.calls().size(), 1U);
  EXPECT_TRUE(outcomes_.calls()[0]);
}

TEST_F(ObjectStepsTest, TheFirstFailureStopsTheOthersAndIsTheOutcome) {
  start(4, 9);
  ASSERT_TRUE(hasBegun(0));
  end(0);
  ASSERT_TRUE(hasBegun(1) && hasBegun(2) && hasBegun(3) && hasBegun(4));
  step(1).onRetry();
  EXPECT_FALSE(step(2).stop.stop_requested());
  step(1).done(failureOf(Kind::kServer, "first"));
  EXPECT_TRUE(step(2).stop.stop_requested());
  EXPECT_TRUE(outcomes_.calls().empty()) << "others run still";
  for (const std::size_t other : {2U, 3U, 4U}) {
    step(other).done(failureOf(Kind::kCancelled, "second"));
  }
  step(2).onRetry();
  ASSERT_EQ(outcomes_.calls().size(), 1U);
  EXPECT_EQ(outcomes_.calls()[0].error().message, "first");
  EXPECT_EQ(begun_.calls().size(), 5U) << "no other has begun";
}

}  // namespace
}  // namespace varo::detail
