#include "Binary/Binary/DownloadTask/ChunkBudget.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/OwnProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace varo::binary {
namespace {

TEST(ChunkBudgetTest, APlaceGoesToWhoeverWaitsLongestAndCanUseIt) {
  static ChunkBudget budget(2);  // the pool may give a place back at the very end
  const auto never = [](const ChunkBudget::Place&) { FAIL() << "it has got its place at once"; };
  ChunkBudget::Place first = budget.ask(1, never);
  ChunkBudget::Place second = budget.ask(1, never);
  ASSERT_TRUE(first != nullptr && second != nullptr);
  const ChunkBudget::Place third = budget.ask(3, never);
  ASSERT_NE(third, nullptr) << "alone it could use three";

  std::atomic<int> calls{0};  // the first two may be told at the same time
  const auto count = [&](const ChunkBudget::Place&) { ++calls; };
  std::promise<ChunkBudget::Place> got;
  ASSERT_EQ(budget.ask(3, count), nullptr);
  ASSERT_EQ(budget.ask(9, count), nullptr) << "others wait already";
  ASSERT_EQ(budget.ask(3, [&](const ChunkBudget::Place& place) { got.set_value(place); }), nullptr);
  second.reset();
  EXPECT_NE(got.get_future().get(), nullptr) << "those before it had no use for theirs";
  EXPECT_EQ(calls, 2) << "there is room for it only when both are done";
}

TEST(ChunkBudgetTest, WhoeverWaitedGoesOnInTheContextThatItWaitedIn) {
  static ChunkBudget budget(1);
  const auto context = std::make_shared<platform::JobContext>();
  ChunkBudget::Place first = budget.takeFirst();
  std::promise<platform::JobContext::Ptr> ran;
  {
    const platform::JobContext::Scope scope(context);
    ASSERT_EQ(
        budget.ask(1,
                   [&](const auto& /*place*/) { ran.set_value(platform::JobContext::current()); }),
        nullptr);
  }
  first.reset();
  EXPECT_EQ(ran.get_future().get(), context);
}

TEST(ChunkBudgetTest, AnyNumberIsHandedOutAfterTheShutdown) {
  test::inOwnProcess([] {
    platform::Runtime::shared().shutdown();
    constexpr int kMany = 200'000;  // a call within a call for each would use up the stack
    static ChunkBudget budget(1);
    int calls = 0;
    ChunkBudget::Place first = budget.takeFirst();
    for (int i = 0; i < kMany; ++i) {
      test::require(budget.ask(1, [&](const auto& /*place*/) { ++calls; }) == nullptr, "it waits");
    }
    first.reset();
    test::require(calls == kMany, "each has had its place");
  });
}

}  // namespace
}  // namespace varo::binary
