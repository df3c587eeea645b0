#pragma once

#include "Platform/Network/NetworkTuning.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace varo::platform {

/// What an application may set of the default transport.
///
/// There is deliberately no switch that turns the verification of certificates off, and no
/// environment variable has a say: neither in what is trusted, nor in the proxy (there is none),
/// nor in whether the keys of connections are written down (libcurl creates the file that
/// SSLKEYLOGFILE names, and it stays empty).
struct NetworkConfiguration {
  /// Until a connection stands, name look-up and TLS included. Zero or less: the default, 30 s.
  std::chrono::milliseconds connectTimeout = tuning::kConnectTimeout;
  /// How long no byte may move before a transfer is given up. Zero or less: the default, 60 s.
  std::chrono::milliseconds stallTimeout = tuning::kStallTimeout;
  /// Certificates (PEM) to trust besides the system's; empty for none. A file that cannot be read
  /// fails every https request.
  std::string caFile;
  /// Transfers that run at once; at least 1. Later ones wait their turn, without a time-out.
  std::size_t maxActiveTransfers = tuning::kMaxActiveTransfers;
};

/// A time-out as it is used: `otherwise` where none is set, or zero or less; at most a day.
[[nodiscard]] constexpr std::chrono::milliseconds boundedTimeout(
    std::optional<std::chrono::milliseconds> value, std::chrono::milliseconds otherwise) noexcept {
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24);
  return value && value->count() > 0 ? std::min(*value, kLongest) : otherwise;
}

}  // namespace varo::platform
