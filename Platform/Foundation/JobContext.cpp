#include "Platform/Foundation/JobContext.h"

namespace varo::platform {

JobContext::Ptr& JobContext::slot() noexcept {
  static thread_local Ptr context;
  return context;
}

}  // namespace varo::platform
