// A line with a long way between clients and a server on the loopback:
//
//   delay_line SERVER_PORT DELAY_MS BYTES_PER_SECOND WINDOW_BYTES
//
// Listens on a free port of 127.0.0.1, prints that port, and moves bytes between who connects and
// SERVER_PORT until it is ended. Like a line, and unlike a slow server:
//
// - each byte takes DELAY_MS each way, and the first ones of a connection a round trip more;
// - all connections share BYTES_PER_SECOND, on each way; 0: as many as there are;
// - a connection has at most WINDOW_BYTES under way, on each way, until they are acknowledged, a
//   round trip after they left; 0: 64 MiB, more than any line here holds.
//
// Nothing is lost, and no connection starts slowly.

#include "bench/NumberIn.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/system_error.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using boost::system::error_code;
using SocketPtr = std::shared_ptr<Tcp::socket>;

constexpr std::size_t kPiece = std::size_t{64} * 1024;
constexpr std::size_t kWidestWindow = std::size_t{64} * 1024 * 1024;
/// How long bytes may wait for the line to be free, as those in a router do. Without that it would
/// idle whenever a timer fires late; with much more they would wait here and not in the sender's
/// buffer.
constexpr std::chrono::milliseconds kLongestQueue{10};

struct Rules {
  std::uint16_t serverPort;
  std::chrono::milliseconds delay;
  std::uint64_t bytesPerSecond;
  std::size_t window;
};

/// One way of the line, which sends one piece after the other.
class Direction {
 public:
  explicit Direction(std::uint64_t bytesPerSecond) : bytesPerSecond_(bytesPerSecond) {}

  /// When the last of these bytes has left.
  Clock::time_point send(std::size_t bytes) {
    free_ = std::max(free_, Clock::now());
    if (bytesPerSecond_ > 0) {
      free_ += std::chrono::nanoseconds(bytes * 1'000'000'000 / bytesPerSecond_);
    }
    return free_;
  }

 private:
  const std::uint64_t bytesPerSecond_;
  Clock::time_point free_;
};

/// One way of a connection.
class Way : public std::enable_shared_from_this<Way> {
 public:
  Way(SocketPtr from, SocketPtr to, const Rules& rules, Direction& direction)
      : from_(std::move(from)),
        to_(std::move(to)),
        rules_(rules),
        direction_(direction),
        departure_(from_->get_executor()),
        arrival_(from_->get_executor()) {}

  void start(Clock::time_point when) { readAt(when); }

 private:
  struct Piece {
    Clock::time_point due;
    std::vector<char> bytes;  // none: the end
  };
  struct Acknowledgement {
    Clock::time_point due;
    std::size_t bytes;
  };

  void readAt(Clock::time_point when) {
    departure_.expires_at(when);
    departure_.async_wait([self = shared_from_this()](error_code) { self->read(); });
  }

  void read() {
    const auto now = Clock::now();
    while (!acknowledgements_.empty() && acknowledgements_.front().due <= now) {
      underWay_ -= acknowledgements_.front().bytes;
      acknowledgements_.pop_front();
    }
    const std::size_t room = std::min(rules_.window - underWay_, kPiece);
    if (room == 0) {
      // With nothing to wait for, the next arrival goes on.
      isStalled_ = acknowledgements_.empty();
      if (!isStalled_) readAt(acknowledgements_.front().due);
      return;
    }
    from_->async_read_some(asio::buffer(buffer_.data(), room),
                           [self = shared_from_this()](error_code error, std::size_t count) {
                             self->depart(error ? 0 : count);
                           });
  }

  void depart(std::size_t count) {
    const auto left = direction_.send(count);
    pieces_.push_back({left + rules_.delay, {buffer_.begin(), buffer_.begin() + count}});
    if (pieces_.size() == 1) arriveNext();
    if (count == 0) return;
    underWay_ += count;
    readAt(left - kLongestQueue);
  }

  void arriveNext() {
    arrival_.expires_at(pieces_.front().due);
    arrival_.async_wait([self = shared_from_this()](error_code) { self->arrive(); });
  }

  void arrive() {
    if (pieces_.front().bytes.empty()) {
      error_code gone;
      to_->shutdown(Tcp::socket::shutdown_send, gone);
      return;
    }
    asio::async_write(*to_, asio::buffer(pieces_.front().bytes),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        error ? self->breakOff() : self->arrived();
                      });
  }

  void arrived() {
    acknowledgements_.push_back({Clock::now() + rules_.delay, pieces_.front().bytes.size()});
    pieces_.pop_front();
    if (!pieces_.empty()) arriveNext();
    if (std::exchange(isStalled_, false)) read();
  }

  /// Who sends learns that nobody takes it.
  void breakOff() {
    error_code gone;
    from_->close(gone);
    to_->close(gone);
    departure_.cancel();
  }

  const SocketPtr from_;
  const SocketPtr to_;
  const Rules& rules_;
  Direction& direction_;
  asio::steady_timer departure_;
  asio::steady_timer arrival_;
  std::array<char, kPiece> buffer_{};
  std::deque<Piece> pieces_;
  std::deque<Acknowledgement> acknowledgements_;
  std::size_t underWay_ = 0;
  bool isStalled_ = false;
};

/// Everything on one thread.
class Line {
 public:
  explicit Line(const Rules& rules)
      : rules_(rules),
        acceptor_(context_, Tcp::endpoint(asio::ip::address_v4::loopback(), 0)),
        there_(rules.bytesPerSecond),
        back_(rules.bytesPerSecond) {}

  void run() {
    fmt::print("{}\n", acceptor_.local_endpoint().port());
    std::fflush(stdout);
    acceptNext();
    context_.run();
  }

 private:
  void acceptNext() {
    acceptor_.async_accept([this](error_code error, Tcp::socket socket) {
      if (!error) join(std::make_shared<Tcp::socket>(std::move(socket)));
      acceptNext();
    });
  }

  void join(const SocketPtr& client) {
    const auto server = std::make_shared<Tcp::socket>(context_);
    error_code error;
    server->connect({asio::ip::address_v4::loopback(), rules_.serverPort}, error);
    if (error) return;  // which closes both
    server->set_option(Tcp::no_delay(true), error);
    client->set_option(Tcp::no_delay(true), error);
    const auto connected = Clock::now() + 2 * rules_.delay;
    std::make_shared<Way>(client, server, rules_, there_)->start(connected);
    std::make_shared<Way>(server, client, rules_, back_)->start(connected);
  }

  const Rules rules_;
  asio::io_context context_{1};
  Tcp::acceptor acceptor_;
  Direction there_;
  Direction back_;
};

}  // namespace

int main(int argc, char** argv) {
  const auto number = [argc, argv](int index) {
    return argc == 5 ? varo::bench::numberIn(argv[index]) : -1;
  };
  const std::int64_t port = number(1);
  const std::int64_t delay = number(2);
  const std::int64_t rate = number(3);
  const std::int64_t window = number(4);
  if (port < 1 || port > 65'535 || delay < 0 || rate < 0 || window < 0) {
    fmt::print(stderr, "usage: delay_line SERVER_PORT DELAY_MS BYTES_PER_SECOND WINDOW_BYTES\n");
    return 2;
  }
  try {
    Line({static_cast<std::uint16_t>(port), std::chrono::milliseconds(delay),
          static_cast<std::uint64_t>(rate),
          window > 0 ? static_cast<std::size_t>(window) : kWidestWindow})
        .run();
  } catch (const std::exception& problem) {
    fmt::print(stderr, "delay_line: {}\n", problem.what());
    return 1;
  }
}
