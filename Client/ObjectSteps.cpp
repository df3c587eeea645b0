#include "Client/ObjectSteps.h"

#include "Client/Failures.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace varo::detail {

using platform::MutexLock;

void ObjectSteps::run(std::vector<std::size_t> indices, std::size_t atOnce,
                      const std::stop_token& cancellation, Step step, Done end) {
  if (indices.empty()) return end({});
  const std::size_t count = std::min(atOnce, indices.size());
  const auto steps =
      std::make_shared<ObjectSteps>(std::move(indices), std::move(step), std::move(end));
  steps->watch(cancellation);
  {
    // All of them first: one that ends at once must not be taken for the last.
    const MutexLock lock(steps->mutex_);
    steps->running_ = count;
  }
  for (std::size_t i = 0; i < count; ++i) {
    platform::Runtime::shared().pool().postOrRun([steps] { steps->startNext(); });
  }
}

ObjectSteps::ObjectSteps(std::vector<std::size_t> indices, Step step, Done end)
    : indices_(std::move(indices)), step_(std::move(step)), end_(std::move(end)) {}

void ObjectSteps::watch(const std::stop_token& cancellation) {
  // Not this: the last owner of the steps could then go inside the call.
  watch_.emplace(cancellation, [stop = stop_] { stop->cancel(); });
}

void ObjectSteps::startNext() {
  std::optional<std::size_t> index;
  {
    const MutexLock lock(mutex_);
    if (!failure_ && next_ < indices_.size()) index = indices_[next_++];
  }
  if (!index) return ended({});
  try {
    step_(*index, stop_->token(), [self = shared_from_this()](Outcome<void> outcome) {
      if (!outcome) return self->ended(std::move(outcome));
      self->startNext();
    });
  } catch (const std::exception& thrown) {
    ended(failureOf(Kind::kOther, thrown.what()));
  }
}

void ObjectSteps::ended(Outcome<void> outcome) {
  const bool hasFailed = !outcome;
  bool isLast = false;
  std::optional<Failure> failure;
  {
    const MutexLock lock(mutex_);
    // Later ones fail because the first has stopped them.
    if (hasFailed && !failure_) failure_ = std::move(outcome).error();
    isLast = --running_ == 0;
    if (isLast) failure = failure_;
  }
  if (isLast) return failure ? end_(*std::move(failure)) : end_({});
  if (hasFailed) stop_->cancel();
}

}  // namespace varo::detail
