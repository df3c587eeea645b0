#include "Client/C/CallGate.h"

namespace varo::capi {

using platform::MutexLock;

bool CallGate::enter() noexcept {
  const MutexLock lock(mutex_);
  while (calling_ && !closed_) changed_.wait(mutex_);
  if (closed_) return false;
  calling_ = std::this_thread::get_id();
  return true;
}

void CallGate::leave() noexcept {
  const MutexLock lock(mutex_);
  calling_.reset();
  changed_.notifyAll();
}

void CallGate::close() noexcept {
  const MutexLock lock(mutex_);
  closed_ = true;
  changed_.notifyAll();
  while (calling_ && *calling_ != std::this_thread::get_id()) changed_.wait(mutex_);
}

}  // namespace varo::capi
