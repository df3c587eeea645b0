#include "Client/PartPlan.h"

#include "Client/Failures.h"

#include <fmt/format.h>

#include <algorithm>

namespace varo::detail {
namespace {

// The interface's own limits.
constexpr std::uint64_t kSmallestPart = std::uint64_t{5} << 20U;
constexpr std::uint64_t kLargestPart = std::uint64_t{5} << 30U;
constexpr std::uint64_t kMostParts = 10'000;
/// Parts that had to grow are a whole number of these.
constexpr std::uint64_t kStep = std::uint64_t{1} << 20U;

}  // namespace

Outcome<PartPlan> PartPlan::ofUpload(std::uint64_t size, Bytes wished) {
  if (wished.count < kSmallestPart || wished.count > kLargestPart) {
    return failureOf(
        Kind::kInvalidArgument,
        fmt::format("PutOptions::partSize is {} bytes, not from 5 MiB to 5 GiB", wished.count));
  }
  const std::uint64_t needed = ((size + kMostParts - 1) / kMostParts + kStep - 1) / kStep * kStep;
  const std::uint64_t partSize = std::max(wished.count, needed);
  if (partSize > kLargestPart) {
    return failureOf(Kind::kInvalidArgument,
                     fmt::format("The source has {} bytes, more than 10,000 parts of 5 GiB", size));
  }
  return PartPlan{size, partSize};
}

Outcome<void> checkedSideBySide(int most, std::string_view option) {
  if (most >= 1 && most <= kMostSideBySide) return {};
  return failureOf(Kind::kInvalidArgument,
                   fmt::format("{} is {}, not from 1 to {}", option, most, kMostSideBySide));
}

}  // namespace varo::detail
