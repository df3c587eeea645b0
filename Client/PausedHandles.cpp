#include "Client/PausedHandles.h"

#include "Client/Running.h"
#include "Platform/Foundation/Runtime.h"

#include <vector>

namespace varo::detail {

using platform::MutexLock;

PausedHandles& PausedHandles::shared() {
  static auto& instance = *new PausedHandles();
  return instance;
}

PausedHandles::PausedHandles() {
  platform::Runtime::shared().onShutdown([this] { resumeAll(); });
}

void PausedHandles::note(const std::shared_ptr<RunningBase>& handle) {
  const MutexLock lock(mutex_);
  noted_.try_emplace(handle.get(), handle);
}

void PausedHandles::forget(const RunningBase& handle) noexcept {
  const MutexLock lock(mutex_);
  noted_.erase(&handle);
}

void PausedHandles::resumeAll() {
  // Held until none is locked: the last reference to one of them forgets it.
  std::vector<std::shared_ptr<RunningBase>> all;
  {
    const MutexLock lock(mutex_);
    all.reserve(noted_.size());
    for (const auto& [handle, noted] : noted_) all.push_back(noted.lock());
  }
  for (const auto& handle : all) {
    if (handle != nullptr) handle->resume();
  }
}

}  // namespace varo::detail
