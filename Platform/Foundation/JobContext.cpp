#include "Platform/Foundation/JobContext.h"

namespace varo::platform {

std::function<void()> JobContext::keeping(std::function<void()> job) {
  return [job = std::move(job), context = current()] {
    const Scope scope(context);
    job();
  };
}

JobContext::Ptr& JobContext::slot() noexcept {
  static thread_local Ptr context;
  return context;
}

}  // namespace varo::platform
