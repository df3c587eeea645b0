#include "Binary/Binary/Utils/SigningTime.h"

#include <fmt/format.h>

namespace varo::binary::signing {

std::string dateText(std::chrono::system_clock::time_point time) {
  const std::chrono::year_month_day date(std::chrono::floor<std::chrono::days>(time));
  return fmt::format("{:04}{:02}{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::string timeText(std::chrono::system_clock::time_point time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::seconds>(time - day));
  return fmt::format("{}T{:02}{:02}{:02}Z", dateText(time), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count());
}

}  // namespace varo::binary::signing
