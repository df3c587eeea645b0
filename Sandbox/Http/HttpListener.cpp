#include "Sandbox/Http/HttpListener.h"

#include "Sandbox/Http/ConnectionThreads.h"
#include "Sandbox/Http/HttpConnection.h"

#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>
#include <utility>

namespace varo::sandbox {
namespace {

constexpr int kBacklog = 1024;
constexpr std::size_t kBodyBlock = 256 * 1024;
constexpr std::size_t kContentBlock = 512 * 1024;
constexpr int kTransferTimeoutSeconds = 30;

/// A request on its way through the HTTP library, which passes no context of ours along.
struct Exchange {
  HttpRequest& request;
  HttpConnection& connection;
  bool mustClose = false;
};
thread_local Exchange* currentExchange = nullptr;

/// The head that the HTTP library sees: no text of the client's gets into its parsers.
std::string canonicalHead(const HttpRequest& request) {
  const std::string_view method = request.hasBody()          ? "POST"
                                  : request.method == "HEAD" ? "HEAD"
                                                             : "GET";
  std::string head = fmt::format("{} / HTTP/1.1\r\n", method);
  if (request.chunked) {
    head += "Transfer-Encoding: chunked\r\n";
  } else if (request.hasBody()) {
    head += fmt::format("Content-Length: {}\r\n", *request.contentLength);
  }
  if (request.expectsContinue && request.hasBody()) head += "Expect: 100-continue\r\n";
  return head + "\r\n";
}

class WireBody final : public RequestBody {
 public:
  WireBody(const httplib::ContentReader* reader, std::uint64_t limit)
      : reader_(reader), limit_(limit), finished_(reader == nullptr) {}

  End readInto(const Sink& sink) override {
    if (finished_) return intact_ ? End::kComplete : End::kBroken;
    finished_ = true;
    End end = End::kComplete;
    std::string block;
    block.reserve(kBodyBlock);
    std::uint64_t total = 0;
    const auto flush = [&] {
      // What the sink refuses is still read, so that the answer finds a client that listens.
      if (end == End::kComplete && !block.empty() && !sink(block)) end = End::kRefused;
      block.clear();
    };
    const bool read = (*reader_)([&](const char* bytes, std::size_t size) {
      total += size;
      if (total > limit_) return false;
      block.append(bytes, size);
      if (block.size() + 4096 > kBodyBlock) flush();
      return true;
    });
    if (!read) {
      intact_ = false;
      return total > limit_ ? End::kTooLarge : End::kBroken;
    }
    flush();
    return end;
  }

  void discard() {
    if (!finished_) readInto([](std::string_view) { return true; });
  }
  /// Whether the connection stands behind the body's last byte.
  [[nodiscard]] bool intact() const { return intact_; }

 private:
  const httplib::ContentReader* const reader_;
  const std::uint64_t limit_;
  bool finished_;
  bool intact_ = true;
};

/// Sends a response's body, spoilt as its delivery says.
class BodySender {
 public:
  BodySender(HttpResponse response, StopSignal& stopSignal)
      : response_(std::move(response)), stopSignal_(stopSignal) {}

  bool send(std::uint64_t offset, std::uint64_t length, httplib::DataSink& sink) {
    Delivery& delivery = response_.delivery;
    if (delivery.stallAfter && offset >= *delivery.stallAfter) {
      delivery.stallAfter.reset();
      stopSignal_.waitFor(delivery.stallFor);
    }
    if (stopSignal_.raised() || (delivery.cutAfter && offset >= *delivery.cutAfter)) return false;
    std::uint64_t piece = std::min<std::uint64_t>(length, kContentBlock);
    for (const auto& border : {delivery.stallAfter, delivery.cutAfter}) {
      if (border) piece = std::min(piece, *border - offset);
    }
    const auto size = static_cast<std::size_t>(piece);
    if (!response_.content) return sink.write(response_.text.data() + offset, size);
    if (!block_) block_ = std::make_unique_for_overwrite<char[]>(kContentBlock);
    const std::int64_t n =
        response_.content->readAt(response_.contentOffset + offset, {block_.get(), size});
    return n == static_cast<std::int64_t>(size) && sink.write(block_.get(), size);
  }

