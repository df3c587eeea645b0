#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Result.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

class RateLimit;
class RequestMeter;

enum class HttpMethod : std::uint8_t { kGet, kHead, kPost, kPut, kDelete };

/// As it stands in a request.
[[nodiscard]] constexpr const char* nameOf(HttpMethod method) noexcept {
  switch (method) {
    case HttpMethod::kGet:
      break;
    case HttpMethod::kHead:
      return "HEAD";
    case HttpMethod::kPost:
      return "POST";
    case HttpMethod::kPut:
      return "PUT";
    case HttpMethod::kDelete:
      return "DELETE";
  }
  return "GET";
}

struct HttpHeader {
  std::string name;
  std::string value;
};

/// How long the body of a response may be, in bytes, by the response's status. By default nothing
/// is limited.
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

/// Takes the body of a response while it is received, in place of `HttpResponse::body`.
///
/// Called on the thread that moves bytes, with no lock held, one call at a time and never after the
/// completion has begun. So a function returns at once: it may write to a file, but wait for
/// nothing. An error ends the request with `HttpTransportError::kResponseBodyNotStored`, which has
/// it as its cause; what a function throws, with `kNoResources`.
class BodyReceiver : public Object {
 public:
  /// The head of a response with a status of 2xx that can have a body. Once for a body, before its
  /// first byte. `expected`: bytes that will come; none where the server does not say.
  [[nodiscard]] virtual Result<void> begin(int status, const std::vector<HttpHeader>& headers,
                                           std::optional<std::uint64_t> expected) = 0;
  /// The next bytes of the body, in order and without a gap.
  [[nodiscard]] virtual Result<void> write(std::string_view bytes) = 0;
  /// Whether it can take the body of another attempt after it was given bytes of this one: then
  /// `begin` is called again, once for each attempt.
  [[nodiscard]] virtual bool mayBeginAgain() const noexcept { return false; }

  [[nodiscard]] std::string description() const override { return "BodyReceiver"; }
};

/// What may happen when a request is carried out once more.
enum class Repeat : std::uint8_t {
  kAlways,          ///< nothing that the first did not do
  kUnlessReceived,  ///< harm, unless the server has certainly not carried out the first
};

/// One request.
struct HttpRequest {
  HttpMethod method = HttpMethod::kGet;
  /// http or https; sent as given, except that bytes which may not stand in a URL are
  /// percent-encoded.
  std::string url;
  std::vector<HttpHeader> headers;
  /// The body's pieces, read one after another as they are needed; one of a file is never held in
  /// memory as a whole. Present and empty: a body of zero bytes. The length is always sent.
  std::optional<std::vector<Data>> body;
  /// Where a large response body spools to a nameless file; empty, or where none can be created
  /// there: the directory for temporary files.
  std::string spoolDirectory;
  ResponseLimits limits = {};
  /// Instead of the transport's own: until a connection stands, and how long no byte may move. Zero
  /// or less: the transport's own; at most 24 h.
  std::optional<std::chrono::milliseconds> connectTimeout = {};
  std::optional<std::chrono::milliseconds> stallTimeout = {};
  /// Where the body of a 2xx goes; null: into the response.
  std::shared_ptr<BodyReceiver> receiver = {};
  /// Told how many bytes of `body` were handed to the connection; less than before where they are
  /// sent again. Called as a `BodyReceiver` is.
  std::function<void(std::uint64_t sent)> onSent = {};
  /// Told how many bytes of the response's body have come; less than before where they come again.
  /// Called as a `BodyReceiver` is.
  std::function<void(std::uint64_t received)> onReceived = {};
  /// Told the head of a response with a status of 2xx that can have a body, before that comes;
  /// again where it is sent again. Called as a `BodyReceiver` is. A transport may leave it out.
  std::function<void(int status, const std::vector<HttpHeader>& headers)> onHead = {};
  /// Whether its sender may send it again; none: GET, HEAD and PUT always, others unless received.
  /// Transports do not read it.
  std::optional<Repeat> repeat = {};
  /// How fast the bodies of this request and of others that share it may move; null: as fast as
  /// they can. A transport that knows no limits passes it over.
  std::shared_ptr<RateLimit> rateLimit = {};
  /// Gets what the transport has measured, before the completion is called; null: nobody asks. A
  /// transport that measures nothing leaves it alone.
  std::shared_ptr<RequestMeter> meter = {};
};

