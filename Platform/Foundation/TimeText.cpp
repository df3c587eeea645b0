#include "Platform/Foundation/TimeText.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace varo::platform {
namespace {

using Time = std::chrono::system_clock::time_point;

// A count of nanoseconds ends in 2262, and the difference of two times has to fit as well. "9999"
// is what many write for "never".
constexpr std::chrono::sys_days kEarliest = std::chrono::year(1800) / 1 / 1;
constexpr std::chrono::sys_days kLatest = std::chrono::year(2200) / 1 / 1;

/// The digits at a fixed place; -1 where there are others, or the text ends sooner.
int digitsAt(std::string_view text, std::size_t from, std::size_t count) {
  if (from + count > text.size()) return -1;
  const std::string_view digits = text.substr(from, count);
  if (digits.find_first_not_of("0123456789") != std::string_view::npos) return -1;
  return static_cast<int>(parseInteger(digits).value_or(-1));
}

struct Parts {
  int year, month, day, hour, minute, second;
};

std::optional<Time> timeOf(const Parts& parts) {
  const std::chrono::year_month_day date{std::chrono::year(parts.year),
                                         std::chrono::month(static_cast<unsigned>(parts.month)),
                                         std::chrono::day(static_cast<unsigned>(parts.day))};
  // A 60th second is a leap second.
  const bool isGood = parts.year >= 0 && date.ok() && parts.hour >= 0 && parts.hour < 24 &&
                      parts.minute >= 0 && parts.minute < 60 && parts.second >= 0 &&
                      parts.second <= 60;
  if (!isGood) return std::nullopt;
  const std::chrono::sys_seconds time =
      std::chrono::sys_days(date) + std::chrono::hours(parts.hour) +
      std::chrono::minutes(parts.minute) + std::chrono::seconds(parts.second);
  return std::clamp<std::chrono::sys_seconds>(time, kEarliest, kLatest);
}

/// What has to be added to the time before: "Z", ".123Z", "+02:00", ".5-01:30".
std::optional<std::chrono::milliseconds> fractionAndOffset(std::string_view text) {
  std::chrono::milliseconds sum{0};
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits == 0) return std::nullopt;
    int weight = 100;  // of the first digit, in milliseconds
    for (const char digit : text.substr(0, digits)) {
      sum += std::chrono::milliseconds((digit - '0') * weight);
      weight /= 10;
    }
    text.remove_prefix(digits);
  }
  if (text == "Z" || text == "z") return sum;
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return std::nullopt;
  const int hours = digitsAt(text, 1, 2);
  const int minutes = digitsAt(text, 4, 2);
  if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) return std::nullopt;
  const auto offset = std::chrono::hours(hours) + std::chrono::minutes(minutes);
  return text[0] == '+' ? sum - offset : sum + offset;
}

}  // namespace

std::optional<Time> httpTime(std::string_view text) {
  constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  if (text.size() != 29 || !text.ends_with(" GMT")) return std::nullopt;
  const std::size_t month = kMonths.find(text.substr(8, 3));
  if (month == std::string_view::npos || month % 3 != 0) return std::nullopt;
  return timeOf({digitsAt(text, 12, 4), static_cast<int>(month / 3) + 1, digitsAt(text, 5, 2),
                 digitsAt(text, 17, 2), digitsAt(text, 20, 2), digitsAt(text, 23, 2)});
}

std::optional<Time> isoTime(std::string_view text) {
  constexpr std::size_t kSeconds = 19;
  if (text.size() <= kSeconds || text[4] != '-' || text[7] != '-' ||
      (text[10] != 'T' && text[10] != 't') || text[13] != ':' || text[16] != ':') {
    return std::nullopt;
  }
  const auto time = timeOf({digitsAt(text, 0, 4), digitsAt(text, 5, 2), digitsAt(text, 8, 2),
                            digitsAt(text, 11, 2), digitsAt(text, 14, 2), digitsAt(text, 17, 2)});
  const auto rest = fractionAndOffset(text.substr(kSeconds));
  if (!time || !rest) return std::nullopt;
  return *time + *rest;
}

}  // namespace varo::platform
