#include "Platform/Foundation/Clock.h"

#include "Platform/Foundation/NeverDestroyed.h"

namespace varo::platform {
namespace {

class SystemClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::system_clock::time_point now() const override {
    return std::chrono::system_clock::now();
  }
  [[nodiscard]] std::chrono::steady_clock::time_point steadyNow() const override {
    return std::chrono::steady_clock::now();
  }
};

}  // namespace

const Clock& Clock::system() noexcept {
  static NeverDestroyed<SystemClock> clock;
  return clock.get();
}

}  // namespace varo::platform
