#include "Binary/Binary/DownloadTask/ChunkBudget.h"

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

}  // namespace
}  // namespace varo::binary
