#pragma once

#include <cstdint>
#include <optional>

namespace varo::platform::system {

/// Bytes that a TCP connection has moved, as the system counts them.
struct TcpCounters {
  std::uint64_t received = 0;
  /// Of those sent, what the peer has confirmed.
  std::uint64_t confirmed = 0;
};

/// None where the socket is closed or the system does not count. Thread-safe.
[[nodiscard]] std::optional<TcpCounters> tcpCountersOf(int socket) noexcept;

}  // namespace varo::platform::system
