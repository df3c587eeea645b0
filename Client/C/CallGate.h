#pragma once

#include "Platform/Foundation/Mutex.h"

#include <optional>
#include <thread>

namespace varo::capi {

/// Lets calls of an application's function through, one at a time, until it is closed. A function
/// in C has nothing that keeps its data alive, so it must not be called when its owner is gone.
/// Thread-safe. Nothing is called with the lock held.
class CallGate {
 public:
  /// Waits for its turn. Whether a call may begin; then `leave` has to follow on the same thread.
  [[nodiscard]] bool enter() noexcept;
  void leave() noexcept;
  /// When it returns no call runs, and none begins. Inside a call it does not wait for that.
  void close() noexcept;

 private:
  platform::Mutex mutex_;
  platform::ConditionVariable changed_;
  bool closed_ VARO_GUARDED_BY(mutex_) = false;
  /// The thread that a call runs on.
  std::optional<std::thread::id> calling_ VARO_GUARDED_BY(mutex_);
};

/// One call through a gate.
class CallPass {
 public:
  explicit CallPass(CallGate& gate) noexcept : gate_(gate), isLet_(gate.enter()) {}
  CallPass(const CallPass&) = delete;
  CallPass& operator=(const CallPass&) = delete;
  ~CallPass() {
    if (isLet_) gate_.leave();
  }

  explicit operator bool() const noexcept { return isLet_; }

 private:
  CallGate& gate_;
  const bool isLet_;
};

}  // namespace varo::capi
