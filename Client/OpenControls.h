#pragma once

#include "Client/Control.h"
#include "Platform/Foundation/Mutex.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace varo::detail {

/// The controls of all operations. The shutdown resumes them, to their end: the end of the network
/// alone ends none that is paused. Thread-safe.
class OpenControls {
 public:
  [[nodiscard]] static OpenControls& shared();

  /// Held weakly.
  void add(const std::shared_ptr<Control>& control);

 private:
  OpenControls();
  void resumeAll();

  platform::Mutex mutex_;
  std::vector<std::weak_ptr<Control>> controls_ VARO_GUARDED_BY(mutex_);
  /// At this size those that have ended are left out.
  std::size_t most_ VARO_GUARDED_BY(mutex_) = 64;
};

}  // namespace varo::detail
