#include "tests/support/HttpClient.h"

#include "Platform/Foundation/Text.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace varo::test {
namespace http = boost::beast::http;
using boost::asio::ip::tcp;
namespace {

constexpr timeval kPatience{20, 0};

struct Address {
  std::string host, port, target;
};

Address addressOf(const std::string& url) {
  const std::size_t host = url.find("://") + 3;
  const std::size_t slash = std::min(url.find('/', host), url.size());
  const std::size_t colon = url.rfind(':', slash);
  return {url.substr(host, colon - host), url.substr(colon + 1, slash - colon - 1),
          slash == url.size() ? "/" : url.substr(slash)};
}

}  // namespace

std::string HttpAnswer::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (platform::equalIgnoringCase(key, name)) return value;
  }
  return {};
}

HttpAnswer httpRequest(const std::string& method, const std::string& url, const std::string& body,
                       const HttpHeaders& headers) {
  const Address address = addressOf(url);
  http::request<http::string_body> request;
  request.version(11);
  request.method_string(method);
  request.target(address.target);
  request.set(http::field::host, address.host + ":" + address.port);
  for (const auto& [name, value] : headers) request.set(name, value);
  request.body() = body;
  if (!body.empty() || method == "POST" || method == "PUT") request.prepare_payload();

  boost::asio::io_context context;
  tcp::socket socket(context);
  boost::system::error_code error;
  boost::asio::connect(socket, tcp::resolver(context).resolve(address.host, address.port), error);
  if (error) return {};
  http::write(socket, request, error);
  boost::beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  parser.body_limit(std::uint64_t{1} << 30);
  http::read(socket, buffer, parser, error);
  if (error) return {};
  HttpAnswer answer{static_cast<int>(parser.get().result_int()), {}, parser.get().body()};
  for (const auto& field : parser.get()) {
    answer.headers.emplace_back(field.name_string(), field.value());
  }
  return answer;
}

RawConnection::RawConnection(const std::string& url, int receiveBuffer)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const Address address = addressOf(url);
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof(kPatience));
  ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof(kPatience));
  if (receiveBuffer > 0) {
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
  }
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<std::uint16_t>(std::stoi(address.port)));
  ::inet_pton(AF_INET, address.host.c_str(), &peer.sin_addr);
  static_cast<void>(::connect(socket_, reinterpret_cast<sockaddr*>(&peer), sizeof(peer)));
}

RawConnection::~RawConnection() { ::close(socket_); }

bool RawConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void RawConnection::endSending() { ::shutdown(socket_, SHUT_WR); }

std::string RawConnection::receive(std::string_view marker) {
  std::string received;
  std::array<char, 65'536> block;
  while (marker.empty() || received.find(marker) == std::string::npos) {
    const ssize_t count = ::recv(socket_, block.data(), block.size(), 0);
    if (count <= 0) break;
    received.append(block.data(), static_cast<std::size_t>(count));
  }
  return received;
}

bool RawConnection::hasInput(int milliseconds) const {
  pollfd entry{socket_, POLLIN, 0};
  return ::poll(&entry, 1, milliseconds) > 0;
}

}  // namespace varo::test
