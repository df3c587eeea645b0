#pragma once

#include "tests/support/CallLog.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace varo::test {

/// A request with this header is answered on its head alone; its body stays unread.
inline constexpr std::string_view kUnreadBodyHeader = "X-Test-Unread-Body";

/// One request as it came over the wire.
struct WireRequest {
  std::string head;  // byte for byte, with the empty line
  std::string body;

  [[nodiscard]] std::string target() const;
  /// The value of the first header of this name, in any letter case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// An accepted connection.
class WireStream;

/// What a scripted server does with one request, step by step.
struct WireReply {
  /// False where the connection is over.
  using Step = std::function<bool(WireStream&)>;
  std::vector<Step> steps;

  WireReply& send(std::string bytes);
  /// The same bytes, until the client is gone.
  WireReply& sendForever(std::string bytes);
  WireReply& wait(std::chrono::milliseconds time);
  /// Silence, until the client is gone.
  WireReply& hold() { return wait(std::chrono::hours(1)); }
  /// An orderly end.
  WireReply& close();
  /// An RST.
  WireReply& reset();
};

/// A complete answer with a Content-Length. `headers` are whole lines, each with its line break.
[[nodiscard]] WireReply reply(int status, std::string_view body, std::string_view headers = {});

/// What a server that speaks TLS asks of its clients.
struct WireTls {
  /// The directory of its test certificate; empty: no TLS.
  std::string certificate = {};
  /// A file with the certificate that clients have to show; empty: none.
  std::string clientCertificate = {};
  /// It speaks nothing later than TLS 1.2.
  bool isOld = false;
};

/// A raw server on the loopback that says exactly what a test scripts, well-formed or not, and
/// keeps what it was sent. One thread a connection; the destructor ends all of them. Thread-safe.
class ScriptedServer {
 public:
  using Handler = std::function<WireReply(const WireRequest&)>;

  /// Listens on a free port of 127.0.0.1; with the directory of a test certificate, speaks TLS.
  explicit ScriptedServer(Handler handler, const std::string& certificate = {})
      : ScriptedServer(std::move(handler), WireTls{.certificate = certificate}) {}
  ScriptedServer(Handler handler, const WireTls& tls);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  /// http(s)://127.0.0.1:port + `target`.
  [[nodiscard]] std::string url(std::string_view target) const;

  [[nodiscard]] std::vector<WireRequest> requests() const { return requests_.calls(); }
  /// Connections accepted so far.
  [[nodiscard]] std::size_t connectionCount() const noexcept { return accepted_; }
  /// Of those, the ones that have ended.
  [[nodiscard]] std::size_t endedCount() const noexcept { return ended_; }

 private:
  struct Connection {
    std::shared_ptr<WireStream> stream;
    std::thread thread;
  };

  void acceptAll();
  void serve(WireStream& stream);

  // Constant after construction.
  const Handler handler_;
  std::shared_ptr<void> tls_;  // an SSL_CTX
  int listener_ = -1;
  std::uint16_t port_ = 0;

  std::list<Connection> connections_;  // the acceptor's, until it has ended
  std::atomic<std::size_t> accepted_{0};
  std::atomic<std::size_t> ended_{0};
  CallLog<WireRequest> requests_;
  std::thread acceptor_;
};

}  // namespace varo::test
