#include "Sandbox/Http/HttpConnection.h"

#include "Sandbox/Http/RequestHead.h"

#include <boost/asio/write.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/write.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

namespace varo::sandbox {
namespace http = boost::beast::http;
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Heads and the framing of bodies; the library reads 64 KiB at once at most.
constexpr std::size_t kBufferBytes = std::size_t{64} * 1024;
// Large, so that a body costs few writes to the disk and few reads of it.
constexpr std::size_t kBlockBytes = std::size_t{512} * 1024;
// How long an idle connection may go on after it was asked to leave: it asks once a slice.
constexpr milliseconds kIdleSlice{250};

/// Testers choose names and values. What would end a line early is left out.
bool isHeaderText(std::string_view text) {
  constexpr std::size_t kMostBytes = 60'000;  // the library refuses more
  return text.size() <= kMostBytes &&
         text.find_first_of(std::string_view("\0\r\n", 3)) == std::string_view::npos;
}

http::response<http::empty_body> headOf(const HttpResponse& response) {
  http::response<http::empty_body> message;
  message.version(11);
  message.result(static_cast<unsigned>(response.status));
  for (const auto& [name, value] : response.headers) {
    if (isHeaderText(name) && isHeaderText(value)) message.insert(name, value);
  }
  // A fault may have set these two on purpose, to a wrong value for example. It wins.
  const auto add = [&message](http::field name, std::string_view value) {
    if (!message.count(name) && isHeaderText(value)) message.set(name, value);
  };
  if (response.bodyLength() > 0) add(http::field::content_type, response.contentType);
  // Neither has a body, and a length would be wrong: 204 must not have one, and that of a 304 would
  // tell the size of what a 200 carries (RFC 9110, 8.6).
  const bool hasLength = response.status != 204 && response.status != 304;
  if (hasLength) add(http::field::content_length, std::to_string(response.bodyLength()));
  return message;
}

}  // namespace

/// The body of the request whose head `parser` has read.
class HttpConnection::Body final : public RequestBody {
 public:
  Body(HttpConnection& connection, RequestParser& parser, bool expectsContinue)
      : connection_(connection), parser_(parser), expectsContinue_(expectsContinue) {}

  End readInto(const Sink& sink) override {
    End end = End::kComplete;
    // The client holds the body back until it is told to send it (RFC 9110, 10.1.1). Once only, and
    // not when the whole body came along with the head anyway.
    if (!problem_ && std::exchange(expectsContinue_, false) && !parser_.is_done()) {
      static_cast<void>(connection_.write("HTTP/1.1 100 Continue\r\n\r\n"));
    }
    while (!problem_ && !parser_.is_done()) {
      std::string_view piece = read();
      if (rest_ && piece.size() >= *rest_) {
        piece = piece.substr(0, static_cast<std::size_t>(*rest_));
        problem_ = End::kBroken;
      }
      if (rest_) *rest_ -= piece.size();
      // What the sink refuses is still read, so that the response finds a client that listens.
      if (end == End::kComplete && !piece.empty() && !sink(piece)) end = End::kRefused;
    }
    return problem_.value_or(end);
  }

  void cutAfter(std::uint64_t bytes) override { rest_ = bytes; }

  void discard() {
    static_cast<void>(readInto([](std::string_view) { return true; }));
  }
  /// Whether the next request begins where this one ended.
  [[nodiscard]] bool isComplete() const { return parser_.is_done() && !problem_; }

 private:
  std::string_view read() {
    const std::span<char> block = connection_.block();
    auto& body = parser_.get().body();
    body.data = block.data();
    body.size = block.size();
    TimedSocket::ErrorCode error;
    // The parser takes the framing off, a length or chunks, and puts the content into the block.
    http::read(connection_.socket_, connection_.buffer_, parser_, error);
    // The block is full, that is all.
    if (error == http::error::need_buffer) error = {};
    if (error) problem_ = error == http::error::body_limit ? End::kTooLarge : End::kBroken;
    return {block.data(), block.size() - body.size};
  }

