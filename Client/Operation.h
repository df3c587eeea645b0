#pragma once

#include "Client/Control.h"
#include "Client/Retries.h"
#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "varo/events.h"
#include "varo/failure.h"
#include "varo/units.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace varo::platform {
class RateLimit;
class RequestObserver;
class RequestSettings;
}  // namespace varo::platform

namespace varo::detail {

class ClientCore;
class CredentialsCache;
class OperationWatch;
class Places;
class RunningBase;

/// One operation on behalf of a handle: waits for a place, runs, and may be paused and run again.
///
///   [waiting] --place--> [running] --end--> [ended]
///       ^  \                 | pause
///       |   pause            v
///     resume  \--------> [pausing] --its request has stopped--> [paused]
///
/// A pause ends the run: its request is cancelled, and what that tells is taken for the pause. A
/// resume waits for a place again and begins another run. A place comes with the memory that a run
/// needs at most. A run that has failed may be followed by
/// another as well: then it is paused until a timer resumes it. The handle is told that it backs
/// off then, and while a request of a run waits to be repeated.
///
/// Runs are numbered, so that what an earlier one tells late changes nothing. Thread-safe. Nothing
/// is called with the lock held but `Running::enter`, so that the handle sees the phases in their
/// order.
class Operation : public Control, public std::enable_shared_from_this<Operation> {
 public:
  /// `memory`: how many bytes each of its runs needs at most. `perSecond`: how many all its
  /// requests together may move in a second; none for no limit of its own.
  Operation(const ClientCore& core, OperationKind kind, std::uint64_t memory,
            std::optional<Bytes> perSecond = {});

  void cancel() final;
  void pause() final;
  void resume() final;

  /// Works for the handle of `running`, whose failures name it by `about`. Once, before it begins.
  void serve(RunningBase& running, std::string about);
  /// The same, and begins.
  void beginFor(RunningBase& running, std::string about);
  /// Waits for its first place. Once. Ends at once where the client asks for its credentials on
  /// this thread: the operation would wait for them, and they perhaps for it.
  void begin();
  /// Called by `Places` when there is a place; gives it back at the end of the run.
  void start() noexcept;

  [[nodiscard]] std::uint64_t memory() const noexcept { return memory_; }
  /// Whether it has use for a place.
  [[nodiscard]] bool isWaiting();
  /// Who is told of its requests; null for nobody.
  [[nodiscard]] std::shared_ptr<platform::RequestObserver> observer() const;

 protected:
  /// The request of this run. Exactly one of the two below has to be called in the end, with the
  /// number of the run, from any thread, here too.
  virtual void launch(std::uint64_t run,
                      const std::shared_ptr<platform::Cancellation>& cancellation) = 0;
  /// To be called with the settings of each request of a run: they share the waits of the
  /// operation, of which the handle is told, and its rate limit.
  void direct(std::uint64_t run, platform::RequestSettings& settings);
  void succeeded(std::uint64_t run, const platform::Value& result) noexcept;
  void failed(std::uint64_t run, Failure failure) noexcept;

  /// Whether a run may be ended and begun anew without harm.
  [[nodiscard]] virtual bool canPause() const = 0;
  /// Ends a run, for a pause or `forGood`; it may take until that does no harm. Thread-safe.
  virtual void stop(const std::shared_ptr<platform::Cancellation>& run, bool /*forGood*/) {
    run->cancel();
  }
  /// How long after a run that failed another one follows; none: it was the last. Never asked of
  /// one that was stopped.
  [[nodiscard]] virtual std::optional<std::chrono::milliseconds> runsAgainAfter(
      const Failure& /*failure*/) {
    return std::nullopt;
  }
  /// Whether another run goes on where one was cut off by a failure of the connection. What can be
  /// repeated as a request was, before.
  [[nodiscard]] virtual bool canGoOn() const { return false; }
  /// The end, once: turns what was told into the outcome.
  virtual void finish(const platform::Value& result) = 0;
  virtual void finish(Failure failure) = 0;
  [[nodiscard]] virtual RunningBase& running() = 0;

 private:
  enum class Phase { kWaiting, kRunning, kPausing, kPaused, kEnded };

  enum class RunEnd { kLate, kPause, kPauseAndResume, kBackOff, kEnd };

  /// What follows a run that has failed.
  [[nodiscard]] std::optional<std::chrono::milliseconds> waitAfter(std::uint64_t run,
                                                                   const Failure& failure);
  void requestWaits(std::uint64_t run, int attempt);
  void requestHasWaited(std::uint64_t run);
  void requestRecovered(std::uint64_t run);
  [[nodiscard]] bool isUnderWay(std::uint64_t run) const VARO_REQUIRES(mutex_);
  [[nodiscard]] Failure cancelled();
  /// Why it can never begin; none where it can.
  [[nodiscard]] std::optional<Failure> whyNever();
  void endWaiting(Failure failure);
  void backOff(std::uint64_t run, std::chrono::milliseconds wait);
  void wake(std::uint64_t run);
  /// From a pause into the queue, on somebody's behalf or on that of the timer of the run `woken`.
  /// False: that was not to be.
  [[nodiscard]] bool leavesPause(std::optional<std::uint64_t> woken);

  /// What it means that this run has ended; `wasStopped`: by its cancellation; `again`: another one
  /// follows.
  [[nodiscard]] RunEnd endRun(std::uint64_t run, bool wasStopped, bool again);

  const std::shared_ptr<Places> places_;
  const std::shared_ptr<CredentialsCache> credentials_;
  const std::uint64_t memory_;
  const std::optional<Bytes> perSecond_;
  /// Of all runs; null for none.
  const std::shared_ptr<platform::RateLimit> rateLimit_;
  const std::shared_ptr<OperationWatch> watch_;  // null: nobody watches

  platform::Mutex mutex_;
  Phase phase_ VARO_GUARDED_BY(mutex_) = Phase::kWaiting;
  /// Asked for while it was pausing.
  bool resumes_ VARO_GUARDED_BY(mutex_) = false;
  /// Paused, and a timer will resume it.
  bool backsOff_ VARO_GUARDED_BY(mutex_) = false;
  bool cancelled_ VARO_GUARDED_BY(mutex_) = false;
  std::uint64_t run_ VARO_GUARDED_BY(mutex_) = 0;
  Retries retries_ VARO_GUARDED_BY(mutex_);
  const std::shared_ptr<platform::RetryBudget> retryBudget_;
  /// Of the run; null before it has one.
  std::shared_ptr<platform::Cancellation> cancellation_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
