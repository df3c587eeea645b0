#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/options.h"
#include "varo/outcome.h"

#include <chrono>
#include <functional>
#include <future>
#include <memory>

namespace varo::detail {

/// Two of them are the same answer of the provider where the pointers are equal.
using CredentialsPtr = std::shared_ptr<const Credentials>;

/// Asks the application for its credentials, and keeps those that say when they expire until
/// shortly before. One for all operations of a client. Thread-safe.
///
/// The provider is asked without a lock and outside the client's log, by one thread at a time:
/// others that need credentials meanwhile wait for the same answer. What it throws is a failure.
class CredentialsCache {
 public:
  using Provider = std::function<Outcome<Credentials>()>;

  /// Of an empty provider all credentials are empty. `clock` lives as long as this.
  explicit CredentialsCache(Provider provider,
                            const platform::Clock& clock = platform::Clock::system());

  /// Those that are kept, else what the provider says.
  [[nodiscard]] Outcome<CredentialsPtr> get();
  /// The same after a server has turned `refused` away: they are kept no longer.
  [[nodiscard]] Outcome<CredentialsPtr> getAfter(const CredentialsPtr& refused);

 private:
  using Answer = Outcome<CredentialsPtr>;

  [[nodiscard]] Answer ask(std::promise<Answer>& told);
  void keep(const CredentialsPtr& given);

  const Provider provider_;
  const platform::Clock& clock_;

  platform::Mutex mutex_;
  /// Null for none.
  CredentialsPtr kept_ VARO_GUARDED_BY(mutex_);
  std::chrono::system_clock::time_point keptUntil_ VARO_GUARDED_BY(mutex_);
  /// Of the thread that asks the provider; not valid where none does.
  std::shared_future<Answer> asking_ VARO_GUARDED_BY(mutex_);
};

/// What one operation shows, request by request: credentials that do not say when they expire
/// serve all of them. Thread-safe.
class HeldCredentials {
 public:
  explicit HeldCredentials(std::shared_ptr<CredentialsCache> cache) : cache_(std::move(cache)) {}

  /// For the next request.
  [[nodiscard]] Outcome<CredentialsPtr> current();
  /// A server has turned those away of which `wasRefused` is true. Whether there are others now;
  /// asks for them, unless another request has done so already.
  [[nodiscard]] bool renew(const std::function<bool(const Credentials&)>& wasRefused);

 private:
  const std::shared_ptr<CredentialsCache> cache_;

  platform::Mutex mutex_;
  /// Null before there was a request.
  CredentialsPtr held_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
