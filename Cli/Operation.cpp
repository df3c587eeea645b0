#include "Cli/Operation.h"

#include <chrono>
#include <utility>

namespace varo::cli {

using platform::MutexLock;
using platform::Value;

namespace {

constexpr std::chrono::milliseconds kTickInterval{200};

}  // namespace

Operation::Block Operation::onSuccess() {
  return [self = shared_from_this()](const Value& result) {
    self->end({Outcome::Kind::kSuccess, result});
  };
}

Operation::Block Operation::onFailure() {
  return [self = shared_from_this()](const Value& error) {
    self->end({Outcome::Kind::kFailure, error});
  };
}

Operation::Block Operation::onProgress(Block receiver) {
  return [self = shared_from_this(), receiver = std::move(receiver)](const Value& progress) {
    if (!self->ended()) receiver(progress);
  };
}

void Operation::interrupted() { end({Outcome::Kind::kInterrupted, {}}); }

void Operation::end(Outcome outcome) {
  MutexLock lock(mutex_);
  if (outcome_) return;
  outcome_ = std::move(outcome);
  changed_.notifyAll();
}

bool Operation::ended() const {
  MutexLock lock(mutex_);
  return outcome_.has_value();
}

Outcome Operation::wait(const std::function<std::optional<Outcome>()>& tick) {
  while (true) {
    {
      MutexLock lock(mutex_);
      const auto next = std::chrono::steady_clock::now() + kTickInterval;
      while (!outcome_ && changed_.waitUntil(mutex_, next) == std::cv_status::no_timeout) {
      }
      if (outcome_) return *outcome_;
    }
    if (std::optional<Outcome> given = tick()) end(*std::move(given));
  }
}

}  // namespace varo::cli
