#include "Client/OpenControls.h"

#include "Platform/Foundation/Runtime.h"

#include <algorithm>

namespace varo::detail {

using platform::MutexLock;

OpenControls& OpenControls::shared() {
  static auto& instance = *new OpenControls();  // the runtime's shutdown may come last of all
  return instance;
}

OpenControls::OpenControls() {
  platform::Runtime::shared().onShutdown([this] { resumeAll(); });
}

void OpenControls::add(const std::shared_ptr<Control>& control) {
  const MutexLock lock(mutex_);
  if (controls_.size() >= most_) {
    std::erase_if(controls_, [](const auto& weak) { return weak.expired(); });
    most_ = std::max(most_, 2 * controls_.size());
  }
  controls_.push_back(control);
}

void OpenControls::resumeAll() {
  std::vector<std::weak_ptr<Control>> controls;
  {
    const MutexLock lock(mutex_);
    controls.swap(controls_);
  }
  for (const auto& weak : controls) {
    if (const auto control = weak.lock()) control->resume();
  }
}

}  // namespace varo::detail
