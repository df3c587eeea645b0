#pragma once

#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/system/system_error.hpp>

#include <chrono>
#include <cstddef>
#include <limits>
#include <poll.h>

namespace varo::sandbox {

/// A connected socket whose synchronous reads and writes wait for the peer no longer than allowed,
/// and then fail with `timed_out`. The HTTP library takes it as a stream, hence the names of its
/// operations. Used by one thread.
class TimedSocket {
 public:
  using Socket = boost::asio::ip::tcp::socket;
  using ErrorCode = boost::system::error_code;

  explicit TimedSocket(Socket socket);

  /// From now on all waits together may take `time`, and as long again whenever `renewingBytes`
  /// have moved. Only waiting counts, not what happens between two operations.
  void allowWaits(std::chrono::milliseconds time,
                  std::size_t renewingBytes = std::numeric_limits<std::size_t>::max());

  /// Waits up to `time` for something to read, or for the peer's end; counts as no wait.
  [[nodiscard]] bool awaitInput(std::chrono::milliseconds time);

  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers, ErrorCode& error) {
    return attempt(POLLIN, error, [&] { return socket_.read_some(buffers, error); });
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers, ErrorCode& error) {
    return attempt(POLLOUT, error, [&] { return socket_.write_some(buffers, error); });
  }
  // The library's concept of a stream wants these two as well; nobody calls them.
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers) {
    ErrorCode error;
    const std::size_t count = read_some(buffers, error);
    if (error) throw boost::system::system_error(error);
    return count;
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers) {
    ErrorCode error;
    const std::size_t count = write_some(buffers, error);
    if (error) throw boost::system::system_error(error);
    return count;
  }

  /// Nothing more will be sent.
  void endSending();
  [[nodiscard]] bool peerIsLoopback() const;

 private:
  template <typename Operation>
  std::size_t attempt(short events, ErrorCode& error, Operation operation) {
    for (;;) {
      const std::size_t moved = operation();
      if (error != boost::asio::error::would_block) {
        noteMoved(moved);
        return moved;
      }
      if (!await(events)) {
        error = boost::asio::error::timed_out;
        return 0;
      }
    }
  }
  void noteMoved(std::size_t bytes);
  [[nodiscard]] bool await(short events);

  Socket socket_;
  std::chrono::milliseconds allowed_{0};
  std::chrono::steady_clock::duration left_{0};
  std::size_t renewingBytes_ = 0;
  std::size_t moved_ = 0;  // since the time was renewed
};

}  // namespace varo::sandbox
