#pragma once

#include "Client/C/COutcome.h"
#include "Client/Failures.h"
#include "Client/Running.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/c/transfer.h"
#include "varo/transfer.h"

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <utility>

/// A transfer without the type of its outcome. Thread-safe, but for `detach` and the destructor.
struct varo_transfer {
  varo_transfer() = default;
  varo_transfer(const varo_transfer&) = delete;
  varo_transfer& operator=(const varo_transfer&) = delete;
  virtual ~varo_transfer() = default;

  virtual void onProgress(varo_progress_fn callback, void* user) = 0;
  virtual void onDone(varo_done_fn callback, void* user) = 0;
  virtual void cancel() = 0;
  virtual void pause() = 0;
  virtual void resume() = 0;
  [[nodiscard]] virtual varo::State state() const = 0;
  [[nodiscard]] virtual varo::Progress progress() const = 0;
  /// False where it was not done in time.
  [[nodiscard]] virtual bool waitFor(std::chrono::milliseconds most) const = 0;
  /// There until the end of this. Precondition: it is done.
  [[nodiscard]] virtual const varo_outcome& outcome() const = 0;
  virtual void detach() = 0;
};

namespace varo::capi {

/// The outcome of a transfer for C, made when somebody asks for it first. Thread-safe.
class KeptOutcome {
 public:
  template <typename T>
  std::shared_ptr<const varo_outcome> of(const Outcome<T>& outcome) noexcept {
    const platform::MutexLock lock(mutex_);
    if (kept_ == nullptr) kept_ = made(outcome);
    return kept_;
  }

 private:
  template <typename T>
  static std::shared_ptr<const varo_outcome> made(const Outcome<T>& outcome) noexcept {
    try {
      return outcomeFrom(outcome);
    } catch (const std::exception&) {
      // It owns nothing, so it needs no memory.
      return {std::shared_ptr<const varo_outcome>(), &noMemoryOutcome()};
    }
  }

  platform::Mutex mutex_;
  std::shared_ptr<const varo_outcome> kept_ VARO_GUARDED_BY(mutex_);
};

[[nodiscard]] varo_progress progressFrom(const Progress& progress);

template <typename T>
class CTransfer final : public varo_transfer {
 public:
  explicit CTransfer(Transfer<T> transfer)
      : kept_(std::make_shared<KeptOutcome>()), transfer_(std::move(transfer)) {}

  void onProgress(varo_progress_fn callback, void* user) override {
    if (callback == nullptr) return void(transfer_.onProgress({}));
    transfer_.onProgress([callback, user](const Progress& progress) {
      const varo_progress shown = progressFrom(progress);
      callback(user, &shown);
    });
  }
  void onDone(varo_done_fn callback, void* user) override {
    if (callback == nullptr) return void(transfer_.onDone({}));
    // The outcome is shared with the handle, which may go in the middle of the call.
    transfer_.onDone([callback, user, kept = kept_](const Outcome<T>& outcome) {
      callback(user, kept->of(outcome).get());
    });
  }
  void cancel() override { transfer_.cancel(); }
  void pause() override { transfer_.pause(); }
  void resume() override { transfer_.resume(); }
  [[nodiscard]] State state() const override { return transfer_.state(); }
  [[nodiscard]] Progress progress() const override { return transfer_.progress(); }
  [[nodiscard]] bool waitFor(std::chrono::milliseconds most) const override {
    return transfer_.waitFor(most).has_value();
  }
  [[nodiscard]] const varo_outcome& outcome() const override {
    return *kept_->of(transfer_.get());  // kept until the end of this
  }
  void detach() override { std::move(transfer_).detach(); }

 private:
  const std::shared_ptr<KeptOutcome> kept_;
  Transfer<T> transfer_;
};

/// Stands for those that there was no memory for. Never freed.
[[nodiscard]] varo_transfer* noMemoryTransfer() noexcept;

/// The transfer that `start` gives, an `Outcome<Transfer<T>>`; else one that has failed with that
/// or with what it throws.
template <typename T, typename Start>
varo_transfer* started(Start&& start) noexcept {
  try {
    Outcome<Transfer<T>> transfer = std::forward<Start>(start)();
    if (!transfer) {
      const auto running = std::make_shared<detail::Running<T>>();
      running->end(std::move(transfer).error());
      transfer = Transfer<T>(running);
    }
    return std::make_unique<CTransfer<T>>(*std::move(transfer)).release();
  } catch (...) {  // the facade's catch-all: nothing below throws for another reason
    return noMemoryTransfer();
  }
}

}  // namespace varo::capi
