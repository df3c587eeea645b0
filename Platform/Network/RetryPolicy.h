#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Random.h"
#include "Platform/Network/HttpTransport.h"

#include <chrono>
#include <optional>

namespace varo::platform {

/// When a request that has failed is sent again, and how long it waits before.
///
/// The wait before the attempt n is drawn evenly between nothing and `firstWait` * 2^(n-2), at most
/// `longestWait`: so those that failed together do not come back together. Where the server says
/// how long (Retry-After), that counts instead.
struct RetryPolicy {
  /// How often a request is sent in all; 1: never again.
  int attempts = 1;
  std::chrono::milliseconds firstWait{500};
  std::chrono::milliseconds longestWait{30'000};
  /// A server that wants to be left alone for longer than this is not asked again.
  std::chrono::milliseconds longestRetryAfter{300'000};

  /// The wait before the attempt of this number, from 2 on. Precondition: more are allowed.
  [[nodiscard]] std::chrono::milliseconds waitBefore(int attempt, Random& random) const;
};

/// How long the requests of one operation may wait for their retries, all in all. Thread-safe.
class RetryBudget {
 public:
  explicit RetryBudget(std::chrono::milliseconds most) : left_(most) {}

  /// False, with nothing taken, where that much is not left.
  [[nodiscard]] bool take(std::chrono::milliseconds wait);

 private:
  Mutex mutex_;
  std::chrono::milliseconds left_ VARO_GUARDED_BY(mutex_);
};

/// How `request` may be repeated: as it says, or else by its method.
[[nodiscard]] Repeat repeatOf(const HttpRequest& request) noexcept;

/// Whether another attempt may succeed, and does no harm: a connection that failed, stalled or was
/// cut, or a status 408, 429, 500, 502, 503 or 504. Of a request that must not be carried out twice
/// only where it certainly was not: no byte of it was sent, or the server turned it away (408, 429,
/// 503). Exactly one of `response` and `error` is not null.
[[nodiscard]] bool isWorthRepeating(Repeat repeat, const HttpResponse* response,
                                    const Error* error);

/// What "Retry-After" says (RFC 9110, section 10.2.3), in seconds or as a date that `now` is
/// compared with; none where it says nothing that can be read. Never negative, at most a day.
[[nodiscard]] std::optional<std::chrono::milliseconds> retryAfterOf(
    const HttpResponse& response, std::chrono::system_clock::time_point now);

}  // namespace varo::platform
