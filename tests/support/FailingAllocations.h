#pragma once

#include <cstddef>

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

}  // namespace varo::test
