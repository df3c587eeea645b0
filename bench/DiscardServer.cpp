// The other side of the transfer figures: a back end that costs next to nothing, so that what is
// measured is the client. It speaks the list, creation, chunk and commit exchanges over HTTP/1.1
// and throws the bytes of every upload away inside the kernel, without copying them.
//
//   discard_server DOWNLOAD_DOMAIN
//
// listens on a free port of 127.0.0.1 and prints that port. The service /services/NAME has one
// file, NAME, whose bytes are at DOWNLOAD_DOMAIN/NAME. GET /received answers with what has come in
// since it was last asked: creations, chunks, bytes of chunks, commits.

#include <fmt/format.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <unordered_map>

namespace {

constexpr std::size_t kMaxHead = std::size_t{64} * 1024;
constexpr std::size_t kDiscardAtOnce = std::size_t{4} * 1024 * 1024;
constexpr std::string_view kRecordsPath = "/objects/File";
constexpr std::string_view kChunkPath = "/services/bytes";

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

struct Received {
  std::uint64_t creations = 0;
  std::uint64_t chunks = 0;
  std::uint64_t chunkBytes = 0;
  std::uint64_t commits = 0;
};

struct Request {
  std::string_view method;
  std::string_view path;
  std::uint64_t contentLength = 0;
};

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&lower](char a, char b) { return lower(a) == lower(b); });
}

/// Parses a head that ends in an empty line; false where it is none this server can serve.
bool parseHead(std::string_view head, Request& request) {
  const std::size_t method = head.find(' ');
  const std::size_t target = head.find(' ', method + 1);
  if (method == head.npos || target == head.npos) return false;
  request.method = head.substr(0, method);
  request.path = head.substr(method + 1, target - method - 1);
  request.path = request.path.substr(0, request.path.find('?'));

  std::size_t line = head.find("\r\n");
  while (line != head.npos) {
    const std::string_view rest = head.substr(line + 2);
    const std::string_view field = rest.substr(0, rest.find("\r\n"));
    const std::size_t colon = field.find(':');
    if (colon == field.npos) break;
    const std::string_view name = field.substr(0, colon);
    std::string_view value = field.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    if (equalsIgnoringCase(name, "Transfer-Encoding")) return false;
    if (equalsIgnoringCase(name, "Content-Length")) {
      const auto parsed = std::from_chars(value.begin(), value.end(), request.contentLength);
      if (parsed.ec != std::errc{}) return false;
    }
    line = head.find("\r\n", line + 2);
  }
  return true;
}

class Server {
 public:
  explicit Server(std::string downloadDomain) : downloadDomain_(std::move(downloadDomain)) {}

  [[noreturn]] void run();

 private:
  struct Connection {
    std::string head;
    /// The answer that goes out when the body has been discarded.
    std::string answer;
    std::uint64_t bodyLeft = 0;
  };

  void listen();
  void accept();
  /// False when the connection has ended or must end.
  bool serve(int socket, Connection& connection);
  bool takeHead(Connection& connection);
  bool finish(int socket, Connection& connection);
  std::string answerTo(const Request& request);

  const std::string downloadDomain_;
  int listener_ = -1;
  int epoll_ = -1;
  std::unordered_map<int, Connection> connections_;
  Received received_;
};

void Server::listen() {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (listener_ < 0 || ::bind(listener_, generic, length) != 0 ||
      ::listen(listener_, SOMAXCONN) != 0 || ::getsockname(listener_, generic, &length) != 0) {
    fail("listen");
  }
  epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = listener_;
  if (epoll_ < 0 || ::epoll_ctl(epoll_, EPOLL_CTL_ADD, listener_, &event) != 0) fail("epoll");
  fmt::print("{}\n", ntohs(address.sin_port));
  std::fflush(stdout);
}

void Server::accept() {
  const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (socket < 0) return;
  const int on = 1;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = socket;
  if (::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
      ::epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0) {
    ::close(socket);
    return;
  }
  connections_.insert_or_assign(socket, Connection{});
}

