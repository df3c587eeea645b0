#pragma once

#include "Binary/Binary/BinaryDataManager/BoundedQueue.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/ThreadPool.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace varo::detail {

class Operation;

/// The places of a client's operations: so many run at once, the others wait for their turn, in the
/// order in which they came. Thread-safe.
class Places {
 public:
  /// `count` operations run at once, in `context`.
  Places(std::size_t count, platform::JobContext::Ptr context)
      : context_(std::move(context)), queue_(count) {}

  /// Has the operation started when there is a place, on a thread of the pool. One that waits
  /// already keeps its turn.
  void wait(const std::shared_ptr<Operation>& operation);
  /// The operation does not need its place any more.
  void giveBack(const std::shared_ptr<Operation>& operation);
  /// Has `job` run on a thread of the pool, without a place.
  void run(platform::ThreadPool::Job job) const noexcept;

 private:
  void fill();

  const platform::JobContext::Ptr context_;
  binary::BoundedQueue<Operation> queue_;
  platform::Mutex mutex_;
  /// Whether a thread fills the places. After the pool's shutdown an operation starts, fails and
  /// gives its place back inside `fill`, and a call within a call for each of them would use up the
  /// stack.
  bool filling_ VARO_GUARDED_BY(mutex_) = false;
  bool again_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::detail
