#pragma once

#include "Platform/Foundation/Mutex.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace varo::platform {

/// So many bytes of memory that several share: each takes what it needs at most before it begins,
/// and gives it back at its end. Whoever gets none waits for its turn by its own means.
/// Thread-safe.
class MemoryBudget {
 public:
  static constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();

  explicit MemoryBudget(std::uint64_t limit = kUnlimited) noexcept : limit_(limit) {}

  [[nodiscard]] std::uint64_t limit() const noexcept { return limit_; }

  /// False, with nothing taken, where that much is not left.
  [[nodiscard]] bool take(std::uint64_t bytes) {
    const MutexLock lock(mutex_);
    if (bytes > limit_ - taken_) return false;
    taken_ += bytes;
    most_ = std::max(most_, taken_);
    return true;
  }
  void giveBack(std::uint64_t bytes) {
    const MutexLock lock(mutex_);
    taken_ -= bytes;
  }

  [[nodiscard]] std::uint64_t taken() const {
    const MutexLock lock(mutex_);
    return taken_;
  }
  /// How much was taken at the worst moment so far.
  [[nodiscard]] std::uint64_t most() const {
    const MutexLock lock(mutex_);
    return most_;
  }

 private:
  const std::uint64_t limit_;

  mutable Mutex mutex_;
  std::uint64_t taken_ VARO_GUARDED_BY(mutex_) = 0;
  std::uint64_t most_ VARO_GUARDED_BY(mutex_) = 0;
};

}  // namespace varo::platform
