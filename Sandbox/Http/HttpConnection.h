#pragma once

#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// One accepted connection. It reads the head of each request itself, so that the HTTP library only
/// ever sees the short head that `present` gives it, followed by the body as it arrives.
/// Used by the thread that serves the connection; only `interrupt` comes from others.
class HttpConnection final : public httplib::Stream {
 public:
  enum class Arrival { kHead, kClosed, kTooLarge };

  /// Takes over `socket`.
  explicit HttpConnection(socket_t socket);
  ~HttpConnection() override;
  HttpConnection(const HttpConnection&) = delete;
  HttpConnection& operator=(const HttpConnection&) = delete;

  /// Waits for the next request's head. `mayWait` is asked a few times a second while there is
  /// nothing to read, and ends the wait.
  [[nodiscard]] Arrival awaitHead(const std::function<bool()>& mayWait);
  /// The head that arrived, with its empty line. Valid until the next read.
  [[nodiscard]] std::string_view head() const;
  /// Drops the head that arrived; the next reads deliver `head`, then the request's body.
  void present(std::string head);

  /// Makes every later write fail, so that nothing more leaves.
  void seal() { sealed_ = true; }
  /// Whether it was sealed, or a write failed.
  [[nodiscard]] bool sealed() const { return sealed_; }
  /// Sends all of `bytes`.
  [[nodiscard]] bool writeAll(std::string_view bytes);
  /// Ends the sending side and lets the peer read what was sent, for a moment, before the socket
  /// goes: closing with unread input would reset the connection and take the answer with it.
  void closeGently();
  [[nodiscard]] bool peerIsLoopback() const { return peerIsLoopback_; }

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* to, std::size_t size) override;
  ssize_t write(const char* from, std::size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 private:
  [[nodiscard]] bool fill();
  [[nodiscard]] bool waitForInput(std::chrono::milliseconds slice) const;

  const socket_t socket_;
  const bool peerIsLoopback_;
  bool sealed_ = false;
  std::string presented_;
  std::size_t presentedRead_ = 0;
  // Large, so that a body costs few system calls; not filled with zeros, so that an idle
  // connection costs one page.
  const std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t headLength_ = 0;
};

}  // namespace varo::sandbox
