#include "tests/support/TestProxy.h"

#include "tests/support/Base64.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <sys/socket.h>
#include <utility>

namespace varo::test {
namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using SocketPtr = std::shared_ptr<Tcp::socket>;
using boost::system::error_code;

/// One way of a connection: bytes arrive when the line has brought them.
class Way : public std::enable_shared_from_this<Way> {
 public:
  Way(SocketPtr from, SocketPtr to, const ProxyRules& rules, std::mt19937& random,
      std::atomic<int>& broken)
      : from_(std::move(from)),
        to_(std::move(to)),
        rules_(rules),
        random_(random),
        broken_(broken),
        timer_(from_->get_executor()) {}

  void read() {
    constexpr std::size_t kMostOnTheWay = 64;
    isReading_ = onTheWay_.size() < kMostOnTheWay;
    if (!isReading_) return;
    from_->async_read_some(
        asio::buffer(buffer_), [self = shared_from_this()](error_code error, std::size_t count) {
          self->depart(error ? std::string() : std::string(self->buffer_.data(), count));
          if (!error) self->read();
        });
  }

 private:
  struct Piece {
    Clock::time_point due;
    std::string bytes;  // none: the end
    bool breaks = false;
  };

  void depart(std::string bytes) {
    Piece piece{{}, std::move(bytes)};
    // The line sends one piece after the other, each at its speed.
    free_ = std::max(free_, Clock::now());
    if (rules_.bytesPerSecond > 0) {
      free_ += std::chrono::nanoseconds(piece.bytes.size() * 1'000'000'000 / rules_.bytesPerSecond);
    }
    if (rules_.loss > 0) lose(piece);
    piece.due = free_ + rules_.delay;
    onTheWay_.push_back(std::move(piece));
    if (onTheWay_.size() == 1) arriveNext();
  }

  /// Draws which of its segments are lost.
  void lose(Piece& piece) {
    constexpr std::size_t kSegment = 1460;
    std::bernoulli_distribution isLost(rules_.loss);
    std::bernoulli_distribution breaks(rules_.breaks);
    for (std::size_t at = 0; at < piece.bytes.size(); at += kSegment) {
      if (!isLost(random_)) continue;
      free_ += rules_.retransmission;
      const bool mayBreak = rules_.mostBreaks == 0 || broken_ < rules_.mostBreaks;
      if (!breaks(random_) || !mayBreak || piece.breaks) continue;
      piece.breaks = true;
      ++broken_;
    }
  }

  void arriveNext() {
    timer_.expires_at(onTheWay_.front().due);
    timer_.async_wait([self = shared_from_this()](error_code) { self->arrive(); });
  }

  void arrive() {
    const std::string& bytes = onTheWay_.front().bytes;
    error_code ignored;
    if (bytes.empty()) {
      to_->shutdown(Tcp::socket::shutdown_send, ignored);
      return;
    }
    if (onTheWay_.front().breaks) {
      to_->set_option(asio::socket_base::linger(true, 0), ignored);  // an RST
      to_->close(ignored);
      from_->close(ignored);
      return;
    }
    asio::async_write(*to_, asio::buffer(bytes),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        if (error) return;
                        self->onTheWay_.pop_front();
                        if (!self->onTheWay_.empty()) self->arriveNext();
                        if (!self->isReading_) self->read();
                      });
  }

