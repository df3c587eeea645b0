#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// The numbers of the database layer, each with its unit and the reason for it.
namespace varo::platform::tuning {

/// How long a statement waits for another connection's lock. The application's own transactions are
/// short; a sync session's may take seconds.
inline constexpr std::chrono::milliseconds kBusyTimeout{5'000};
/// How long a write that nobody waits for waits for a commit to go with. Commits follow each other
/// far more closely where there are many; and where there are few, one of its own costs little.
inline constexpr std::chrono::milliseconds kPatience{100};
/// How long a connection stays open unused. A statement on an open one costs a fraction of one that
/// opens its own; but as long as it is open, the application's last close is not the last, so its
/// write-ahead log stays beside the file.
inline constexpr std::chrono::milliseconds kIdleConnection{1'000};
/// Connections kept, one a path, save for those in use. An application has one or two such
/// databases; each connection takes up to three descriptors and its page cache.
inline constexpr std::size_t kMaxConnections = 8;
/// Prepared statements kept in a connection. The library itself uses fewer than ten texts.
inline constexpr std::size_t kMaxPreparedStatements = 32;
/// Bytes of one value that is written as a BLOB: it is in memory as a whole while it is.
inline constexpr std::uint64_t kMaxBoundData = std::uint64_t{16} << 20U;
/// How often opening starts over because the file was replaced meanwhile.
inline constexpr int kMaxOpenAttempts = 3;

}  // namespace varo::platform::tuning