  HttpConnection& connection_;
  RequestParser& parser_;
  bool expectsContinue_;
  std::optional<End> problem_;
  std::optional<std::uint64_t> rest_;  ///< Bytes until the body is cut.
};

HttpConnection::HttpConnection(TimedSocket::Socket socket, const Server& server)
    : server_(server),
      socket_(std::move(socket)),
      buffer_(std::max(kBufferBytes, server.limits.headBytes)) {
  // All at once: the library reads into what there is, however little that may be.
  buffer_.reserve(buffer_.max_size());
}

void HttpConnection::serve(const std::function<bool()>& mayIdle) {
  for (;;) {
    const Arrival arrival = awaitHead(mayIdle);
    if (arrival == Arrival::kClosed) break;
    if (arrival == Arrival::kTooLarge) {
      const HttpResponse refusal = errorResponse(431, "the request head is too large", 431);
      static_cast<void>(send(refusal, {}, After::kClose));
      break;
    }
    if (!serveRequest()) break;
  }
  closeGently();
}

HttpConnection::Arrival HttpConnection::awaitHead(const std::function<bool()>& mayIdle) {
  // Two limits: how long a connection may say nothing at all, and how long a head may take that has
  // begun. The second one keeps a client that sends a byte a minute from holding the thread.
  const HttpLimits& limits = server_.limits;
  const auto deadline = steady_clock::now() + limits.idleTimeout;
  socket_.allowWaits(limits.headTimeout);
  std::size_t searched = 0;
  for (;;) {
    // Empty lines before a request are allowed and skipped (RFC 9112, 2.2).
    while (searched == 0 && pending().starts_with("\r\n")) buffer_.consume(2);
    const std::size_t end = pending().find("\r\n\r\n", searched);
    const bool isComplete = end != std::string_view::npos;
    if (isComplete && end + 4 <= limits.headBytes) {
      headLength_ = end + 4;
      return Arrival::kHead;
    }
    if (isComplete || pending().size() >= limits.headBytes) return Arrival::kTooLarge;
    // The end of the head may be split between two reads, so its first
    // three bytes are looked at again.
    searched = pending().size() < 3 ? 0 : pending().size() - 3;

    if (pending().empty() && !awaitInput(deadline, mayIdle)) return Arrival::kClosed;
    TimedSocket::ErrorCode error;
    // There is room: what is pending is shorter than a head may be, and
    // the buffer is at least as large.
    const auto space = buffer_.prepare(buffer_.max_size() - buffer_.size());
    buffer_.commit(socket_.read_some(space, error));
    if (error) return Arrival::kClosed;
  }
}

bool HttpConnection::awaitInput(steady_clock::time_point deadline,
                                const std::function<bool()>& mayIdle) {
  for (;;) {
    // In slices: a stop, or a crowd that waits for this thread, should not have to wait for the
    // time-out.
    const auto rest = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (socket_.awaitInput(std::clamp(rest, milliseconds(0), kIdleSlice))) return true;
    if (rest <= milliseconds(0) || !mayIdle()) return false;
  }
}

std::string_view HttpConnection::pending() const {
  const auto bytes = buffer_.data();
  return {static_cast<const char*>(bytes.data()), bytes.size()};
}

bool HttpConnection::serveRequest() {
  RequestParser parser;
  auto read = readRequestHead(parser, pending().substr(0, headLength_), server_.limits);
  buffer_.consume(headLength_);
  // The body is another wait than the head, with a limit of its own.
  socket_.allowWaits(server_.limits.transferTimeout, server_.limits.transferBytes);
  if (const auto* bad = std::get_if<BadRequest>(&read)) {
    // Nobody knows where the next request begins.
    const HttpResponse refusal = errorResponse(bad->status, bad->reason, bad->status);
    return send(refusal, {}, After::kClose);
  }
  auto& request = std::get<HttpRequest>(read);
  request.fromLoopback = socket_.peerIsLoopback();
  Body body(*this, parser, request.expectsContinue);
  HttpResponse response;
  try {
    response = server_.handler(request, body);
    body.discard();
  } catch (const std::exception& exception) {
    // The client gets a response in any case; without one it would take the sandbox for gone.
    response = errorResponse(500, exception.what(), 500);
  }
  // What is left of a body that broke off must not be read as the next request.
  const bool keeps = request.keepAlive && body.isComplete();
  const bool goesOn = send(response, request.method, keeps ? After::kKeep : After::kClose);
  // A connection that idles holds no block: with all of them open that would be 320 MiB.
  block_.reset();
  return goesOn;
}

