#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/options.h"
#include "varo/outcome.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>
#include <utility>

namespace varo::detail {

/// Two of them are the same answer of the provider where the pointers are equal.
using CredentialsPtr = std::shared_ptr<const Credentials>;

/// Asks the application for its credentials, and keeps those that say when they expire until
/// shortly before. One for all operations of a client; owned by a `std::shared_ptr`. Thread-safe.
///
/// The provider runs as a job of its own, without a lock and outside the client's log, once at a
/// time: all that need credentials meanwhile wait for the same answer. So whoever waits can stop,
/// and a provider that never returns holds up no operation for ever. What it throws is a failure.
class CredentialsCache : public std::enable_shared_from_this<CredentialsCache> {
 public:
  using Provider = std::function<Outcome<Credentials>()>;

  /// Somebody may have to type a password meanwhile.
  static constexpr std::chrono::minutes kLongestWait{5};

  /// Of an empty provider all credentials are empty. `clock` lives as long as this.
  explicit CredentialsCache(Provider provider,
                            const platform::Clock& clock = platform::Clock::system());

  /// Those that are kept, else what the provider says. `Kind::kCancelled` where a stop comes first,
  /// `kTimeout` where it says nothing for so long.
  [[nodiscard]] Outcome<CredentialsPtr> get(const std::stop_token& stop = {},
                                            std::chrono::milliseconds longestWait = kLongestWait);
  /// The same after a server has turned `refused` away: they are kept no longer.
  [[nodiscard]] Outcome<CredentialsPtr> getAfter(
      const CredentialsPtr& refused, const std::stop_token& stop = {},
      std::chrono::milliseconds longestWait = kLongestWait);

  /// Whether it is the provider that calls: what it began with the same client would wait for it,
  /// and it perhaps for that.
  [[nodiscard]] bool isAskedHere() const noexcept;

 private:
  class Asking;

  void ask(Asking& asking) noexcept;
  void keep(const CredentialsPtr& given);

  const Provider provider_;
  const platform::Clock& clock_;

  platform::Mutex mutex_;
  /// Null for none.
  CredentialsPtr kept_ VARO_GUARDED_BY(mutex_);
  std::chrono::system_clock::time_point keptUntil_ VARO_GUARDED_BY(mutex_);
  /// Null while the provider is not asked.
  std::shared_ptr<Asking> asking_ VARO_GUARDED_BY(mutex_);
};

/// What one operation shows, request by request: credentials that do not say when they expire
/// serve all of them. Thread-safe.
class HeldCredentials {
 public:
  /// How long requests at the end of an operation wait for the provider: so does its outcome.
  static constexpr std::chrono::seconds kLongestWaitAtTheEnd{5};

  /// `stop` ends the waits for the provider, and so does `longestWait`, each of them.
  explicit HeldCredentials(std::shared_ptr<CredentialsCache> cache, std::stop_token stop = {},
                           std::chrono::milliseconds longestWait = CredentialsCache::kLongestWait)
      : cache_(std::move(cache)), stop_(std::move(stop)), longestWait_(longestWait) {}

  /// For the next request.
  [[nodiscard]] Outcome<CredentialsPtr> current();
  /// A server has turned those away of which `wasRefused` is true. Whether there are others now;
  /// asks for them, unless another request has done so already. True as well after a stop, which
  /// the next attempt is to notice: the refusal is not what has ended it.
  [[nodiscard]] bool renew(const std::function<bool(const Credentials&)>& wasRefused);

  /// The same ones for requests after a stop that clean up. The provider is not asked where it need
  /// not be: it may be why the operation was given up.
  [[nodiscard]] std::shared_ptr<HeldCredentials> atTheEnd(
      std::chrono::milliseconds longestWait = kLongestWaitAtTheEnd);

 private:
  const std::shared_ptr<CredentialsCache> cache_;
  const std::stop_token stop_;
  const std::chrono::milliseconds longestWait_;

  platform::Mutex mutex_;
  /// Null before there was a request.
  CredentialsPtr held_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
