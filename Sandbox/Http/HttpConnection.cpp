#include "Sandbox/Http/HttpConnection.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace varo::sandbox {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kBufferSize = 256 * 1024;
constexpr std::size_t kMaxHeadSize = 64 * 1024;
constexpr milliseconds kSlice{250};
constexpr milliseconds kIdleTimeout{30'000};
constexpr milliseconds kHeadTimeout{10'000};
constexpr milliseconds kLinger{200};

bool isLoopback(socket_t socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof(address);
  if (::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return false;
  if (address.ss_family == AF_INET) {
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof(v4));
    return (ntohl(v4.sin_addr.s_addr) >> 24) == 127;
  }
  if (address.ss_family != AF_INET6) return false;
  sockaddr_in6 v6{};
  std::memcpy(&v6, &address, sizeof(v6));
  return IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr) ||
         (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr) && v6.sin6_addr.s6_addr[12] == 127);
}

}  // namespace

HttpConnection::HttpConnection(socket_t socket)
    : socket_(socket),
      peerIsLoopback_(isLoopback(socket)),
      buffer_(std::make_unique_for_overwrite<char[]>(kBufferSize)) {}

HttpConnection::~HttpConnection() { ::close(socket_); }

HttpConnection::Arrival HttpConnection::awaitHead(const std::function<bool()>& mayWait) {
  headLength_ = 0;
  auto deadline = steady_clock::now() + (begin_ == end_ ? kIdleTimeout : kHeadTimeout);
  std::size_t searched = 0;
  for (;;) {
    // Empty lines before a request are allowed and skipped (RFC 9112, 2.2).
    while (searched == 0 && end_ - begin_ >= 2 && buffer_[begin_] == '\r' &&
           buffer_[begin_ + 1] == '\n') {
      begin_ += 2;
    }
    const std::string_view pending(buffer_.get() + begin_, end_ - begin_);
    const std::size_t found = pending.find("\r\n\r\n", searched);
    if (found != std::string_view::npos && found + 4 <= kMaxHeadSize) {
      headLength_ = found + 4;
      return Arrival::kHead;
    }
    if (pending.size() >= kMaxHeadSize) return Arrival::kTooLarge;
    searched = pending.size() < 3 ? 0 : pending.size() - 3;

    const bool wasIdle = pending.empty();
    while (!waitForInput(kSlice)) {
      if (steady_clock::now() > deadline || !mayWait()) return Arrival::kClosed;
    }
    // Also a head that trickles in has to be there in time.
    if ((!wasIdle && steady_clock::now() > deadline) || !fill()) return Arrival::kClosed;
    if (wasIdle) deadline = steady_clock::now() + kHeadTimeout;
  }
}

std::string_view HttpConnection::head() const { return {buffer_.get() + begin_, headLength_}; }

void HttpConnection::present(std::string head) {
  begin_ += headLength_;
  headLength_ = 0;
  presented_ = std::move(head);
  presentedRead_ = 0;
}

bool HttpConnection::fill() {
  if (begin_ == end_) begin_ = end_ = 0;
  if (end_ == kBufferSize) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  for (;;) {
    const ssize_t n = ::recv(socket_, buffer_.get() + end_, kBufferSize - end_, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    end_ += static_cast<std::size_t>(n);
    return true;
  }
}

bool HttpConnection::waitForInput(milliseconds slice) const {
  pollfd entry{socket_, POLLIN, 0};
  return ::poll(&entry, 1, static_cast<int>(slice.count())) != 0;
}

ssize_t HttpConnection::read(char* to, std::size_t size) {
  if (presentedRead_ < presented_.size()) {
    const std::size_t n = presented_.copy(to, size, presentedRead_);
    presentedRead_ += n;
    return static_cast<ssize_t>(n);
  }
  if (begin_ == end_ && !fill()) return -1;
  const std::size_t n = std::min(size, end_ - begin_);
  std::memcpy(to, buffer_.get() + begin_, n);
  begin_ += n;
  return static_cast<ssize_t>(n);
}

ssize_t HttpConnection::write(const char* from, std::size_t size) {
  if (sealed_) return -1;
  for (;;) {
    const ssize_t n = ::send(socket_, from, size, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    // A peer that reads nothing for the whole time-out is given up.
    if (n < 0) sealed_ = true;
    return n;
  }
}

bool HttpConnection::writeAll(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(bytes.data(), bytes.size());
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

void HttpConnection::closeGently() {
  ::shutdown(socket_, SHUT_WR);
  const auto end = steady_clock::now() + kLinger;
  begin_ = end_ = 0;
  while (steady_clock::now() < end && waitForInput(kLinger) && fill()) begin_ = end_ = 0;
}

bool HttpConnection::is_readable() const {
  return presentedRead_ < presented_.size() || begin_ < end_ || waitForInput(milliseconds(0));
}

bool HttpConnection::is_writable() const { return !sealed_; }

void HttpConnection::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = peerIsLoopback_ ? "127.0.0.1" : "0.0.0.0";
  port = 0;
}

void HttpConnection::get_local_ip_and_port(std::string& ip, int& port) const {
  get_remote_ip_and_port(ip, port);
}

}  // namespace varo::sandbox
