#include "Platform/System/TcpCounters.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace varo::platform::system {

std::optional<TcpCounters> tcpCountersOf(int socket) noexcept {
  tcp_info info{};
  socklen_t size = sizeof(info);
  if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return std::nullopt;
  return TcpCounters{info.tcpi_bytes_received, info.tcpi_bytes_acked};
}

}  // namespace varo::platform::system
