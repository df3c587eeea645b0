#include "Sandbox/Http/TimedSocket.h"

#include <algorithm>
#include <utility>

namespace varo::sandbox {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TimedSocket::TimedSocket(Socket socket) : socket_(std::move(socket)) {
  // Both fail on a connection that has ended already; its first read tells that, too.
  ErrorCode ignored;
  socket_.non_blocking(true, ignored);
  // Head and body of a response are two writes; without this the second one waits for the peer's
  // delayed acknowledgement of the first.
  socket_.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
}

void TimedSocket::allowWaits(milliseconds time, std::size_t renewingBytes) {
  allowed_ = time;
  left_ = time;
  renewingBytes_ = renewingBytes;
  moved_ = 0;
}

void TimedSocket::noteMoved(std::size_t bytes) {
  moved_ += bytes;
  if (moved_ < renewingBytes_) return;
  moved_ = 0;
  left_ = allowed_;
}

bool TimedSocket::awaitInput(milliseconds time) {
  pollfd entry{socket_.native_handle(), POLLIN, 0};
  return ::poll(&entry, 1, static_cast<int>(time.count())) > 0;
}

bool TimedSocket::await(short events) {
  // Several waits share one allowance, so each takes off what it used.
  const auto begin = steady_clock::now();
  pollfd entry{socket_.native_handle(), events, 0};
  const auto time = std::chrono::ceil<milliseconds>(left_);
  // An interrupted wait or a broken connection is for the operation to find out.
  const bool mayBeReady = ::poll(&entry, 1, static_cast<int>(time.count())) != 0;
  // Never below zero, which `poll` would take for "without a limit".
  left_ -= std::min(left_, steady_clock::now() - begin);
  return mayBeReady;
}

void TimedSocket::endSending() {
  ErrorCode ignored;
  socket_.shutdown(Socket::shutdown_send, ignored);
}

bool TimedSocket::peerIsLoopback() const {
  namespace ip = boost::asio::ip;
  ErrorCode error;
  const ip::address address = socket_.remote_endpoint(error).address();
  if (error) return false;
  // A listener on "::" sees IPv4 clients under such addresses, which are no loopback ones
  // themselves.
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return ip::make_address_v4(ip::v4_mapped, address.to_v6()).is_loopback();
  }
  return address.is_loopback();
}

}  // namespace varo::sandbox
