#pragma once

#include "Platform/Common/NetworkError.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/NetworkConfiguration.h"
#include "Platform/Network/RequestSettings.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::platform {

/// How a request body is encoded. A missing body has zero bytes whatever the type.
enum class RequestType : std::int32_t {
  /// A dictionary or array; or text or bytes that are JSON already and go as they are. Sent as
  /// application/json unless the headers say something else.
  kJson = 1,
  /// A dictionary with "parts": an array of parts, each an array of one-entry dictionaries: its
  /// headers, and its content under "partContent" (bytes or text). Sent as multipart/form-data
  /// (RFC 7578), whose own Content-Type replaces any in the headers.
  kMultipart = 3,
  /// Bytes or text as they are; an empty dictionary has zero bytes.
  kRaw = 4,
};

/// Key of the response information under which the `HttpResponseInfo` stands.
inline constexpr std::string_view kHttpResponse = "httpResponse";

/// Status and header fields of a response.
class HttpResponseInfo final : public Object {
 public:
  HttpResponseInfo(int statusCode, Dictionary headerFields)
      : statusCode_(statusCode), headerFields_(std::move(headerFields)) {}

  [[nodiscard]] int statusCode() const noexcept { return statusCode_; }
  /// Names as the peer wrote them, values of a repeated field joined by ", ".
  [[nodiscard]] const Dictionary& allHeaderFields() const noexcept { return headerFields_; }
  /// The value of this field, its name in any letter case; none where it is not there.
  [[nodiscard]] std::optional<std::string> headerField(std::string_view name) const;
  [[nodiscard]] std::string description() const override;

 private:
  const int statusCode_;
  const Dictionary headerFields_;
};

/// Body bytes (none where the response had no body at all), response information, error or null.
/// Called exactly once whatever the transport does, see `sendGuarded`; on a thread of the runtime's
/// pool where the transport keeps to its contract.
using NetworkCallback = std::function<void(
    const std::optional<Data>& data, const Dictionary& responseInfo, const NetworkErrorPtr& error)>;

/// The platform's network utility: encodes requests and reports responses.
///
/// HTTP status codes are not errors. Errors carry the transport's domain, code and user
/// information; a request that cannot be encoded is an error too. Of `options` the entries
/// `kRequestSettings`, `kResponseLimits`, `kSpoolDirectory`, `kBodyReceiver` and `kRepeat` are
/// read. Header and query values go out in their text form; those that are null are left out.
/// Thread-safe.
class VRONetworkUtility {
 public:
  VRONetworkUtility() = delete;

  /// What a request can be ended early with. Null where it was refused before it was sent. It holds
  /// nothing of the request. Its `cancel` may be called at any time, from inside the callback too;
  /// it throws nothing, and does nothing once the request has ended.
  using TransferPtr = std::shared_ptr<HttpTransfer>;

  static TransferPtr GET(const std::string& url, const Dictionary& queryParams,
                         const Dictionary& headers, const Dictionary& options,
                         const NetworkCallback& callback);
  /// A missing `body` sends a body of zero bytes.
  static TransferPtr POST(const std::string& url, const Dictionary& queryParams,
                          const Dictionary& headers, RequestType requestType, const Value& body,
                          const Dictionary& options, const NetworkCallback& callback);
  static TransferPtr PUT(const std::string& url, const Dictionary& queryParams,
                         const Dictionary& headers, RequestType requestType, const Value& body,
                         const Dictionary& options, const NetworkCallback& callback);
  static TransferPtr DELETE(const std::string& url, const Dictionary& queryParams,
                            const Dictionary& headers, const Dictionary& options,
                            const NetworkCallback& callback);

  /// The transport in force; by default one `CurlHttpTransport`, made at the first use. It is shut
  /// down with the runtime, as is one that was set.
  [[nodiscard]] static std::shared_ptr<HttpTransport> transport();
  /// Puts another transport in force for requests from now on; null restores the default.
  static void setTransport(std::shared_ptr<HttpTransport> transport);

  /// Who is told of the requests of operations that begin from now on without settings of their
  /// own; null, as at first: nobody.
  [[nodiscard]] static std::shared_ptr<RequestObserver> observer();
  static void setObserver(std::shared_ptr<RequestObserver> observer);

  /// Configures the default transport. Call before the first request: false, and nothing changes,
  /// once the default transport exists.
  [[nodiscard]] static bool configure(const NetworkConfiguration& configuration);
};

}  // namespace varo::platform
