#pragma once

#include "Binary/Binary/BinaryDataManager/BoundedQueue.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/MemoryBudget.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/ThreadPool.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace varo::detail {

class Operation;

/// The places of a client's operations: so many run at once, as long as the memory of all that they
/// need at most stays below the limit. The others wait for their turn, in the order in which they
/// came: one that needs much is not overtaken by those that need little. Thread-safe.
class Places {
 public:
  /// `count` operations run at once, in `context`; they have `memory` bytes together.
  Places(std::size_t count, std::uint64_t memory, platform::JobContext::Ptr context)
      : context_(std::move(context)), queue_(count), memory_(memory) {}

  [[nodiscard]] const platform::MemoryBudget& memory() const noexcept { return memory_; }

  /// Has the operation started when there is a place and the memory that it needs, on a thread of
  /// the pool. One that waits already keeps its turn. Precondition: it does not need more than
  /// there is.
  void wait(const std::shared_ptr<Operation>& operation);
  /// The operation has no use for a place any more. Those behind it do not wait for its memory.
  void leave(const std::shared_ptr<Operation>& operation);
  /// The operation does not need its place any more.
  void giveBack(const std::shared_ptr<Operation>& operation);
  /// Has `job` run on a thread of the pool, without a place.
  void run(platform::ThreadPool::Job job) const noexcept;

 private:
  void fill();
  /// The one that has waited longest, which now has a place and its memory; null: it has to wait.
  [[nodiscard]] std::shared_ptr<Operation> takeNext();

  const platform::JobContext::Ptr context_;
  binary::BoundedQueue<Operation> queue_;
  /// Of all that run in the queue.
  platform::MemoryBudget memory_;
  platform::Mutex mutex_;
  /// Whether a thread fills the places. After the pool's shutdown an operation starts, fails and
  /// gives its place back inside `fill`, and a call within a call for each of them would use up the
  /// stack.
  bool filling_ VARO_GUARDED_BY(mutex_) = false;
  bool again_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::detail