bool HttpConnection::send(const HttpResponse& response, std::string_view method, After after) {
  if (response.delivery.drop) return false;
  // Reading the body has used up a part of the time; the response gets all of it again.
  socket_.allowWaits(server_.limits.transferTimeout, server_.limits.transferBytes);
  if (response.delivery.endlessHeaders) {
    sendEndlessHeaders();
    return false;
  }
  http::response<http::empty_body> head = headOf(response);
  // Said beforehand, so that the client sends no further request into a connection that ends.
  if (after == After::kClose) head.set(http::field::connection, "close");
  http::response_serializer<http::empty_body> serializer(head);
  TimedSocket::ErrorCode error;
  http::write_header(socket_, serializer, error);
  if (error) return false;
  // HEAD has the same head as GET, with the length that the body would have (RFC 9110, 9.3.2).
  return (method == "HEAD" || sendBody(response)) && after == After::kKeep;
}

bool HttpConnection::sendBody(const HttpResponse& response) {
  Delivery delivery = response.delivery;
  const std::uint64_t length = response.bodyLength();
  for (std::uint64_t offset = 0; offset < length;) {
    if (delivery.stallAfter && offset >= *delivery.stallAfter) {
      // Once only: past this offset the stall would otherwise cut the next piece to nothing.
      delivery.stallAfter.reset();
      server_.stopSignal.waitFor(delivery.stallFor);
    }
    if (server_.stopSignal.raised()) return false;
    if (delivery.cutAfter && offset >= *delivery.cutAfter) return false;
    std::uint64_t piece = std::min<std::uint64_t>(length - offset, kBlockBytes);
    // A piece ends where a fault begins, so that the client gets exactly as many bytes as the test
    // asked for.
    for (const auto& border : {delivery.stallAfter, delivery.cutAfter}) {
      if (border) piece = std::min(piece, *border - offset);
    }
    const auto size = static_cast<std::size_t>(piece);
    std::string_view bytes;
    if (response.content) {
      const std::span<char> space = block().first(size);
      // Status and length are on their way already. Only a closed connection can say now that the
      // rest does not come.
      if (!response.content(response.contentOffset + offset, space)) return false;
      bytes = {space.data(), size};
    } else {
      bytes = std::string_view(response.text).substr(static_cast<std::size_t>(offset), size);
    }
    if (!write(bytes)) return false;
    offset += piece;
  }
  return true;
}

bool HttpConnection::write(std::string_view bytes) {
  TimedSocket::ErrorCode error;
  boost::asio::write(socket_, boost::asio::buffer(bytes), error);
  return !error;
}

// Ends when the client closes, when it stops reading for as long as a transfer may, or at a stop.
void HttpConnection::sendEndlessHeaders() {
  const std::string filler(1000, 'x');
  bool open = write("HTTP/1.1 200 OK\r\n");
  for (int n = 0; open && !server_.stopSignal.raised(); ++n) {
    open = write(fmt::format("X-Endless-{}: {}\r\n", n, filler));
  }
}

void HttpConnection::closeGently() {
  socket_.endSending();
  socket_.allowWaits(server_.limits.closeTimeout);
  buffer_.clear();
  TimedSocket::ErrorCode error;
  const auto end = steady_clock::now() + server_.limits.closeTimeout;
  // The deadline holds for a client, too, that never stops sending.
  while (!error && steady_clock::now() < end) {
    socket_.read_some(buffer_.prepare(buffer_.max_size()), error);
  }
}

std::span<char> HttpConnection::block() {
  // Not filled with zeros: a short body touches few of its pages.
  if (!block_) block_ = std::make_unique_for_overwrite<char[]>(kBlockBytes);
  return {block_.get(), kBlockBytes};
}

}  // namespace varo::sandbox
