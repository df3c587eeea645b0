#include "Client/Retries.h"

#include "Platform/Foundation/Random.h"

#include <algorithm>

namespace varo::detail {

platform::RetryPolicy policyFrom(const Retry& retry) {
  return {.attempts = retry.attempts,
          .firstWait = retry.firstWait,
          .longestWait = retry.longestWait,
          .longestRetryAfter = retry.longestRetryAfter};
}

Retries::Retries(const Retry& retry)
    : policy_(policyFrom(retry)), budget_(std::make_shared<platform::RetryBudget>(retry.budget)) {}

void Retries::requestWaits(int attempt, std::uint64_t done) noexcept {
  noteProgress(done);
  attempt_ = std::max(attempt_, attempt);
  ++waiting_;
}

void Retries::requestHasWaited() noexcept {
  if (waiting_ != 0) --waiting_;
}

std::optional<Retries::NextRun> Retries::nextRun(std::uint64_t done) {
  noteProgress(done);
  if (attempt_ >= policy_.attempts) return std::nullopt;
  const auto wait = policy_.waitBefore(attempt_ + 1, platform::Random::system());
  if (!budget_->take(wait)) return std::nullopt;
  return NextRun{++attempt_, wait};
}

void Retries::noteProgress(std::uint64_t done) noexcept {
  if (done <= done_) return;
  done_ = done;
  attempt_ = 1;
}

}  // namespace varo::detail
