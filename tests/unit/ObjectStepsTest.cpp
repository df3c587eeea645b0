#include "Client/Failures.h"
#include "Client/ObjectSteps.h"
#include "Platform/Foundation/Cancellation.h"
#include "tests/support/Await.h"

#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <vector>

namespace varo::detail {
namespace {

using platform::MutexLock;
using test::eventually;

/// Steps that begin, and end when the test says so.
class ObjectStepsTest : public testing::Test {
 protected:
  void start(std::size_t count, std::size_t most, std::size_t window) {
    std::vector<std::size_t> indices(count);
    std::iota(indices.begin(), indices.end(), 0);
    ObjectSteps::run(
        std::move(indices), {platform::ParallelismControl(most), window}, cancellation_.token(),
        [this](const ObjectSteps::Step& step) {
          const MutexLock lock(mutex_);
          begun_.emplace(step.index, step);
        },
        [this](Outcome<void> outcome) {
          const MutexLock lock(mutex_);
          outcomes_.push_back(std::move(outcome));
        });
  }
  [[nodiscard]] bool hasBegun(std::size_t index) const {
    return eventually([&] {
      const MutexLock lock(mutex_);
      return begun_.count(index) == 1;
    });
  }
  [[nodiscard]] std::size_t begun() const {
    const MutexLock lock(mutex_);
    return begun_.size();
  }
  [[nodiscard]] ObjectSteps::Step step(std::size_t index) const {
    const MutexLock lock(mutex_);
    return begun_.at(index);
  }
  /// The later ones move so much that more at once pay, whatever the time.
  void end(std::size_t index) const { step(index).done(index == 0 ? 1 : std::uint64_t{1} << 60U); }
  [[nodiscard]] std::vector<Outcome<void>> outcomes() const {
    const MutexLock lock(mutex_);
    return outcomes_;
  }

  platform::Cancellation cancellation_;
  mutable platform::Mutex mutex_;
  std::map<std::size_t, ObjectSteps::Step> begun_ VARO_GUARDED_BY(mutex_);
  std::vector<Outcome<void>> outcomes_ VARO_GUARDED_BY(mutex_);
};

TEST_F(ObjectStepsTest, OneThatGetsStuckHoldsUpOnlyWhatIsFarBehindIt) {
  start(9, 3, 4);
  ASSERT_TRUE(hasBegun(0));
  end(0);
  ASSERT_TRUE(hasBegun(1));
  for (const std::size_t index : {2U, 3U, 4U}) {
    ASSERT_TRUE(hasBegun(index));
    end(index);
  }
  end(4);  // counts once
  EXPECT_EQ(begun(), 5U) << "5 waits for 1";
  end(1);
  for (std::size_t index = 5; index < 9; ++index) {
    ASSERT_TRUE(hasBegun(index));
    EXPECT_TRUE(outcomes().empty());
    end(index);
  }
  ASSERT_EQ(outcomes().size(), 1U);
  EXPECT_TRUE(outcomes()[0]);
}

TEST_F(ObjectStepsTest, TheFirstFailureStopsTheOthersAndIsTheOutcome) {
  for (const bool isCancelled : {false, true}) {
    SCOPED_TRACE(isCancelled);
    {
      const MutexLock lock(mutex_);
      begun_.clear();
      outcomes_.clear();
    }
    start(9, 8, 9);
    ASSERT_TRUE(hasBegun(0));
    end(0);
    ASSERT_TRUE(hasBegun(1) && hasBegun(2));
    step(1).onRetry();  // a half of two is left
    EXPECT_FALSE(step(2).stop.stop_requested());
    if (isCancelled) cancellation_.cancel();
    step(1).done(failureOf(Kind::kServer, "first"));
    EXPECT_TRUE(step(2).stop.stop_requested());
    EXPECT_TRUE(outcomes().empty()) << "2 runs still";
    step(2).done(failureOf(Kind::kCancelled, "second"));
    step(2).onRetry();
    ASSERT_EQ(outcomes().size(), 1U);
    EXPECT_EQ(outcomes()[0].error().message, "first");
    EXPECT_EQ(begun(), 3U) << "no other has begun";
  }
}

}  // namespace
}  // namespace varo::detail
