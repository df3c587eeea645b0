#include "Cli/Run/Operation.h"

#include "Cli/Failures/CommandErrors.h"
#include "Platform/Foundation/Error.h"

#include <chrono>
#include <utility>

namespace varo::cli {

using platform::MutexLock;
using platform::Value;

namespace {

constexpr std::chrono::milliseconds kTickInterval{200};

}  // namespace

const Value& unexpectedFailure() {
  static const Value failure = platform::Error::make(
      kCommandLineErrorDomain, kCodeUnexpected,
      "the command was broken off: there was no memory left, or something unexpected happened");
  return failure;
}

Operation::Block Operation::onSuccess() {
  return [self = shared_from_this()](const Value& result) {
    self->end(Outcome::Kind::kSuccess, result);
  };
}

Operation::Block Operation::onFailure() {
  return [self = shared_from_this()](const Value& error) {
    self->end(Outcome::Kind::kFailure, error);
  };
}

Operation::Block Operation::onPaused() {
  return
      [self = shared_from_this()](const Value& state) { self->end(Outcome::Kind::kPaused, state); };
}

Operation::Block Operation::onProgress(Block receiver) {
  return [self = shared_from_this(), receiver = std::move(receiver)](const Value& progress) {
    // Another thread may still report after the end; people then see no bar move behind the result.
    if (!self->ended()) receiver(progress);
  };
}

void Operation::interrupted() {
  // Not at once with the other kind: it ends through its tick, which pauses the download first.
  if (onInterrupt_ == OnInterrupt::kEnd) return end(Outcome::Kind::kInterrupted, {});
  MutexLock lock(mutex_);
  tickIsDue_ = true;
  changed_.notifyAll();
}

void Operation::end(Outcome::Kind kind, const Value& value) noexcept {
  MutexLock lock(mutex_);
  // The first end counts. An interrupt and a result may well come at the same time.
  if (outcome_) return;
  try {
    outcome_ = Outcome{kind, value};
  } catch (...) {
    // The copy of the value found no memory. This one is made already, and copying it takes none.
    outcome_ = Outcome{Outcome::Kind::kFailure, unexpectedFailure()};
  }
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
      // A fixed point in time: wake-ups without a reason must not put the tick off again and again.
      const auto next = std::chrono::steady_clock::now() + kTickInterval;
      while (!outcome_ && !tickIsDue_ &&
             changed_.waitUntil(mutex_, next) == std::cv_status::no_timeout) {
      }
      if (outcome_) return *outcome_;
      tickIsDue_ = false;
    }
    // Without the lock: the tick writes to the terminal, which may be slow, while blocks end the
    // operation.
    if (const std::optional<Outcome> given = tick()) end(given->kind, given->value);
  }
}

}  // namespace varo::cli
