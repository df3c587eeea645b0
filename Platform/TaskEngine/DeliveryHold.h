#pragma once

#include "Platform/Foundation/ThreadPool.h"

#include <memory>

namespace varo::platform {

/// Keeps the notifications that this thread causes back while it lives: for whoever changes a task
/// where others wait for him, a step of a queue above all. It matters after the runtime's shutdown,
/// when what changes a task calls its listeners itself. The outermost one of a thread counts.
class DeliveryHold {
 public:
  DeliveryHold() noexcept;
  ~DeliveryHold();
  DeliveryHold(const DeliveryHold&) = delete;
  DeliveryHold& operator=(const DeliveryHold&) = delete;

  /// Has the pool do it, or else this thread; when it holds deliveries, afterwards.
  static void deliver(std::shared_ptr<ThreadPool::Work> delivery) noexcept;
};

}  // namespace varo::platform
