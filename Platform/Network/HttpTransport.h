#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::platform {

enum class HttpMethod : std::uint8_t { kGet, kPost, kPut, kDelete };

struct HttpHeader {
  std::string name;
  std::string value;
};

/// Bytes of the body of an answer, by its status. An answer that announces more (Content-Length)
/// ends with `HttpTransportError::kResponseTooLarge` before a byte of it is stored, one that sends
/// more as soon as it does; its connection is closed, and nothing is kept. By default nothing is
/// limited.
struct ResponseLimits {
  static constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();

  std::uint64_t success = kUnlimited;  // of 2xx other than 206
  std::uint64_t partial = kUnlimited;  // of 206
  std::uint64_t error = kUnlimited;    // of all others

  [[nodiscard]] constexpr std::uint64_t forStatus(int status) const noexcept {
    if (status == 206) return partial;
    return status >= 200 && status < 300 ? success : error;
  }
};

/// One request. The transport reads the body's pieces one after another, as they are needed.
struct HttpRequest {
  HttpMethod method = HttpMethod::kGet;
  /// http or https; sent as given, except that bytes which may not stand in a URL are
  /// percent-encoded.
  std::string url;
  std::vector<HttpHeader> headers;
  /// Present and empty: a body of zero bytes. The length is always sent.
  std::optional<std::vector<Data>> body;
  /// Where a large response body spools to a nameless file; empty, or where none can be created
  /// there: the directory for temporary files.
  std::string spoolDirectory;
  ResponseLimits limits = {};
  /// Instead of the transport's own: until a connection stands, and how long no byte may move. Zero
  /// or less: the transport's own; at most 24 h.
  std::optional<std::chrono::milliseconds> connectTimeout = {};
  std::optional<std::chrono::milliseconds> stallTimeout = {};
};

/// The answer, whatever its status.
struct HttpResponse {
  int status = 0;
  /// In the order received; of the last answer where there were redirects.
  std::vector<HttpHeader> headers;
  /// Present, with zero bytes where the entity is empty, whatever the version of HTTP and the
  /// framing. None only where the status allows no entity: 204, 205, 304.
  std::optional<Data> body;
};

/// Either a response or an error.
using HttpCompletion = std::function<void(std::optional<HttpResponse>, ErrorPtr)>;

/// Ends one transfer early. Thread-safe.
class HttpTransfer {
 public:
  virtual ~HttpTransfer() = default;
  /// Stops the transfer: no byte is handed on any more, and its connection is closed at once,
  /// unless other transfers use it. The completion follows with `HttpTransportError::kCancelled`,
  /// unless it is on its way already; then, and at every later call, nothing happens. Returns
  /// without waiting for any of that, and does not throw. May be called from anywhere, the
  /// completion included.
  virtual void cancel() = 0;
};

/// Moves bytes over HTTP. A host that has its own stack implements this and installs it with
/// `VRONetworkUtility::setTransport`.
///
/// - An answer is a response, whatever its status. Errors are failures to connect and of TLS,
///   time-outs, bodies cut short, a Content-Length that is no number or differs from another,
///   answers beyond the request's limits, redirects that are not followed, and requests that are
///   refused before a byte is sent (a URL that is not http(s); CR, LF or NUL in a header or URL).
/// - Redirects (301, 302, 303, 307, 308) are followed for GET only, at most 10, never from https to
///   http; headers that carry a credential are dropped when scheme, host or port changes. One that
///   names no target is not followed either.
/// - A POST is sent once. Where its connection breaks before the answer, that is an error, since
///   nobody knows whether it was carried out. Other methods may be sent again.
///
/// Thread-safe.
class HttpTransport {
 public:
  virtual ~HttpTransport() = default;

  /// Starts a transfer and returns at once, what cancels it; never null.
  ///
  /// The completion is called exactly once, on a thread of the runtime's pool, with either an
  /// answer or an error, with no lock held, also after `shutdown`, and never from inside this call.
  /// It is destroyed afterwards, not kept; what it throws goes no further. Throws only where memory
  /// runs out, and then nothing was sent. `VRONetworkUtility` sees to it that a transport which
  /// breaks these rules costs one request its answer, and nothing else: see `sendGuarded`.
  virtual std::shared_ptr<HttpTransfer> send(HttpRequest request, HttpCompletion completion) = 0;

  /// Ends every transfer with an error and refuses later ones with it.
  virtual void shutdown() = 0;
};

}  // namespace varo::platform
