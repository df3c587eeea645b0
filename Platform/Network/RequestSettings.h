#pragma once

#include "Platform/Foundation/Object.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/RateLimit.h"
#include "Platform/Network/RequestObserver.h"
#include "Platform/Network/RetryPolicy.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace varo::platform {

/// Key of the options of a request under which its `RequestSettings` stand.
inline constexpr char kRequestSettings[] = "settings";
/// Key of the options of a request under which the `ResponseLimits` of its response stand, as a
/// `ResponseLimitsValue`.
inline constexpr char kResponseLimits[] = "responseLimits";
/// Key of the options of a request under which the directory stands, as text, that the response's
/// body will be stored in: a large body spools there, so that it never has to move to another file
/// system. Missing or empty: the directory for temporary files, which also serves where no file can
/// be created in the one named.
inline constexpr char kSpoolDirectory[] = "spoolDirectory";

/// Key of the options of a request under which the `BodyReceiver` of its response may stand.
inline constexpr char kBodyReceiver[] = "bodyReceiver";

/// Key of the options of a request under which a `RepeatValue` may stand: `HttpRequest::repeat`.
inline constexpr char kRepeat[] = "requestRepeat";

/// Gives each attempt of a request what the server lets it in by: a token, a signature.
/// Thread-safe.
class RequestAuthorizer : public Object {
 public:
  /// Called before each attempt, on the thread that sends it; may block. An error ends the request,
  /// which is not sent then.
  [[nodiscard]] virtual Result<void> authorize(HttpRequest& request) = 0;
  /// A response has come to a request with the headers `shown`, as `authorize` left them. True: it
  /// is a refusal, and with what `authorize` gives now another attempt may be let in. That is made
  /// at once, whatever the method, as nothing was carried out; after it the request is not asked
  /// about any more. May block.
  [[nodiscard]] virtual bool renew(const std::vector<HttpHeader>& shown,
                                   const HttpResponse& response) = 0;

  [[nodiscard]] std::string description() const override { return "RequestAuthorizer"; }
};

/// How a request is sent, whatever it asks for. Taken once for an operation and shared by all its
/// requests; what is not set here is the transport's own. Immutable once shared.
class RequestSettings : public Object {
 public:
  /// Null: the process's, `VRONetworkUtility::transport`.
  std::shared_ptr<HttpTransport> transport;
  /// Instead of the transport's own; see `NetworkConfiguration`.
  std::optional<std::chrono::milliseconds> connectTimeout;
  std::optional<std::chrono::milliseconds> stallTimeout;
  /// Ends the request with `HttpTransportError::kCancelled` when a stop is requested.
  std::stop_token cancellation;
  /// Ends the request with `kCancelled`, too, but lets an attempt that is under way come to its
  /// end: for what must not be given up halfway.
  std::stop_token noMoreAttempts;
  /// When a request that has failed is sent again; none: never.
  std::optional<RetryPolicy> retry;
  /// Of the whole operation; null for no limit.
  std::shared_ptr<RetryBudget> retryBudget;
  /// Told of an attempt before its wait begins: its number, from 2 on. On a thread of the pool.
  std::function<void(int attempt, std::chrono::milliseconds wait)> onRetry;
  /// Told once after each `onRetry`, when that wait has ended, whatever has ended it. Throws
  /// nothing.
  std::function<void()> onWaited;
  /// Told when a request that was repeated has got a status below 400. Throws nothing.
  std::function<void()> onRecovered;
  /// Null: requests go as they are.
  std::shared_ptr<RequestAuthorizer> authorizer;
  /// Told of each attempt; null: nobody is, and nothing is measured.
  std::shared_ptr<RequestObserver> observer;
  /// `HttpRequest::onSent` of every request.
  std::function<void(std::uint64_t sent)> onSent;
  /// Of all requests together, beside the transport's own limit; null for none.
  std::shared_ptr<RateLimit> rateLimit;

  [[nodiscard]] std::string description() const override { return "RequestSettings"; }
};

/// `Repeat` as an entry of a request's options. Immutable.
class RepeatValue final : public Object {
 public:
  explicit RepeatValue(Repeat of) : repeat(of) {}
  [[nodiscard]] std::string description() const override { return "Repeat"; }

  const Repeat repeat;
};

/// `ResponseLimits` as an entry of a request's options. Immutable.
class ResponseLimitsValue final : public Object {
 public:
  explicit ResponseLimitsValue(const ResponseLimits& of) : limits(of) {}
  [[nodiscard]] std::string description() const override { return "ResponseLimits"; }

  const ResponseLimits limits;
};

}  // namespace varo::platform
