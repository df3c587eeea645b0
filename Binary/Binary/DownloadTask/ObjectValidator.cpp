#include "Binary/Binary/DownloadTask/ObjectValidator.h"

#include "Binary/Binary/SourceNames.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"

#include <array>
#include <chrono>
#include <utility>

namespace varo::binary {
namespace {

constexpr std::string_view kWeak = "W/";
/// Bytes of a field that is kept: both and the rest fit into `kMaxText`, escaped as well.
constexpr std::size_t kMaxField = 256;

constexpr char kEntityTag[] = "etag";
constexpr char kLastModified[] = "lastModified";
constexpr char kIsLastModifiedStrong[] = "isLastModifiedStrong";
constexpr char kTotal[] = "total";

std::string_view withoutWeak(std::string_view tag) noexcept {
  return tag.starts_with(kWeak) ? tag.substr(kWeak.size()) : tag;
}

/// Digits alone: a date has no signs.
std::optional<int> number(std::string_view text) noexcept {
  if (text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  const auto value = platform::parseInteger(text);
  return value ? std::optional(static_cast<int>(*value)) : std::nullopt;
}

/// The time that an IMF-fixdate tells (RFC 9110, section 5.6.7). The two obsolete forms are none.
std::optional<std::chrono::sys_seconds> parseDate(std::string_view text) noexcept {
  constexpr std::string_view kForm = "Sun, 06 Nov 1994 08:49:37 GMT";
  constexpr std::array<std::string_view, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (text.size() != kForm.size() || !text.ends_with(" GMT") || text.substr(3, 2) != ", ") {
    return std::nullopt;
  }
  const auto day = number(text.substr(5, 2));
  const auto year = number(text.substr(12, 4));
  const auto hour = number(text.substr(17, 2));
  const auto minute = number(text.substr(20, 2));
  const auto second = number(text.substr(23, 2));
  unsigned month = 0;
  while (month < kMonths.size() && kMonths.at(month) != text.substr(8, 3)) ++month;
  if (!day || !year || !hour || !minute || !second || month == kMonths.size()) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(month + 1),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  return std::chrono::sys_days(date) + std::chrono::hours(*hour) + std::chrono::minutes(*minute) +
         std::chrono::seconds(*second);
}

}  // namespace

bool tagsMatchWeakly(std::string_view left, std::string_view right) noexcept {
  return withoutWeak(left) == withoutWeak(right);
}

bool isLaterDate(std::string_view date, std::string_view lastModified) noexcept {
  const auto later = parseDate(date);
  const auto earlier = parseDate(lastModified);
  return later && earlier && *later - *earlier >= std::chrono::seconds(1);
}

bool ObjectValidator::hasStrongTag() const noexcept {
  return !entityTag.empty() && !entityTag.starts_with(kWeak);
}

std::string ObjectValidator::ifRange() const {
  // If-Range takes no weak tag, and a date only where there is no tag (RFC 9110, 13.1.5).
  if (!entityTag.empty()) return hasStrongTag() ? entityTag : std::string();
  return isLastModifiedStrong ? lastModified : std::string();
}

std::string ObjectValidator::text() const {
  Dictionary fields;
  if (!entityTag.empty() && entityTag.size() <= kMaxField) fields.set(kEntityTag, entityTag);
  if (!lastModified.empty() && lastModified.size() <= kMaxField) {
    fields.set(kLastModified, lastModified);
    fields.set(kIsLastModifiedStrong, isLastModifiedStrong);
  }
  if (total > 0) fields.set(kTotal, total);
  if (fields.empty()) return {};
  const auto line = platform::json::serialize(fields);
  return line ? *line : std::string();
}

std::optional<ObjectValidator> ObjectValidator::parse(std::string_view text) {
  if (text.empty() || text.size() > kMaxText) return std::nullopt;
  const auto parsed = platform::json::parse(platform::trimmed(text));
  const Dictionary* fields = parsed ? parsed->dictionary() : nullptr;
  if (fields == nullptr) return std::nullopt;
  ObjectValidator validator;
  validator.entityTag = (*fields)[kEntityTag].textValue();
  validator.lastModified = (*fields)[kLastModified].textValue();
  validator.isLastModifiedStrong = (*fields)[kIsLastModifiedStrong].boolValue();
  validator.total = (*fields)[kTotal].integerValue();
  if (validator.total < 0 || validator.isEmpty()) return std::nullopt;
  return validator;
}

}  // namespace varo::binary
