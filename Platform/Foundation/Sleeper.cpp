#include "Platform/Foundation/Sleeper.h"

#include "Platform/Foundation/Runtime.h"

#include <utility>

namespace varo::platform {

Sleeper& Sleeper::shared() {
  // Never destroyed: loops may sleep until the very end.
  static auto& instance = *new TimerSleeper(Runtime::shared().timers());
  return instance;
}

void TimerSleeper::wakeAfter(std::chrono::milliseconds delay, TimerQueue::Job wake) {
  timers_.after(delay, std::move(wake));
}

}  // namespace varo::platform
