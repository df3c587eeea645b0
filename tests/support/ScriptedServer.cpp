#include "tests/support/ScriptedServer.h"

#include "Platform/Foundation/Text.h"

#include <fmt/format.h>
#include <openssl/ssl.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace varo::test {
namespace {

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace

// ---- requests ----

std::string WireRequest::target() const {
  const std::size_t start = head.find(' ') + 1;
  return head.substr(start, head.find(' ', start) - start);
}

std::optional<std::string> WireRequest::header(std::string_view name) const {
  const char* field = ::strcasestr(head.c_str(), fmt::format("\r\n{}:", name).c_str());
  if (field == nullptr) return std::nullopt;
  field += name.size() + 3;
  field += std::strspn(field, " ");
  return std::string(field, std::strstr(field, "\r\n"));
}

// ---- connections ----

/// One accepted socket, with TLS around it where the server has a certificate.
class WireStream {
 public:
  WireStream(int socket, void* tls) : socket_(socket) {
    if (tls != nullptr) ssl_.reset(SSL_new(static_cast<SSL_CTX*>(tls)));
    if (ssl_ != nullptr) SSL_set_fd(ssl_.get(), socket_);
  }
  ~WireStream() {
    ssl_.reset();
    ::close(socket_);
  }
  WireStream(const WireStream&) = delete;
  WireStream& operator=(const WireStream&) = delete;

  bool handshake() { return ssl_ == nullptr || SSL_accept(ssl_.get()) == 1; }

  /// 0 at the end and on any failure.
  std::size_t read(char* buffer, std::size_t size) {
    if (ssl_ != nullptr) {
      std::size_t count = 0;
      return SSL_read_ex(ssl_.get(), buffer, size, &count) == 1 ? count : 0;
    }
    const ssize_t count = ::recv(socket_, buffer, size, 0);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  bool write(std::string_view bytes) {
    while (!bytes.empty()) {
      std::size_t count = 0;
      if (ssl_ != nullptr) {
        if (SSL_write_ex(ssl_.get(), bytes.data(), bytes.size(), &count) != 1) return false;
      } else {
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        count = static_cast<std::size_t>(sent);
      }
      bytes.remove_prefix(count);
    }
    return true;
  }

  /// False where the peer went away, or `interrupt` was called, before the time was over.
  bool wait(std::chrono::milliseconds time) {
    pollfd event{socket_, POLLRDHUP, 0};
    return ::poll(&event, 1, static_cast<int>(time.count())) == 0;
  }

  bool close() {
    if (ssl_ != nullptr) SSL_shutdown(ssl_.get());
    interrupt();
    return false;
  }
  /// Ends whatever the connection's thread waits for. Thread-safe.
  void interrupt() { ::shutdown(socket_, SHUT_RDWR); }

  bool reset() {
    sockaddr nowhere{};
    nowhere.sa_family = AF_UNSPEC;
    ::connect(socket_, &nowhere, sizeof(nowhere));  // disconnects a TCP socket with an RST
    return false;
  }

 private:
  const int socket_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, &SSL_free};
};

// ---- replies ----

WireReply& WireReply::send(std::string bytes) {
  steps.emplace_back([bytes = std::move(bytes)](auto& stream) { return stream.write(bytes); });
  return *this;
}

WireReply& WireReply::sendForever(std::string bytes) {
  steps.emplace_back([bytes = std::move(bytes)](auto& stream) {
    while (stream.write(bytes)) {
    }
    return false;
  });
  return *this;
}

WireReply& WireReply::wait(std::chrono::milliseconds time) {
  steps.emplace_back([time](auto& stream) { return stream.wait(time); });
  return *this;
}

WireReply& WireReply::close() {
  steps.emplace_back([](auto& stream) { return stream.close(); });
  return *this;
}

WireReply& WireReply::reset() {
  steps.emplace_back([](auto& stream) { return stream.reset(); });
  return *this;
}

WireReply reply(int status, std::string_view body, std::string_view headers) {
  WireReply result;
  result.send(fmt::format("HTTP/1.1 {} Scripted\r\nContent-Length: {}\r\n{}\r\n{}", status,
                          body.size(), headers, body));
  return result;
}

// ---- the server ----

ScriptedServer::ScriptedServer(Handler handler, const WireTls& rules)
    : handler_(std::move(handler)) {
  if (!rules.certificate.empty()) {
    const std::shared_ptr<SSL_CTX> tls(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    const std::string file = rules.certificate + "/certificate.pem";
    const std::string key = rules.certificate + "/key.pem";
    require(SSL_CTX_use_certificate_file(tls.get(), file.c_str(), SSL_FILETYPE_PEM) == 1, "TLS");
    require(SSL_CTX_use_PrivateKey_file(tls.get(), key.c_str(), SSL_FILETYPE_PEM) == 1, "TLS key");
    if (rules.isOld) SSL_CTX_set_max_proto_version(tls.get(), TLS1_2_VERSION);
    if (const std::string& shown = rules.clientCertificate; !shown.empty()) {
      require(SSL_CTX_load_verify_file(tls.get(), shown.c_str()) == 1, "client certificate");
      SSL_CTX_set_verify(tls.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
    tls_ = tls;
  }
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  require(listener_ >= 0, "socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  require(::bind(listener_, generic, size) == 0, "bind");
  require(::listen(listener_, 512) == 0, "listen");
  require(::getsockname(listener_, generic, &size) == 0, "getsockname");
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptAll(); });
}

ScriptedServer::~ScriptedServer() {
  ::shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  ::close(listener_);
  for (Connection& connection : connections_) {
    connection.stream->interrupt();
    connection.thread.join();
  }
}

std::string ScriptedServer::url(std::string_view target) const {
  return fmt::format("{}://127.0.0.1:{}{}", tls_ == nullptr ? "http" : "https", port_, target);
}

void ScriptedServer::acceptAll() {
  while (true) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0 && errno == EINVAL) return;  // the listener is shut down
    if (socket < 0) continue;
    const int noDelay = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof(noDelay));
    auto stream = std::make_shared<WireStream>(socket, tls_.get());
    ++accepted_;
    connections_.push_back({stream, std::thread([this, stream] {
                              serve(*stream);
                              stream->interrupt();
                              ++ended_;
                            })});
  }
}

void ScriptedServer::serve(WireStream& stream) {
  sigset_t brokenPipe;  // OpenSSL's writes raise it
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
  if (!stream.handshake()) return;
  std::array<char, 65536> buffer{};
  std::string received;
  const auto readMore = [&] {
    const std::size_t count = stream.read(buffer.data(), buffer.size());
    received.append(buffer.data(), count);
    return count > 0;
  };
  while (true) {
    std::size_t headEnd = 0;
    while ((headEnd = received.find("\r\n\r\n")) == std::string::npos) {
      if (!readMore()) return;
    }
    WireRequest request{received.substr(0, headEnd + 4), {}};
    received.erase(0, headEnd + 4);
    if (!request.header(kUnreadBodyHeader)) {
      const auto length = platform::parseInteger(request.header("Content-Length").value_or("0"));
      const auto size = static_cast<std::size_t>(length.value_or(0));
      while (received.size() < size) {
        if (!readMore()) return;
      }
      request.body = received.substr(0, size);
      received.erase(0, size);
    }
    const WireReply answer = handler_(request);
    requests_.add(std::move(request));
    for (const WireReply::Step& step : answer.steps) {
      if (!step(stream)) return;
    }
  }
}

}  // namespace varo::test
