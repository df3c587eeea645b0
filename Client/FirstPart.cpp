#include "Client/FirstPart.h"

#include <utility>

namespace varo::detail {

using platform::MutexLock;

FirstPart::FirstPart(Taker alone, const std::stop_token& run) : taker_(std::move(alone)) {
  endWith(run);
}

/// Not this: its last owner could go inside the call, and the function with it.
void FirstPart::endWith(const std::stop_token& token) {
  ends_.emplace_back(token, [stop = stop_] {
    const auto held = stop;
    held->cancel();
  });
}

void FirstPart::answered(const Outcome<platform::HttpResponse>& answer) {
  Taker taker;
  {
    const MutexLock lock(mutex_);
    taker = std::exchange(taker_, nullptr);
    if (taker == nullptr) answer_ = answer;
  }
  if (taker != nullptr) taker(answer);
}

bool FirstPart::claim() {
  const MutexLock lock(mutex_);
  if (isClaimed_ || taker_ == nullptr) return false;
  isClaimed_ = true;
  alone_ = std::exchange(taker_, nullptr);
  return true;
}

void FirstPart::stayAlone() {
  const MutexLock lock(mutex_);
  isClaimed_ = true;
}

void FirstPart::takeIn(const std::stop_token& step, Taker taker) {
  endWith(step);
  give(std::move(taker));
}

void FirstPart::takeAlone() {
  Taker alone;
  {
    const MutexLock lock(mutex_);
    alone = std::move(alone_);
  }
  give(std::move(alone));
}

void FirstPart::give(Taker taker) {
  std::optional<Outcome<platform::HttpResponse>> answer;
  {
    const MutexLock lock(mutex_);
    if (!answer_) {
      taker_ = std::move(taker);
      return;
    }
    answer = std::exchange(answer_, std::nullopt);
  }
  taker(*answer);
}

}  // namespace varo::detail