 private:
  HttpResponse response_;
  StopSignal& stopSignal_;
  std::unique_ptr<char[]> block_;
};

void sendEndlessHeaders(HttpConnection& connection, const StopSignal& stopSignal) {
  const std::string filler(1000, 'x');
  bool open = connection.writeAll("HTTP/1.1 200 OK\r\n");
  for (int n = 0; open && !stopSignal.raised(); ++n) {
    open = connection.writeAll(fmt::format("X-Endless-{}: {}\r\n", n, filler));
  }
  connection.seal();
}

}  // namespace

class HttpListener::Server final : public httplib::Server {
 public:
  explicit Server(HttpListener& owner) : owner_(owner) {
    Get("/", [this](const httplib::Request&, httplib::Response& response) {
      answer(*currentExchange, nullptr, response);
    });
    Post("/", [this](const httplib::Request&, httplib::Response& response,
                     const httplib::ContentReader& reader) {
      answer(*currentExchange, &reader, response);
    });
    set_post_routing_handler([](const httplib::Request&, httplib::Response& response) {
      if (response.status == 204 || response.status == 304)
        response.headers.erase("Content-Length");
    });
    set_read_timeout(kTransferTimeoutSeconds);
    set_write_timeout(kTransferTimeoutSeconds);
    set_keep_alive_timeout(kTransferTimeoutSeconds);
    set_keep_alive_max_count(1'000'000);
    set_payload_max_length(static_cast<std::size_t>(owner.limits_.bodyBytes));
    // The library's own choice lets two servers share a port, and each see half of the requests.
    set_socket_options([](socket_t socket) {
      const int yes = 1;
      static_cast<void>(::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)));
    });
    // Head and body of an answer are two writes; without this the second waits for the peer's
    // delayed acknowledgement.
    set_tcp_nodelay(true);
    new_task_queue = [this] {
      auto queue = std::make_unique<ConnectionThreads>(owner_.limits_.connectionThreads,
                                                       [this] { interruptConnections(); });
      threads_ = queue.get();
      return queue.release();
    };
  }

  /// The port, or -1.
  int open(const std::string& address, std::uint16_t port) {
    const int bound = port == 0 ? bind_to_any_port(address)
                                : (bind_to_port(address, port) ? static_cast<int>(port) : -1);
    // The library's own backlog is 5: a burst of clients would wait a second for their retries.
    if (bound > 0 && ::listen(svr_sock_, kBacklog) != 0) return -1;
    return bound;
  }
  /// After `open`.
  void accept() {
    acceptor_ = std::thread([this] { listen_after_bind(); });
  }

  void close() {
    // The library's stop() does nothing when its accept loop has not begun yet.
    const socket_t socket = svr_sock_.exchange(INVALID_SOCKET);
    if (socket != INVALID_SOCKET) ::shutdown(socket, SHUT_RDWR);
    if (acceptor_.joinable()) acceptor_.join();
    if (socket != INVALID_SOCKET) ::close(socket);
  }

 private:
  bool process_and_close_socket(socket_t socket) override {
    HttpConnection connection(socket);
    if (admit(socket)) {
      serve(connection);
      connection.closeGently();
    }
    const std::lock_guard lock(mutex_);
    open_.erase(socket);
    return true;
  }

  bool admit(socket_t socket) {
    const std::lock_guard lock(mutex_);
    if (owner_.stopSignal_.raised()) return false;
    open_.insert(socket);
    return true;
  }

  void interruptConnections() {
    const std::lock_guard lock(mutex_);
    for (const socket_t socket : open_) ::shutdown(socket, SHUT_RDWR);
  }

  void serve(HttpConnection& connection) {
    const auto mayWait = [this] { return !owner_.stopSignal_.raised() && !threads_->crowded(); };
    for (;;) {
      const auto arrival = connection.awaitHead(mayWait);
      if (arrival == HttpConnection::Arrival::kClosed) return;
      if (arrival == HttpConnection::Arrival::kTooLarge) {
        return refuse(connection, {431, "the request head is too large"});
      }
      auto head = parseRequestHead(connection.head());
      if (auto* bad = std::get_if<BadRequest>(&head)) return refuse(connection, *bad);
      HttpRequest& request = std::get<HttpRequest>(head);
      if (request.contentLength.value_or(0) > owner_.limits_.bodyBytes) {
        return refuse(connection, {413, "the body is too large"});
      }
      if (!serveRequest(connection, request)) return;
    }
  }

  bool serveRequest(HttpConnection& connection, HttpRequest& request) {
    request.fromLoopback = connection.peerIsLoopback();
    connection.present(canonicalHead(request));
    Exchange exchange{request, connection};
    currentExchange = &exchange;
    bool closed = false;
    const bool sent = process_request(connection, !request.keepAlive, closed, nullptr);
    currentExchange = nullptr;
    // The library does not notice when only the head of an answer cannot be written.
    return sent && !closed && !exchange.mustClose && !connection.sealed() && request.keepAlive;
  }

  // A head that cannot be understood: nobody knows where the next request begins.
  static void refuse(HttpConnection& connection, const BadRequest& bad) {
    const HttpResponse response = errorResponse(bad.status, bad.reason, bad.status);
    static_cast<void>(connection.writeAll(
        fmt::format("HTTP/1.1 {} Refused\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: "
                    "close\r\n\r\n{}",
                    response.status, response.contentType, response.text.size(), response.text)));
  }

  void answer(Exchange& exchange, const httplib::ContentReader* reader, httplib::Response& out) {
    WireBody body(reader, owner_.limits_.bodyBytes);
    HttpResponse response;
    try {
      response = owner_.handler_(exchange.request, body);
      body.discard();
    } catch (const std::exception& exception) {
      response = errorResponse(500, exception.what(), 500);
      exchange.mustClose = true;
    }
    if (!body.intact() || exchange.mustClose) {
      exchange.mustClose = true;
      out.set_header("Connection", "close");
    }
    if (response.delivery.drop) return exchange.connection.seal();
    if (response.delivery.endlessHeaders) {
      return sendEndlessHeaders(exchange.connection, owner_.stopSignal_);
    }
    out.status = response.status;
    for (const auto& [name, value] : response.headers) out.set_header(name, value);
    const std::uint64_t length = response.bodyLength();
    if (length == 0) return;
    const std::string contentType = response.contentType;
    auto sender = std::make_shared<BodySender>(std::move(response), owner_.stopSignal_);
    out.set_content_provider(
        static_cast<std::size_t>(length), contentType,
        [sender](std::size_t offset, std::size_t rest, httplib::DataSink& sink) {
          return sender->send(offset, rest, sink);
        });
  }

  HttpListener& owner_;
  std::thread acceptor_;
  // Set by the acceptor before the first connection, alive until the last one has ended.
  ConnectionThreads* threads_ = nullptr;
  std::mutex mutex_;
  std::unordered_set<socket_t> open_;  // guarded by mutex_
};

HttpListener::HttpListener(Limits limits, StopSignal& stopSignal, Handler handler)
    : limits_(limits), stopSignal_(stopSignal), handler_(std::move(handler)) {}

HttpListener::~HttpListener() { stop(); }

std::optional<std::string> HttpListener::start(const std::string& address, std::uint16_t port) {
  server_ = std::make_unique<Server>(*this);
  const int bound = server_->open(address, port);
  if (bound <= 0) {
    server_->close();
    server_.reset();
    return fmt::format("cannot listen on {}:{}", address, port);
  }
  port_ = static_cast<std::uint16_t>(bound);  // before a handler can ask for it
  server_->accept();
  return std::nullopt;
}

void HttpListener::stop() {
  if (!server_) return;
  server_->close();
  server_.reset();
}

}  // namespace varo::sandbox