void Server::run() {
  listen();
  std::array<epoll_event, 256> events{};
  for (;;) {
    const int count = ::epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), -1);
    if (count < 0 && errno != EINTR) fail("epoll_wait");
    for (int i = 0; i < count; ++i) {
      const int socket = events[static_cast<std::size_t>(i)].data.fd;
      if (socket == listener_) {
        accept();
      } else if (!serve(socket, connections_[socket])) {
        connections_.erase(socket);
        ::close(socket);
      }
    }
  }
}

bool Server::serve(int socket, Connection& connection) {
  for (;;) {
    std::array<char, 4096> buffer;
    const bool inBody = connection.bodyLeft > 0;
    // On a TCP socket MSG_TRUNC drops the bytes: nothing is copied out of the kernel.
    const ssize_t got =
        inBody ? ::recv(socket, nullptr,
                        std::min<std::uint64_t>(connection.bodyLeft, kDiscardAtOnce), MSG_TRUNC)
               : ::recv(socket, buffer.data(), buffer.size(), 0);
    if (got < 0) return errno == EAGAIN || errno == EINTR;
    if (got == 0) return false;
    const auto bytes = static_cast<std::size_t>(got);
    if (inBody) {
      connection.bodyLeft -= bytes;
    } else {
      connection.head.append(buffer.data(), bytes);
      if (!takeHead(connection)) return false;
    }
    if (connection.bodyLeft == 0 && !finish(socket, connection)) return false;
  }
}

bool Server::takeHead(Connection& connection) {
  const std::size_t end = connection.head.find("\r\n\r\n");
  if (end == std::string::npos) return connection.head.size() < kMaxHead;
  Request request;
  if (!parseHead(std::string_view(connection.head).substr(0, end + 2), request)) return false;
  // A client that waits for each answer sends nothing beyond the body: no pipelining here.
  const std::uint64_t bodyHere = connection.head.size() - (end + 4);
  if (bodyHere > request.contentLength) return false;
  connection.answer = answerTo(request);
  connection.bodyLeft = request.contentLength - bodyHere;
  connection.head.clear();
  return true;
}

bool Server::finish(int socket, Connection& connection) {
  if (connection.answer.empty()) return true;
  const std::string answer = std::move(connection.answer);
  connection.answer.clear();
  // A few hundred bytes always fit into the empty send buffer of a client that waits for them.
  return ::send(socket, answer.data(), answer.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(answer.size());
}

std::string Server::answerTo(const Request& request) {
  std::string status = "200 OK";
  std::string body;
  if (request.path.ends_with(kRecordsPath)) {
    const std::string_view service = request.path.substr(0, request.path.rfind(kRecordsPath));
    const std::string_view name = service.substr(service.rfind('/') + 1);
    if (request.method == "GET") {
      body = fmt::format(
          R"({{"opstatus":0,"records":[{{"file_id":"{0}","file_name":"{0}",)"
          R"("download_template":"{{\"domain\":\"{1}\",\"relativepath\":\"/{0}\"}}"}}]}})",
          name, downloadDomain_);
    } else if (request.method == "POST") {
      ++received_.creations;
      body = fmt::format(
          R"({{"opstatus":0,"file_id":"{}","upload_template":"{{\"domain\":\"#middlewaredomain\",)"
          R"(\"relativepath\":\"/bytes\",\"uploadMode\":\"binary\",\"method\":\"put\"}}"}})",
          received_.creations);
    } else {
      ++received_.commits;
      body = R"({"opstatus":0})";
    }
  } else if (request.path == kChunkPath) {
    ++received_.chunks;
    received_.chunkBytes += request.contentLength;
    body = R"({"opstatus":0})";
  } else if (request.path == "/received") {
    body =
        fmt::format(R"({{"creations":{},"chunks":{},"bytes":{},"commits":{}}})",
                    received_.creations, received_.chunks, received_.chunkBytes, received_.commits);
    received_ = {};
  } else {
    status = "404 Not Found";
    body = R"({"opstatus":404})";
  }
  return fmt::format(
      "HTTP/1.1 {}\r\nContent-Type: application/json\r\nContent-Length: {}\r\n\r\n{}", status,
      body.size(), body);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fmt::print(stderr, "usage: discard_server DOWNLOAD_DOMAIN\n");
    return 2;
  }
  Server(argv[1]).run();
}
