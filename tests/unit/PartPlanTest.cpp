#include "Client/PartPlan.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace varo::detail {
namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20U;

TEST(PartPlanTest, PartsHoldAllBytesAndKeepToTheLimitsOfStores) {
  const struct {
    std::uint64_t size;
    Bytes wished;
    std::uint64_t partSize;
    std::size_t count;
  } kCases[] = {
      {0, 5_MiB, 5 * kMiB, 1},
      {5 * kMiB, 5_MiB, 5 * kMiB, 1},
      {5 * kMiB + 1, 5_MiB, 5 * kMiB, 2},
      {80'000 * kMiB, 8_MiB, 8 * kMiB, 10'000},
      // One byte more, and parts have to grow.
      {80'000 * kMiB + 1, 8_MiB, 9 * kMiB, 8889},
      {10'000 * 5120 * kMiB, 8_MiB, 5120 * kMiB, 10'000},
  };
  for (const auto& one : kCases) {
    SCOPED_TRACE(one.size);
    const auto plan = PartPlan::ofUpload(one.size, one.wished);
    ASSERT_TRUE(plan) << plan.error().message;
    EXPECT_EQ(plan->partSize, one.partSize);
    ASSERT_EQ(plan->count(), one.count);
    EXPECT_EQ(plan->first(one.count - 1) + plan->length(one.count - 1), one.size);
  }
}

TEST(PartPlanTest, WhatStoresRefuseIsRefused) {
  EXPECT_FALSE(PartPlan::ofUpload(1, Bytes(5 * kMiB - 1)));
  EXPECT_FALSE(PartPlan::ofUpload(1, Bytes(5120 * kMiB + 1)));
  EXPECT_FALSE(PartPlan::ofUpload(10'000 * 5120 * kMiB + 1, 8_MiB));
}

}  // namespace
}  // namespace varo::detail
