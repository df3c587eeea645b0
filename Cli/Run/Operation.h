#pragma once

#include "Cli/Run/Interrupts.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace varo::cli {

/// How an operation of the library ended for us.
struct Outcome {
  enum class Kind { kSuccess, kFailure, kPaused, kInterrupted, kSilent };
  Kind kind = Kind::kFailure;
  /// What the success or the failure block received; of a pause {"id", "result"}; missing for an
  /// interrupt.
  platform::Value value;
};

/// The failure for when memory runs out or an unexpected exception arrives. Made when it is first
/// asked for: the constructor of `Operation` does that, while there is memory.
[[nodiscard]] const platform::Value& unexpectedFailure();

/// One operation of the library: the blocks to give it, and a place to wait for its outcome.
///
/// The first outcome counts, later ones are dropped. The blocks keep what they need alive, so they
/// may be called as late as they like. Thread-safe.
class Operation : public Interruptible, public std::enable_shared_from_this<Operation> {
 public:
  using Block = std::function<void(const platform::Value&)>;
  /// What an interrupt does: it ends the operation, or has `tick` called at once, which then knows
  /// better how to end it.
  enum class OnInterrupt { kEnd, kTick };

  explicit Operation(OnInterrupt onInterrupt = OnInterrupt::kEnd) : onInterrupt_(onInterrupt) {
    (void)unexpectedFailure();
  }

  /// Blocks to hand to the library. Progress is passed on until there is an outcome.
  [[nodiscard]] Block onSuccess();
  [[nodiscard]] Block onFailure();
  [[nodiscard]] Block onPaused();
  [[nodiscard]] Block onProgress(Block receiver);

  void interrupted() override;

  /// Waits for the outcome, calling `tick` several times a second, which may give one of its own.
  [[nodiscard]] Outcome wait(const std::function<std::optional<Outcome>()>& tick);

 private:
  /// An outcome that cannot be kept ends the operation as well, as `unexpectedFailure`.
  void end(Outcome::Kind kind, const platform::Value& value) noexcept;
  [[nodiscard]] bool ended() const;

  const OnInterrupt onInterrupt_;
  mutable platform::Mutex mutex_;
  platform::ConditionVariable changed_;
  bool tickIsDue_ VARO_GUARDED_BY(mutex_) = false;
  std::optional<Outcome> outcome_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::cli
