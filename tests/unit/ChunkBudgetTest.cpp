#include "Binary/Binary/DownloadTask/ChunkBudget.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/OwnProcess.h"

#include <gtest/gtest.h>

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

  int calls = 0;  // in turn, as each gives the next its place
  std::promise<ChunkBudget::Place> got;
  ASSERT_EQ(budget.ask(3, [&](const ChunkBudget::Place&) { ++calls; }), nullptr);
  ASSERT_EQ(budget.ask(9, [&](const ChunkBudget::Place& place) { got.set_value(place); }), nullptr)
      << "others wait already";
  second.reset();
  EXPECT_NE(got.get_future().get(), nullptr) << "the one before it had no use for it";
  EXPECT_EQ(calls, 1);
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
