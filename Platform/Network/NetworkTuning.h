#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// The numbers of the network layer, each with its unit and the reason for it.
namespace varo::platform::tuning {

inline constexpr std::size_t kKiB = 1024;
inline constexpr std::size_t kMiB = 1024 * kKiB;

// Time.

/// From the start of a transfer until its connection, TLS included, stands. Long enough for a
/// mobile network that wakes up.
inline constexpr std::chrono::milliseconds kConnectTimeout{30'000};
/// How long a transfer may move no byte, in either direction. There is no limit on the whole.
inline constexpr std::chrono::milliseconds kStallTimeout{60'000};
/// Longest wait of the I/O thread while transfers run: the resolution of the stall time-out.
inline constexpr std::chrono::milliseconds kLongestPoll{1'000};
/// Longest wait while nothing runs; a new transfer wakes the thread at once.
inline constexpr std::chrono::milliseconds kIdlePoll{600'000};
/// Pause after libcurl failed as a whole (out of memory), so that the thread does not spin.
inline constexpr std::chrono::milliseconds kFailureBackoff{100};

/// Longest that a kept connection may have been idle to be used for a POST, which is not sent again
/// where the server closes it at that moment. Many servers do so after 5 s.
inline constexpr std::chrono::seconds kLongestIdleForPost{3};

// Counts.

/// Transfers handed to libcurl at once; later ones wait in a queue of our own, where no time-out
/// runs. Each needs a socket and may need a spool file; where the process may have fewer than 1,024
/// descriptors, a quarter of them.
inline constexpr std::size_t kMaxActiveTransfers = 256;
/// Easy handles kept for reuse. A fresh one costs about a quarter of a small transfer, a kept one
/// its upload buffer.
inline constexpr std::size_t kMaxIdleHandles = 16;
/// Sets of credentials whose cookies are kept; the one used longest ago makes room.
inline constexpr std::size_t kMaxCookieJars = 16;
/// Redirects followed for one request.
inline constexpr int kMaxRedirects = 10;
/// Body bytes of a redirect that are read, so that its connection can be kept, before they cost
/// more than a new connection.
inline constexpr std::uint64_t kMaxRedirectBody = 64 * kKiB;

// Response headers: a server may send them for ever.

/// Bytes of all header lines of one response.
inline constexpr std::size_t kMaxHeaderBytes = 256 * kKiB;
/// Header lines of one response.
inline constexpr std::size_t kMaxHeaderLines = 2'000;

// Buffers. All are per transfer; with many transfers at once they shrink, so that their sum stays
// near `kBufferBudget`. Only a part of an object that goes to its place has `kWriteSize` always.

/// What libcurl reads from a socket at once. Fewer system calls than its default of 16 KiB; not
/// more, since what was read has to be in the processor's cache still when it is written.
inline constexpr std::size_t kReceiveBuffer = 64 * kKiB;
/// What is read from a request body at once: a chunk of the usual size in one read. Measured on
/// chunked uploads: a fifth less CPU than with libcurl's default of 64 KiB.
inline constexpr std::size_t kUploadBuffer = 1 * kMiB;
/// Bytes of one write to a file; of a response, gathered before: libcurl hands out at most 16 KiB
/// at a time. The file cache takes memory in pieces of the size of the writes: with 128 KiB a file
/// took three quarters of the time that it took with 32 KiB; with 1 MiB now and then six times as
/// much, in a virtual machine whose free memory goes back to its host.
inline constexpr std::size_t kWriteSize = 128 * kKiB;
inline constexpr std::size_t kBufferBudget = 16 * kMiB;
/// The least of the first two.
inline constexpr std::size_t kSmallestBuffer = 64 * kKiB;
/// Instead of them for what is short: a body that has no more, and the response to a request with a
/// body. The least that libcurl takes for the first.
inline constexpr std::size_t kShortBuffer = 16 * kKiB;

/// Response bodies up to this size stay in memory, larger ones go to a file.
inline constexpr std::uint64_t kSpoolThreshold = 1 * kMiB;
/// Buffers of that size kept for the next responses while nobody has them: twice as many as
/// downloads have together between the connection and the disk.
inline constexpr std::size_t kMaxIdleBuffers = 16;
/// How long they are kept after the last transfer.
inline constexpr std::chrono::milliseconds kIdleBufferTime{1'000};

}  // namespace varo::platform::tuning
