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

/// Bytes of the body of an answer, by its status. An answer that announces or sends more ends with
/// `HttpTransportError::kResponseTooLarge`; by default nothing is limited.
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
  /// Instead of the transport's own.
  std::optional<std::chrono::milliseconds> connectTimeout = {};
  std::optional<std::chrono::milliseconds> stallTimeout = {};
};

/// The answer, whatever its status.
struct HttpResponse {
  int status = 0;
  /// In the order received; of the last answer where there were redirects.
  std::vector<HttpHeader> headers;
  /// None when the answer can have no entity or announced none (204, 304, a closed connection
  /// without a byte); present with zero bytes when the entity is explicitly empty.
  std::optional<Data> body;
};

/// Either a response or an error. Called once, on a thread of the runtime's pool, with no lock
/// held.
using HttpCompletion = std::function<void(std::optional<HttpResponse>, ErrorPtr)>;

/// Ends one transfer early.
class HttpTransfer {
 public:
  virtual ~HttpTransfer() = default;
  /// The completion follows with an error, unless it is on its way already. Thread-safe.
  virtual void cancel() = 0;
};

/// Moves bytes over HTTP. A host that has its own stack implements this and installs it with
/// `VRONetworkUtility::setTransport`.
///
/// Errors are failures to connect, of TLS, time-outs, bodies cut short, redirects that are not
/// followed, and requests that are refused before a byte is sent (a URL that is not http(s); CR, LF
/// or NUL in a header or URL). A status code is never an error. Redirects are followed for GET
/// only, at most 10, never from https to http; headers that carry a credential are dropped when
/// scheme, host or port changes. Thread-safe.
class HttpTransport {
 public:
  virtual ~HttpTransport() = default;

  /// Starts a transfer and returns at once. The completion is called exactly once, also after
  /// `shutdown`; never from inside this call.
  virtual std::shared_ptr<HttpTransfer> send(HttpRequest request, HttpCompletion completion) = 0;

  /// Ends every transfer with an error and refuses later ones with it.
  virtual void shutdown() = 0;
};

}  // namespace varo::platform
