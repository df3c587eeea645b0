#pragma once

#include "varo/export.h"
#include "varo/outcome.h"

#include <chrono>
#include <coroutine>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

namespace varo {

/// How far a transfer is. `done` never decreases.
struct Progress {
  /// Bytes.
  std::uint64_t done = 0;
  /// Bytes; 0 where it is not known (yet).
  std::uint64_t total = 0;
  /// Over the last seconds.
  double bytesPerSecond = 0;
  /// None where total or rate are not known.
  std::optional<std::chrono::seconds> left = {};
  /// Of the request that failed last: 1 for the first, and again once one succeeds or bytes come.
  int attempt = 1;
};

enum class State : std::uint8_t {
  kWaiting,     ///< for its turn
  kRunning,     ///< requests are under way
  kPaused,      ///< by `pause`
  kBackingOff,  ///< a request waits for its next attempt; others of the transfer may run
  kDone,        ///< has its outcome
};

namespace detail {
template <typename T>
class Running;
}  // namespace detail

/// One operation that is under way, and its outcome.
///
/// - It runs from the moment it is made. It comes to exactly one outcome, whatever happens.
/// - Destroying the handle cancels what still runs, and waits for callbacks that are being called:
///   afterwards none of them runs any more. Inside one of its own callbacks it does not wait for
///   that one. `detach` lets the operation go on without a handle.
/// - Callbacks run on threads of the library, one at a time, with no lock held; those that are due
///   when the handle is destroyed, on the thread that destroys it. They may call
///   anything, the functions of the handle included, and may block. What they throw goes no
///   further and changes nothing.
///
/// Movable, not copyable. All functions but the moves, `detach` and the destructor may be called
/// from any thread at once. A handle that was moved from or detached has no operation: it is
/// `kDone`, and `get` gives `Kind::kInvalidArgument`.
template <typename T>
class [[nodiscard]] Transfer {
 public:
  VARO_API explicit Transfer(std::shared_ptr<detail::Running<T>> running) noexcept;
  VARO_API Transfer(Transfer&& other) noexcept;
  VARO_API Transfer& operator=(Transfer&& other) noexcept;
  VARO_API ~Transfer();

  /// Called with the progress, at most ten times a second, and once more at the end, also where
  /// that is there already. Replaces an earlier one. Where it must not miss the beginning, it is
  /// enough to set it at once.
  VARO_API Transfer& onProgress(std::function<void(const Progress&)> callback) &;
  /// Called once with the outcome, also where that is there already. Replaces an earlier one that
  /// was not called yet.
  VARO_API Transfer& onDone(std::function<void(const Outcome<T>&)> callback) &;
  /// `cancel` when a stop is requested.
  VARO_API Transfer& cancelWith(std::stop_token token) &;

  Transfer onProgress(std::function<void(const Progress&)> callback) && {
    return std::move(onProgress(std::move(callback)));
  }
  Transfer onDone(std::function<void(const Outcome<T>&)> callback) && {
    return std::move(onDone(std::move(callback)));
  }
  Transfer cancelWith(std::stop_token token) && { return std::move(cancelWith(std::move(token))); }

  /// Gives up: the network stops at once, and the outcome is `Kind::kCancelled`, unless it was on
  /// its way already. Returns without waiting.
  VARO_API void cancel();
  /// Stops the network at once and keeps what was reached; `resume` goes on from there. Both do
  /// nothing in other states.
  VARO_API void pause();
  VARO_API void resume();

  [[nodiscard]] VARO_API State state() const;
  [[nodiscard]] VARO_API Progress progress() const;

  /// Waits for the outcome; at every call the same. May be called inside any callback: there is an
  /// outcome before `onDone` is called.
  [[nodiscard]] VARO_API Outcome<T> get() const;
  /// The same, for at most `most`.
  [[nodiscard]] VARO_API std::optional<Outcome<T>> waitFor(std::chrono::milliseconds most) const;

  /// Lets go of the operation: it goes on to its end, and its callbacks are called.
  VARO_API void detach() &&;

  /// `co_await transfer` gives the outcome; the coroutine goes on on a thread of the library. One
  /// that waits keeps the handle.
  auto operator co_await() const& noexcept { return Awaiter{running_}; }

 private:
  struct Awaiter {
    std::shared_ptr<detail::Running<T>> running;
    VARO_API bool await_ready() const;
    VARO_API bool await_suspend(std::coroutine_handle<> waiting) const;
    VARO_API Outcome<T> await_resume() const;
  };

  std::shared_ptr<detail::Running<T>> running_;
};

}  // namespace varo
