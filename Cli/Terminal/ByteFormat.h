#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo::cli {

/// "1 B", "64.0 KiB", "2.4 MiB": powers of 1024, one decimal from KiB on.
[[nodiscard]] std::string formatBytes(std::uint64_t bytes);

/// "3.4 MiB/s"; "-" for a rate that is not a positive number.
[[nodiscard]] std::string formatRate(double bytesPerSecond);

/// "0:07", "12:30", "1:02:03"; seconds are rounded up, so that "0:00" means done.
[[nodiscard]] std::string formatDuration(std::chrono::milliseconds duration);

/// A positive number of bytes: digits, optionally followed by K, M or G, with or without "iB"
/// (powers of 1024). Nothing for anything else, also for what does not fit 63 bits.
[[nodiscard]] std::optional<std::int64_t> parseByteCount(std::string_view text);

}  // namespace varo::cli
