#pragma once

#include "Platform/System/TcpCounters.h"

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace varo::platform {

/// The sockets that libcurl has opened, so that the one of a transfer can be found. Private to the
/// curl adapter; owned by the I/O thread.
class CurlSockets {
 public:
  /// A `CURLOPT_SOCKOPTFUNCTION`; `self` is this object.
  static int onOpen(void* self, curl_socket_t socket, curlsocktype purpose) noexcept;

  /// The connected socket with these ports, or -1.
  [[nodiscard]] curl_socket_t find(int localPort, int remotePort) noexcept;

 private:
  std::vector<curl_socket_t> sockets_;  // some are closed by now; each number at most once
};

/// Whether the bytes of one exchange move. Private to the curl adapter; owned by the I/O thread.
///
/// libcurl counts whole header lines, and what it sends once the system has taken it, which may be
/// minutes before it is on its way. So what the connection itself has moved counts too: all of it
/// where the exchange has the connection to itself (HTTP/1.1); over HTTP/2, where others use it as
/// well, only confirmations of bytes that this exchange has sent.
class CurlMovement {
 public:
  using Clock = std::chrono::steady_clock;

  /// A new exchange begins.
  void begin(Clock::time_point now) noexcept { *this = CurlMovement(now); }
  /// The connection stands, and the request goes out on it.
  void setConnection(CURL* easy, curl_socket_t socket) noexcept;

  /// Nothing has to move until `now`.
  void excuse(Clock::time_point now) noexcept { lastMove_ = now; }

  /// Whether no byte has moved for `stallTimeout`. While it connects libcurl's own time-out is in
  /// force, and while it waits for a stream of a busy HTTP/2 connection there is none.
  [[nodiscard]] bool hasStalled(CURL* easy, Clock::time_point now,
                                std::chrono::milliseconds stallTimeout) noexcept;

  CurlMovement() noexcept : CurlMovement(Clock::now()) {}

 private:
  explicit CurlMovement(Clock::time_point now) noexcept : lastMove_(now) {}
  [[nodiscard]] std::uint64_t moved(CURL* easy) const noexcept;

  curl_socket_t socket_ = CURL_SOCKET_BAD;
  bool isShared_ = false;        // with other exchanges: HTTP/2
  system::TcpCounters atStart_;  // of the connection, before this exchange
  std::uint64_t moved_ = 0;
  Clock::time_point lastMove_;
};

}  // namespace varo::platform
