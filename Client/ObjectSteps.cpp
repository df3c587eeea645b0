#include "Client/ObjectSteps.h"

#include "Client/Failures.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Runtime.h"

#include <exception>
#include <utility>

namespace varo::detail {

using platform::MutexLock;

namespace {

std::chrono::steady_clock::time_point now() { return platform::Clock::system().steadyNow(); }

}  // namespace

void ObjectSteps::run(std::vector<std::size_t> indices, Pace pace,
                      const std::stop_token& cancellation, Work work, End end) {
  if (indices.empty()) return end({});
  const auto steps =
      std::make_shared<ObjectSteps>(std::move(indices), pace, std::move(work), std::move(end));
  steps->watch(cancellation);
  steps->startNext();
}

ObjectSteps::ObjectSteps(std::vector<std::size_t> indices, Pace pace, Work work, End end)
    : indices_(std::move(indices)),
      window_(pace.window),
      work_(std::move(work)),
      end_(std::move(end)),
      control_(pace.control),
      begun_(pace.begun) {}

void ObjectSteps::watch(const std::stop_token& cancellation) {
  // Not this: the last owner of the steps could then go inside the call.
  watch_.emplace(cancellation, [stop = stop_] { stop->cancel(); });
}

void ObjectSteps::startNext() {
  while (const auto index = takeNext()) {
    platform::Runtime::shared().pool().postOrRun(
        [self = shared_from_this(), index = *index] { self->perform(index); });
  }
}

std::optional<std::size_t> ObjectSteps::takeNext() {
  const MutexLock lock(mutex_);
  if (failure_ || next_ == indices_.size()) return std::nullopt;
  const std::size_t index = indices_[next_];
  if (!running_.empty() && index - running_.begin()->first >= window_) return std::nullopt;
  const auto flight = begun_ ? std::exchange(begun_, std::nullopt) : control_.begin(now());
  if (!flight) return std::nullopt;
  ++next_;
  running_.emplace(index, *flight);
  return index;
}

void ObjectSteps::perform(std::size_t index) {
  const auto self = shared_from_this();
  try {
    work_({.index = index,
           .stop = stop_->token(),
           .onRetry = [self, index] { self->retried(index); },
           .done = [self, index](
                       Outcome<std::uint64_t> moved) { self->ended(index, std::move(moved)); }});
  } catch (const std::exception& thrown) {
    ended(index, failureOf(Kind::kOther, thrown.what()));
  }
}

void ObjectSteps::retried(std::size_t index) {
  const MutexLock lock(mutex_);
  const auto flight = running_.find(index);
  if (flight != running_.end()) control_.hadTrouble(flight->second);
}

void ObjectSteps::ended(std::size_t index, Outcome<std::uint64_t> moved) {
  const bool hasFailed = !moved;
  bool isLast = false;
  std::optional<Failure> failure;
  {
    const MutexLock lock(mutex_);
    const auto flight = running_.find(index);
    if (flight == running_.end()) return;  // it has thrown after it was done
    if (hasFailed) {
      control_.failed(flight->second);
    } else {
      control_.succeeded(flight->second, now(), *moved);
    }
    running_.erase(flight);
    // Later ones fail because the first has stopped them.
    if (hasFailed && !failure_) failure_ = std::move(moved).error();
    isLast = running_.empty() && (failure_ || next_ == indices_.size());
    if (isLast) failure = failure_;
  }
  if (isLast) return failure ? end_(*std::move(failure)) : end_({});
  if (hasFailed) stop_->cancel();
  startNext();
}

}  // namespace varo::detail
