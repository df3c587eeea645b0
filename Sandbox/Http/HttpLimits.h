#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace varo::sandbox {

/// Longest JSON body in bytes: it is held in memory, and no client needs more for metadata.
inline constexpr std::size_t kMaxJsonBytes = std::size_t{4} << 20;

/// What one listener takes from its clients before it gives one up.
struct HttpLimits {
  /// Connections served at once, each by a thread of its own. Further ones wait, and idle ones are
  /// closed for them. A thread that waits costs a page or two, so there is one for each client of
  /// the largest tests.
  std::size_t connections = 640;

  /// Request line and header lines together, in bytes; a filter in the query may be long.
  std::size_t headBytes = std::size_t{64} * 1024;
  /// Clients send some twenty.
  std::size_t headerLines = 200;
  /// Of the path as it was sent, in bytes: room for a key of 1 KiB with every byte encoded.
  std::size_t pathBytes = 4096;
  /// Of a request's body, in bytes: what a client that never ends may do to the disk.
  std::uint64_t bodyBytes = std::uint64_t{64} << 30;

  /// Between two requests. Long enough for a client that polls.
  std::chrono::milliseconds idleTimeout{30'000};
  /// From the first byte of a head to its last, however small the pieces are in which it comes.
  std::chrono::milliseconds headTimeout{10'000};
  /// The longest wait for `transferBytes` more of a body that is received or sent. The sandbox's
  /// own work and its faults do not count.
  std::chrono::milliseconds transferTimeout{30'000};
  /// Bytes. With the time-out, the least speed: 34 bytes a second are no transfer but a held
  /// thread.
  std::size_t transferBytes = 1024;
  /// How long a closed connection is read on: unread input would reset it, and the reset would
  /// overtake the response.
  std::chrono::milliseconds closeTimeout{200};
};

}  // namespace varo::sandbox
