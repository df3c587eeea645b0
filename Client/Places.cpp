#include "Client/Places.h"

#include "Client/Operation.h"
#include "Platform/Foundation/Runtime.h"

#include <utility>

namespace varo::detail {

using platform::MutexLock;

void Places::wait(const std::shared_ptr<Operation>& operation) {
  queue_.schedule(operation);
  fill();
}

void Places::leave(const std::shared_ptr<Operation>& operation) {
  queue_.leaveWaiting(operation);
  // Resumed meanwhile, by somebody who found it still in the queue.
  if (operation->isWaiting()) queue_.schedule(operation);
  fill();
}

void Places::giveBack(const std::shared_ptr<Operation>& operation) {
  if (queue_.removeOneFromRunning(operation)) memory_.giveBack(operation->memory());
  fill();
}

/// Only one thread at a time is here, so the first one stays the first unless it leaves.
std::shared_ptr<Operation> Places::takeNext() {
  while (queue_.hasPlace()) {
    auto first = queue_.firstWaiting();
    if (first == nullptr || !memory_.take(first->memory())) return nullptr;
    if (queue_.takeToStart(first)) return first;
    memory_.giveBack(first->memory());
  }
  return nullptr;
}

void Places::run(platform::ThreadPool::Job job) const noexcept {
  const platform::JobContext::Scope scope(context_);
  platform::Runtime::shared().pool().postOrRun(std::move(job));
}

void Places::fill() {
  {
    const MutexLock lock(mutex_);
    again_ = true;
    if (filling_) return;
    filling_ = true;
  }
  const platform::JobContext::Scope scope(context_);  // for the jobs posted below
  for (;;) {
    {
      const MutexLock lock(mutex_);
      if (!again_) {
        filling_ = false;
        return;
      }
      again_ = false;
    }
    while (const auto next = takeNext()) {
      platform::Runtime::shared().pool().postOrRun([next] { next->start(); });
    }
  }
}

}  // namespace varo::detail
