#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace varo::test {

/// Whether the one allocation fails, or all from it on.
enum class Failing { kOne, kFromThen };

/// Lets allocations by `operator new`, on any thread, fail while it lives. Only in an executable
/// that has FailingAllocations.cpp in it. One at a time.
class FailingAllocations {
 public:
  /// The first that fails is number `first`, from 1.
  FailingAllocations(std::size_t first, Failing failing) noexcept;
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  /// Whether an allocation has failed.
  [[nodiscard]] static bool haveFailed() noexcept;
};

/// Calls `run` for one allocation after another that is to fail, until it returns false: none did.
/// Begins with 0, which never fails: what is made once is made then. Expects more than `least`.
template <typename Run>
void forEachAllocation(std::size_t least, const Run& run) {
  std::size_t n = 0;
  for (bool failed = true; failed && !testing::Test::HasFailure(); ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    failed = run(n) || n == 0;
  }
  EXPECT_GT(n, least) << "too little has been tried";
}

}  // namespace varo::test