/// The response, whatever its status.
struct HttpResponse {
  int status = 0;
  /// In the order received; of the last response where there were redirects.
  std::vector<HttpHeader> headers;
  /// Present, with zero bytes where the entity is empty, whatever the version of HTTP and the
  /// framing. None only where there can be no entity: 204, 205, 304, and after a HEAD, whose
  /// Content-Length says what a GET would get.
  std::optional<Data> body;
  /// Whether the receiver of the request has got the bytes; then `body` has none. A transport that
  /// knows no receivers leaves it false, and `sendGuarded` hands the body on.
  bool bodyWasReceived = false;
};

/// Either a response or an error.
using HttpCompletion = std::function<void(std::optional<HttpResponse>, ErrorPtr)>;

/// Ends one transfer early. Thread-safe, and may outlive the transfer and the transport: it keeps
/// neither alive, nor the request, nor the completion.
class HttpTransfer {
 public:
  virtual ~HttpTransfer() = default;
  /// Stops the transfer. It returns without waiting and does not throw, and may be called from
  /// anywhere, the completion included.
  ///
  /// - No byte is handed on any more, and the connection is closed at once unless others use it.
  /// - The completion follows with `HttpTransportError::kCancelled`. Where an end is on its way
  ///   already, that one counts.
  /// - After the completion, and at every later call, nothing happens.
  virtual void cancel() = 0;
};

/// Moves bytes over HTTP. A host that has its own stack implements this and installs it with
/// `VRONetworkUtility::setTransport`. Thread-safe.
///
/// What every transport keeps to; tests/integration/HttpTransportContractTest.cpp checks it.
///
/// One end:
/// - The completion of each request is called exactly once, whatever ends it: a response, a
///   failure, a cancel, a shutdown.
/// - It gets either a response or an error, never both, never neither.
///
/// Threads:
/// - The completion runs on a thread of the runtime's pool, with no lock held, and never inside
///   `send` or `cancel`. Once that pool is shut down, it runs inside the call that ends the
///   transfer, so that none is lost.
/// - It may take long and may call anything, `send` and `cancel` too; other transfers go on
///   meanwhile. Completions of different requests come in any order.
///
/// What may throw:
/// - `send` throws only `std::bad_alloc`; then nothing was sent and the completion is not called.
/// - `cancel` and `shutdown` do not throw. What a completion throws goes no further.
///
/// Lifetimes:
/// - The request's body is held until the transfer has ended, the completion, and with it the
///   receiver, `onSent`, `onReceived` and `onHead`, until it has been called; then they are
///   destroyed, all but the body not on the thread that moves bytes: that may end the transport.
///   What `send` returned need not be kept.
/// - The response belongs to whoever gets it, and outlives the transport.
///
/// Responses and errors:
/// - A response is a response, whatever its status.
/// - Errors are:
///   - failures to connect and of TLS, time-outs, bodies cut short;
///   - a Content-Length that is no number or differs from another;
///   - responses beyond the request's limits, and redirects that are not followed;
///   - requests that are refused before a byte is sent: a URL that is not http(s); CR, LF or NUL in
///     a header or URL.
///
/// What concerns the wire, for a transport that has one:
/// - Bodies arrive as the server sent them, in full or not at all. A large one goes to a nameless
///   file, of which a failed transfer leaves nothing: memory does not grow with the size of a body.
/// - A request body that cannot be read to its end (its file shrank) ends the request with an
///   error, and the server never takes it for whole.
/// - A response beyond its limit ends with `HttpTransportError::kResponseTooLarge`: before a byte
/// is
///   stored where its Content-Length says so, else as soon as it has sent more. Its connection is
///   closed, and nothing is kept.
/// - A POST is sent once. Where its connection breaks before the response, that is an error, since
///   nobody knows whether it was carried out. Other methods may be sent again.
/// - Redirects (301, 302, 303, 307, 308) are followed for GET only, at most 10, never from https to
///   http; headers that carry a credential are dropped when scheme, host or port changes. One that
///   names no target is not followed either.
///
/// `VRONetworkUtility` sees to it that a transport which breaks these rules costs one request its
/// response, and nothing else: see `sendGuarded`.
class HttpTransport {
 public:
  virtual ~HttpTransport() = default;

  /// Starts a transfer and returns at once, what cancels it; never null.
  virtual std::shared_ptr<HttpTransfer> send(HttpRequest request, HttpCompletion completion) = 0;

  /// Ends every transfer with an error and refuses later ones with it. May be called again, and
  /// from a completion.
  virtual void shutdown() = 0;
};

}  // namespace varo::platform
