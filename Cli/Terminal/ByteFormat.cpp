#include "Cli/Terminal/ByteFormat.h"

#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <array>
#include <limits>

namespace varo::cli {

namespace {

constexpr double kStep = 1024.0;
constexpr std::array<std::string_view, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};

/// The factor of a unit suffix, or nothing.
std::optional<std::int64_t> unitFactor(std::string_view suffix) {
  if (suffix.empty()) return 1;
  const std::string unit = platform::lowerCase(suffix);
  const std::string_view rest = std::string_view(unit).substr(1);
  if (!rest.empty() && rest != "ib") return std::nullopt;
  switch (unit.front()) {
    case 'k':
      return std::int64_t{1} << 10;
    case 'm':
      return std::int64_t{1} << 20;
    case 'g':
      return std::int64_t{1} << 30;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::string formatBytes(std::uint64_t bytes) {
  if (bytes < 1024) return fmt::format("{} B", bytes);
  double value = static_cast<double>(bytes) / kStep;
  std::size_t unit = 0;
  // 1023.95 would be printed as 1024.0: the next unit starts where rounding reaches it.
  while (value >= kStep - 0.05 && unit + 1 < kUnits.size()) {
    value /= kStep;
    ++unit;
  }
  return fmt::format("{:.1f} {}", value, kUnits.at(unit));
}

std::string formatRate(double bytesPerSecond) {
  constexpr double kLargest = 1e18;
  if (!(bytesPerSecond > 0.0) || bytesPerSecond > kLargest) return "-";
  return formatBytes(static_cast<std::uint64_t>(bytesPerSecond)) + "/s";
}

std::string formatDuration(std::chrono::milliseconds duration) {
  const auto whole = std::chrono::ceil<std::chrono::seconds>(duration).count();
  const auto seconds = whole < 0 ? 0 : whole;
  if (seconds < 3600) return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
  return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::optional<std::int64_t> parseByteCount(std::string_view text) {
  const std::size_t digits = text.find_first_not_of("0123456789");
  const std::optional<std::int64_t> number = platform::parseInteger(text.substr(0, digits));
  const std::optional<std::int64_t> factor =
      unitFactor(digits == std::string_view::npos ? std::string_view() : text.substr(digits));
  if (!number || !factor || *number < 1) return std::nullopt;
  if (*number > std::numeric_limits<std::int64_t>::max() / *factor) return std::nullopt;
  return *number * *factor;
}

}  // namespace varo::cli
