#pragma once

#include "Platform/Foundation/Object.h"
#include "Platform/Network/HttpTransport.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

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
  /// `HttpRequest::onSent` of every request.
  std::function<void(std::uint64_t sent)> onSent;

  [[nodiscard]] std::string description() const override { return "RequestSettings"; }
};

/// `ResponseLimits` as an entry of a request's options. Immutable.
class ResponseLimitsValue final : public Object {
 public:
  explicit ResponseLimitsValue(const ResponseLimits& of) : limits(of) {}
  [[nodiscard]] std::string description() const override { return "ResponseLimits"; }

  const ResponseLimits limits;
};

}  // namespace varo::platform