  const SocketPtr from_;
  const SocketPtr to_;
  const ProxyRules& rules_;
  std::mt19937& random_;
  std::atomic<int>& broken_;
  asio::steady_timer timer_;
  std::array<char, 16384> buffer_{};
  std::deque<Piece> onTheWay_;
  Clock::time_point free_;
  bool isReading_ = false;
};

std::string take(Tcp::socket& socket, std::size_t size) {
  std::string bytes(size, '\0');
  asio::read(socket, asio::buffer(bytes));
  return bytes;
}

std::string takeUntil(Tcp::socket& socket, char end) {
  std::string text;
  for (char c = take(socket, 1)[0]; c != end; c = take(socket, 1)[0]) text += c;
  return text;
}

std::uint16_t portIn(const std::string& bytes) {
  const auto at = [&bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  return static_cast<std::uint16_t>(at(0) << 8U | at(1));
}

/// Behind the last colon of "host:port"; that of http without one.
std::uint16_t portOf(const std::string& authority) {
  const std::size_t colon = authority.rfind(':');
  if (colon == std::string::npos) return 80;
  return static_cast<std::uint16_t>(std::stoi(authority.substr(colon + 1)));
}

void send(Tcp::socket& socket, const std::string& bytes) {
  asio::write(socket, asio::buffer(bytes));
}

void answer(Tcp::socket& socket, int status, const std::string& lines = {}) {
  send(socket, "HTTP/1.1 " + std::to_string(status) + " Proxy\r\n" + lines + "\r\n");
}

}  // namespace

TestProxy::TestProxy(ProxyRules rules)
    : rules_(std::move(rules)),
      acceptor_(context_, Tcp::endpoint(asio::ip::address_v4::loopback(), 0)),
      port_(acceptor_.local_endpoint().port()),
      random_(rules_.seed) {
  acceptNext();
  thread_ = std::thread([this] { context_.run(); });
}

TestProxy::~TestProxy() {
  context_.stop();
  thread_.join();
  for (Session& session : sessions_) {
    ::shutdown(session.client->native_handle(), SHUT_RDWR);  // it may still be read from
    session.thread.join();
  }
}

std::vector<std::string> TestProxy::asked() const {
  const platform::MutexLock lock(mutex_);
  return asked_;
}

void TestProxy::redirect(std::uint16_t from, std::uint16_t to) {
  const platform::MutexLock lock(mutex_);
  redirected_[from] = to;
}

void TestProxy::note(std::string asked) {
  const platform::MutexLock lock(mutex_);
  asked_.push_back(std::move(asked));
}

void TestProxy::acceptNext() {
  acceptor_.async_accept([this](error_code error, Tcp::socket socket) {
    if (error) return;
    forgetSessions();
    Session& session = sessions_.emplace_back();
    session.client = std::make_shared<Tcp::socket>(std::move(socket));
    session.thread = std::thread([this, &session] { serve(session); });
    acceptNext();
  });
}

void TestProxy::serve(Session& session) {
  bool isJoined = false;
  try {
    isJoined = negotiate(session.client);
  } catch (const boost::system::system_error&) {
    // The client is gone.
  }
  error_code gone;
  if (!isJoined) session.client->shutdown(Tcp::socket::shutdown_both, gone);
  session.isOver = true;
}

void TestProxy::forgetSessions() {
  sessions_.remove_if([](Session& session) {
    if (!session.isOver) return false;
    session.thread.join();
    return true;
  });
}

SocketPtr TestProxy::connect(std::uint16_t port) {
  {
    const platform::MutexLock lock(mutex_);
    const auto found = redirected_.find(port);
    if (found != redirected_.end()) port = found->second;
  }
  auto server = std::make_shared<Tcp::socket>(context_);
  error_code error;
  server->connect(Tcp::endpoint(asio::ip::address_v4::loopback(), port), error);
  if (error) return nullptr;
  server->set_option(Tcp::no_delay(true));
  return server;
}

bool TestProxy::join(const SocketPtr& client, const SocketPtr& server) {
  if (server == nullptr) return false;
  client->set_option(Tcp::no_delay(true));
  asio::post(context_, [this, client, server] {
    std::make_shared<Way>(client, server, rules_, random_, broken_)->read();
    std::make_shared<Way>(server, client, rules_, random_, broken_)->read();
  });
  return true;
}

bool TestProxy::negotiate(const SocketPtr& client) {
  char first = 0;
  client->receive(asio::buffer(&first, 1), Tcp::socket::message_peek);
  if (first == 4) return serveSocks4(client);
  if (first == 5) return serveSocks5(client);
  return serveHttp(client);
}

bool TestProxy::serveHttp(const SocketPtr& client) {
  std::string received;
  const std::size_t size = asio::read_until(*client, asio::dynamic_buffer(received), "\r\n\r\n");
  const std::string head = received.substr(0, size);
  note(head);
  const std::string credentials = base64Of(rules_.user + ":" + rules_.password);
  const bool isLetIn = rules_.user.empty() || head.find("\r\nProxy-Authorization: Basic " +
                                                        credentials + "\r\n") != std::string::npos;
  if (!isLetIn || rules_.refusal != 0) {
    answer(*client, isLetIn ? rules_.refusal : 407,
           "Proxy-Authenticate: Basic realm=\"test\"\r\nContent-Length: 0\r\n");
    return false;
  }
  const std::size_t space = head.find(' ');
  const std::string target = head.substr(space + 1, head.find(' ', space + 1) - space - 1);
  if (head.substr(0, space) == "CONNECT") {
    const SocketPtr server = connect(portOf(target));
    answer(*client, server == nullptr ? 502 : 200);
    return join(client, server);
  }
  // One request a connection. The server sees it as if there were no proxy.
  constexpr std::size_t kAuthority = sizeof("http://") - 1;
  const std::size_t path = target.find('/', kAuthority);
  const SocketPtr server = connect(portOf(target.substr(kAuthority, path - kAuthority)));
  if (server == nullptr) {
    answer(*client, 502, "Content-Length: 0\r\n");
    return false;
  }
  received.replace(space + 1, target.size(), target.substr(path));
  for (std::size_t line = 0; (line = received.find("\r\nProxy-")) != std::string::npos;) {
    received.erase(line, received.find("\r\n", line + 2) - line);
  }
  received.insert(received.find("\r\n"), "\r\nConnection: close");
  send(*server, received);
  return join(client, server);
}

bool TestProxy::serveSocks4(const SocketPtr& client) {
  const std::string request = take(*client, 8);
  const std::string user = takeUntil(*client, '\0');
  std::string host = "address";
  if (request.compare(4, 3, std::string(3, '\0')) == 0) host = takeUntil(*client, '\0');
  const std::uint16_t port = portIn(request.substr(2));
  note("socks4a " + host + ":" + std::to_string(port));
  const SocketPtr server = user == rules_.user ? connect(port) : nullptr;
  send(*client, std::string({'\0', server != nullptr ? '\x5A' : '\x5B'}) + std::string(6, '\0'));
  return join(client, server);
}

bool TestProxy::serveSocks5(const SocketPtr& client) {
  const auto sizeIn = [](const std::string& byte) {
    return static_cast<std::size_t>(static_cast<unsigned char>(byte[0]));
  };
  const std::string methods = take(*client, sizeIn(take(*client, 2).substr(1)));
  const char method = rules_.user.empty() ? '\0' : '\2';
  const bool isOffered = methods.find(method) != std::string::npos;
  send(*client, {'\5', isOffered ? method : '\xFF'});
  if (!isOffered) return false;
  if (method == '\2') {
    const std::string user = take(*client, sizeIn(take(*client, 2).substr(1)));
    const std::string password = take(*client, sizeIn(take(*client, 1)));
    const bool isLetIn = user == rules_.user && password == rules_.password;
    send(*client, {'\1', isLetIn ? '\0' : '\1'});
    if (!isLetIn) return false;
  }
  const char kind = take(*client, 4)[3];
  std::string host = "address";
  if (kind == 3) {
    host = take(*client, sizeIn(take(*client, 1)));
  } else {
    static_cast<void>(take(*client, kind == 1 ? 4 : 16));
  }
  const std::uint16_t port = portIn(take(*client, 2));
  note("socks5 " + host + ":" + std::to_string(port));
  const SocketPtr server = connect(port);
  send(*client,
       std::string({'\5', server != nullptr ? '\0' : '\5', '\0', '\1'}) + std::string(6, '\0'));
  return join(client, server);
}

}  // namespace varo::test
