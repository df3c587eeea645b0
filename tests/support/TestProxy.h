#pragma once

#include "Platform/Foundation/Mutex.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace varo::test {

/// What a test's proxy asks for, and what the line behind it is like.
struct ProxyRules {
  /// Without a user everybody is let in.
  std::string user = {};
  std::string password = {};
  /// Status that every http request to the proxy gets; 0: it is served.
  int refusal = 0;
  /// Of each byte, on each of both ways.
  std::chrono::milliseconds delay{0};
  /// On each of both ways; 0 for as many as there are.
  std::uint64_t bytesPerSecond = 0;
  /// Share of the segments that are lost. In userspace that is a delay: what is lost, and all that
  /// is behind it, comes later by `retransmission`.
  double loss = 0;
  std::chrono::milliseconds retransmission{0};
  /// Share of those lost that break the connection instead.
  double breaks = 0;
  /// So many connections break at most; 0: any number.
  int mostBreaks = 0;
  std::uint32_t seed = 1;
};

/// A proxy on a free port of the loopback: CONNECT and absolute addresses over http, SOCKS 4a, and
/// SOCKS 5 with user and password. Whatever host a request names, it leads to the loopback, so that
/// names are possible that nobody else can resolve. Thread-safe.
class TestProxy {
 public:
  explicit TestProxy(ProxyRules rules = {});
  ~TestProxy();
  TestProxy(const TestProxy&) = delete;
  TestProxy& operator=(const TestProxy&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] std::string url(const std::string& scheme) const {
    return scheme + "://127.0.0.1:" + std::to_string(port_);
  }
  /// From now on who asks for port `from` gets to port `to`.
  void redirect(std::uint16_t from, std::uint16_t to);
  /// What it was asked, one entry a connection: the head of an http request, or "socks5 host:port".
  [[nodiscard]] std::vector<std::string> asked() const;
  /// How many lost segments have broken their connection.
  [[nodiscard]] int broken() const noexcept { return broken_; }

 private:
  using Tcp = boost::asio::ip::tcp;
  using SocketPtr = std::shared_ptr<Tcp::socket>;
  struct Session {
    SocketPtr client;
    std::atomic<bool> isOver = false;  // the thread ends
    std::thread thread;
  };

  void acceptNext();
  void serve(Session& session);
  /// Those whose thread ends.
  void forgetSessions();
  /// These return whether the client has got to a server.
  [[nodiscard]] bool negotiate(const SocketPtr& client);
  [[nodiscard]] bool serveHttp(const SocketPtr& client);
  [[nodiscard]] bool serveSocks4(const SocketPtr& client);
  [[nodiscard]] bool serveSocks5(const SocketPtr& client);
  void note(std::string asked);
  /// Null where nobody listens there.
  [[nodiscard]] SocketPtr connect(std::uint16_t port);
  /// Moves bytes between both from now on, on the thread of `context_`; false without a server.
  bool join(const SocketPtr& client, const SocketPtr& server);

  const ProxyRules rules_;
  boost::asio::io_context context_;
  Tcp::acceptor acceptor_;
  std::uint16_t port_ = 0;
  std::list<Session> sessions_;  // of the thread, until it has ended
  std::mt19937 random_;          // of the thread
  std::atomic<int> broken_ = 0;  // which alone changes it
  mutable platform::Mutex mutex_;
  std::vector<std::string> asked_ VARO_GUARDED_BY(mutex_);
  std::map<std::uint16_t, std::uint16_t> redirected_ VARO_GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace varo::test
