#pragma once

#include "Client/Failures.h"
#include "Client/MemoryNeeds.h"
#include "Client/ObjectPlace.h"
#include "Client/ObjectRun.h"
#include "Client/Observed.h"
#include "Client/Operation.h"
#include "Client/Running.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "varo/events.h"
#include "varo/outcome.h"
#include "varo/units.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

namespace varo::detail {

/// What one operation on objects does. It runs once, and again after each pause: what a run has
/// reached stays for the next one. Runs do not overlap.
template <typename T>
class ObjectWork : public Observed, public std::enable_shared_from_this<ObjectWork<T>> {
 public:
  using End = std::function<void(Outcome<T>)>;

  ObjectWork() = default;
  ObjectWork(const ObjectWork&) = delete;
  ObjectWork& operator=(const ObjectWork&) = delete;
  virtual ~ObjectWork() = default;

  /// What it is about, for messages: 'put of "photos/1.jpg"'.
  [[nodiscard]] virtual std::string about() const = 0;
  [[nodiscard]] virtual OperationKind kind() const = 0;
  /// Bytes that a run needs at most.
  [[nodiscard]] virtual std::uint64_t memory() const { return memory::kRequest; }
  /// See `Operation`.
  [[nodiscard]] virtual std::optional<Bytes> perSecond() const { return std::nullopt; }
  /// Calls `end` once, from any thread, here too.
  virtual void run(const ObjectRunPtr& run, End end) = 0;
  /// After the last run, or where there was none: removes what must not stay, and calls `done` once
  /// with the whole failure.
  virtual void giveUp(Failure failure, const std::function<void(Failure)>& done) {
    done(std::move(failure));
  }
  /// Whether a run may be stopped and begun anew without harm.
  [[nodiscard]] virtual bool canPause() const { return true; }

 protected:
  /// This, for what runs later.
  template <typename Derived>
  [[nodiscard]] std::shared_ptr<Derived> self() {
    return std::static_pointer_cast<Derived>(this->shared_from_this());
  }
};

/// A work, on behalf of a handle.
template <typename T>
class ObjectOperation final : public Operation {
 public:
  ObjectOperation(std::shared_ptr<const ObjectPlace> place, std::shared_ptr<ObjectWork<T>> work,
                  std::shared_ptr<Running<T>> running)
      : Operation(*place->core(), work->kind(), work->memory(), work->perSecond()),
        place_(std::move(place)),
        work_(std::move(work)),
        running_(std::move(running)) {}

  /// Starts the work, and gives what its handle needs.
  [[nodiscard]] static std::shared_ptr<Running<T>> begin(
      std::shared_ptr<const ObjectPlace> place, const std::shared_ptr<ObjectWork<T>>& work) {
    auto running = std::make_shared<Running<T>>();
    const auto operation = std::make_shared<ObjectOperation>(std::move(place), work, running);
    work->observedBy(operation->observer());
    operation->beginFor(*running, work->about());
    return running;
  }

 private:
  void launch(std::uint64_t run,
              const std::shared_ptr<platform::Cancellation>& cancellation) override {
    const auto self = std::static_pointer_cast<ObjectOperation>(this->shared_from_this());
    auto begun = ObjectRun::begin(
        place_, place_->core()->holdCredentials(cancellation->token()),
        {cancellation->token(), givenUp_.get_token()}, running_,
        [self, run](Failure why) { self->failed(run, std::move(why)); },
        [self, run](auto& settings) { self->direct(run, settings); });
    if (!begun) return failed(run, std::move(begun).error());
    work_->run(*begun, [self, run](Outcome<T> outcome) { self->ended(run, std::move(outcome)); });
  }

  void ended(std::uint64_t run, Outcome<T> outcome) {
    if (!outcome) return failed(run, std::move(outcome).error());
    {
      const platform::MutexLock lock(mutex_);
      result_ = *std::move(outcome);
    }
    succeeded(run, platform::Value());
  }

  [[nodiscard]] bool canPause() const override { return work_->canPause(); }
  void stop(const std::shared_ptr<platform::Cancellation>& run, bool forGood) override {
    if (forGood) givenUp_.request_stop();
    run->cancel();
  }
  void finish(const platform::Value& /*result*/) override {
    std::optional<T> result;
    {
      const platform::MutexLock lock(mutex_);
      result.swap(result_);
    }
    running_->end(*std::move(result));
  }
  void finish(Failure failure) override {
    const auto running = running_;
    try {
      work_->giveUp(failure, [running](Failure whole) { running->end(std::move(whole)); });
    } catch (const std::exception&) {
      running->end(std::move(failure));  // nothing could be removed; that it failed is known
    }
  }
  [[nodiscard]] RunningBase& running() override { return *running_; }

  const std::shared_ptr<const ObjectPlace> place_;
  const std::shared_ptr<ObjectWork<T>> work_;
  const std::shared_ptr<Running<T>> running_;
  /// Stopped by a cancel, and not by a pause.
  std::stop_source givenUp_;

  platform::Mutex mutex_;
  /// Of the run that has succeeded, until it is told.
  std::optional<T> result_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
