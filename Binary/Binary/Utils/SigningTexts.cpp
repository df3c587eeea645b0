#include "Binary/Binary/Utils/SigningTexts.h"

#include "Binary/Binary/Utils/S3SigningConstants.h"

#include <fmt/compile.h>

#include <array>
#include <cstddef>

namespace varo::binary::signing {
namespace {

using Time = std::chrono::system_clock::time_point;

/// Longer than a time, whatever its year.
using Buffer = std::array<char, 32>;

std::chrono::year_month_day dateOf(Time time) {
  return std::chrono::floor<std::chrono::days>(time);
}

}  // namespace

std::string dateText(Time time) {
  const std::chrono::year_month_day date = dateOf(time);
  Buffer text;
  char* const end =
      fmt::format_to(text.data(), FMT_COMPILE("{:04}{:02}{:02}"), static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return {text.data(), end};
}

std::string timeText(Time time) {
  const std::chrono::year_month_day date = dateOf(time);
  const std::chrono::hh_mm_ss clock(
      std::chrono::floor<std::chrono::seconds>(time - std::chrono::floor<std::chrono::days>(time)));
  Buffer text;
  char* const end = fmt::format_to(
      text.data(), FMT_COMPILE("{:04}{:02}{:02}T{:02}{:02}{:02}Z"), static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
      clock.minutes().count(), clock.seconds().count());
  return {text.data(), end};
}

std::string scopeText(std::string_view date, std::string_view region, std::string_view service) {
  return joined({date, "/", region, "/", service, "/", kScopeTerminator});
}

std::string stringToSign(std::string_view time, std::string_view scope,
                         std::string_view requestHash) {
  return joined({kAlgorithm, "\n", time, "\n", scope, "\n", requestHash});
}

std::string joined(std::initializer_list<std::string_view> parts) {
  std::size_t size = 0;
  for (const std::string_view part : parts) size += part.size();
  std::string text;
  text.reserve(size);
  for (const std::string_view part : parts) text += part;
  return text;
}

}  // namespace varo::binary::signing
