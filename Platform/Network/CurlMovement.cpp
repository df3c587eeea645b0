#include "Platform/Network/CurlMovement.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <new>
#include <string_view>
#include <sys/socket.h>

namespace varo::platform {
namespace {

/// Of one end of a connected socket; -1 where there is none.
template <typename GetName>
int portOf(curl_socket_t socket, const GetName& getName) noexcept {
  sockaddr_storage address{};
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (getName(socket, generic, &size) != 0) return -1;
  // Both kinds of address have the port at the same place.
  if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return -1;
  return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

bool speaksHttp2(CURL* easy) noexcept {
  const curl_tlssessioninfo* session = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &session) != CURLE_OK || session == nullptr ||
      session->backend != CURLSSLBACKEND_OPENSSL || session->internals == nullptr) {
    return false;
  }
  const unsigned char* protocol = nullptr;
  unsigned int length = 0;
  SSL_get0_alpn_selected(static_cast<const SSL*>(session->internals), &protocol, &length);
  return std::string_view(reinterpret_cast<const char*>(protocol), length) == "h2";
}

}  // namespace

int CurlSockets::onOpen(void* self, curl_socket_t socket, curlsocktype /*purpose*/) noexcept {
  auto& sockets = static_cast<CurlSockets*>(self)->sockets_;
  try {
    if (std::find(sockets.begin(), sockets.end(), socket) == sockets.end()) {
      sockets.push_back(socket);
    }
  } catch (const std::bad_alloc&) {
    // Without it the stall time-out is only less exact.
  }
  return CURL_SOCKOPT_OK;
}

/// libcurl tells ports, no sockets, when it begins to use a connection. One that was closed and
/// whose number is taken again is found by its new ports or not at all.
curl_socket_t CurlSockets::find(int localPort, int remotePort) noexcept {
  const auto found = std::find_if(sockets_.begin(), sockets_.end(), [&](curl_socket_t socket) {
    return portOf(socket, ::getsockname) == localPort &&
           portOf(socket, ::getpeername) == remotePort;
  });
  return found == sockets_.end() ? CURL_SOCKET_BAD : *found;
}

void CurlMovement::setConnection(CURL* easy, curl_socket_t socket) noexcept {
  socket_ = socket;
  isShared_ = speaksHttp2(easy);
  atStart_ = system::tcpCountersOf(socket).value_or(system::TcpCounters{});
}

std::uint64_t CurlMovement::moved(CURL* easy) const noexcept {
  curl_off_t sent = 0;
  curl_off_t received = 0;
  long headerBytes = 0;
  // These cannot fail on a handle that is in use; a zero would only delay the time-out.
  static_cast<void>(curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &sent));
  static_cast<void>(curl_easy_getinfo(easy, CURLINFO_SIZE_DOWNLOAD_T, &received));
  static_cast<void>(curl_easy_getinfo(easy, CURLINFO_HEADER_SIZE, &headerBytes));
  const auto sentBytes = static_cast<std::uint64_t>(sent);
  std::uint64_t total =
      sentBytes + static_cast<std::uint64_t>(received) + static_cast<std::uint64_t>(headerBytes);
  if (const auto counters = system::tcpCountersOf(socket_)) {
    const std::uint64_t confirmed = counters->confirmed - atStart_.confirmed;
    total += isShared_ ? std::min(confirmed, sentBytes)
                       : confirmed + counters->received - atStart_.received;
  }
  return total;
}

bool CurlMovement::hasStalled(CURL* easy, Clock::time_point now,
                              std::chrono::milliseconds stallTimeout) noexcept {
  // 0 until the request may go out: before that the connection's own time-out counts.
  curl_off_t beforeTransfer = 0;
  static_cast<void>(curl_easy_getinfo(easy, CURLINFO_PRETRANSFER_TIME_T, &beforeTransfer));
  const std::uint64_t total = moved(easy);
  if (beforeTransfer == 0 || total != moved_) {
    moved_ = total;
    lastMove_ = now;
  }
  return now - lastMove_ >= stallTimeout;
}

}  // namespace varo::platform
