#pragma once

#include "Platform/Foundation/Mutex.h"

#include <utility>

namespace varo::binary {

/// A block of the application that something carries for its owner. Who takes it has it alone.
/// Thread-safe.
template <typename Function>
class CarriedBlock {
 public:
  /// Puts `block`, which may be empty, in the place of the one before.
  void set(Function block) {
    const platform::MutexLock lock(mutex_);
    std::swap(block_, block);  // the parameter goes after the lock
  }
  /// Empty where there is none, or no more.
  [[nodiscard]] Function take() {
    const platform::MutexLock lock(mutex_);
    return std::exchange(block_, nullptr);
  }

 private:
  platform::Mutex mutex_;
  Function block_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
