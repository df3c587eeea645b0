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

void Places::giveBack(const std::shared_ptr<Operation>& operation) {
  queue_.removeOneFromRunning(operation);
  fill();
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
    while (const auto next = queue_.takeFirstToStart()) {
      platform::Runtime::shared().pool().postOrRun([next] { next->start(); });
    }
  }
}

}  // namespace varo::detail
