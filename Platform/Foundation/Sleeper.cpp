#include "Platform/Foundation/Sleeper.h"

#include "Platform/Foundation/Runtime.h"

#include <utility>

namespace varo::platform {
namespace {

class TimerSleeper final : public Sleeper {
 public:
  void wakeAfter(std::chrono::milliseconds delay, TimerQueue::Job wake) override {
    Runtime::shared().timers().after(delay, std::move(wake));
  }
};

}  // namespace

Sleeper& Sleeper::shared() {
  static auto& instance = *new TimerSleeper();  // loops may sleep until the very end
  return instance;
}

}  // namespace varo::platform
