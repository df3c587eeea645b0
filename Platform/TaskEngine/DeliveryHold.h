#pragma once

#include "Platform/Foundation/ThreadPool.h"

#include <cstdint>
#include <memory>

namespace varo::platform {

/// Keeps the notifications that this thread causes back while it lives. The outermost one of a
/// thread counts.
class DeliveryHold {
 public:
  /// Who delivers them afterwards.
  enum class Then : std::uint8_t {
    /// The pool: for whoever changes a task where others wait for him, a step of a queue above all.
    /// It matters after the runtime's shutdown, when what changes a task calls its listeners
    /// itself.
    kPool,
    /// This thread, which saves the wake-up of another: for the last thing that a job of the pool
    /// does, without a lock.
    kHere,
  };
  explicit DeliveryHold(Then then = Then::kPool) noexcept;
  ~DeliveryHold();
  DeliveryHold(const DeliveryHold&) = delete;
  DeliveryHold& operator=(const DeliveryHold&) = delete;

  /// Has the pool do it, or else this thread; when it holds deliveries, afterwards.
  static void deliver(std::shared_ptr<ThreadPool::Work> delivery) noexcept;

 private:
  const Then then_;
};

}  // namespace varo::platform
