#include "Sandbox/Online/SignatureV4.h"

#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Text.h"
#include "Sandbox/Online/Digest.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace varo::sandbox::sigv4 {
namespace {

/// Sorted by the encoded name, then by the encoded value.
std::string canonicalQuery(const FieldList& parameters) {
  FieldList encoded;
  for (const auto& [name, value] : parameters) {
    // It cannot cover itself. Header signatures never meet this parameter.
    if (name == kSignatureParameter) continue;
    encoded.emplace_back(uriEncoded(name, Slash::kEncoded), uriEncoded(value, Slash::kEncoded));
  }
  // After the encoding: "%" sorts elsewhere than the character that it stands for.
  std::sort(encoded.begin(), encoded.end());
  std::string query;
  for (const auto& [name, value] : encoded) {
    query += fmt::format("{}{}={}", query.empty() ? "" : "&", name, value);
  }
  return query;
}

/// With each run of blanks as one; the head's parser has trimmed it.
std::string squeezed(std::string_view value) {
  std::string result;
  for (const char c : value) {
    if (c != ' ' || result.empty() || result.back() != ' ') result += c;
  }
  return result;
}

/// The values of all header lines of that name, in the order in which they came.
std::string canonicalValue(const FieldList& headers, std::string_view name) {
  std::string joined;
  bool first = true;
  for (const auto& [field, value] : headers) {
    if (!platform::equalIgnoringCase(field, name)) continue;
    if (!std::exchange(first, false)) joined += ',';
    joined += squeezed(value);
  }
  return joined;
}

/// The number in `text` at a fixed place; nothing unless all of it are digits.
std::optional<unsigned> digitsAt(std::string_view text, std::size_t from, std::size_t count) {
  const auto number = parseUnsigned(text.substr(from, count));
  if (!number) return std::nullopt;
  return static_cast<unsigned>(*number);
}

}  // namespace

std::string Scope::text() const {
  return fmt::format("{}/{}/{}/{}", date, region, service, kTerminator);
}

std::string uriEncoded(std::string_view text, Slash slash) {
  return platform::percentEncode(text, slash == Slash::kKept ? "/" : "");
}

std::string canonicalRequest(const HttpRequest& request,
                             const std::vector<std::string>& signedHeaders,
                             std::string_view payloadHash) {
  std::string text =
      fmt::format("{}\n{}\n{}\n", request.method, uriEncoded(request.path, Slash::kKept),
                  canonicalQuery(request.parameters));
  for (const std::string& name : signedHeaders) {
    text += fmt::format("{}:{}\n", name, canonicalValue(request.headers, name));
  }
  return text + fmt::format("\n{}\n{}", fmt::join(signedHeaders, ";"), payloadHash);
}

std::string stringToSign(std::string_view timestamp, const Scope& scope,
                         std::string_view canonicalRequest) {
  return fmt::format("{}\n{}\n{}\n{}", kAlgorithm, timestamp, scope.text(),
                     Digest::hexOf(canonicalRequest));
}

std::string signature(std::string_view secretKey, const Scope& scope,
                      std::string_view stringToSign) {
  // Each step narrows what the key is good for: one day, one region, one service.
  std::string key = fmt::format("AWS4{}", secretKey);
  for (const std::string_view part : {std::string_view(scope.date), std::string_view(scope.region),
                                      std::string_view(scope.service), kTerminator}) {
    key = hmacSha256(key, part);
  }
  return hexText(hmacSha256(key, stringToSign));
}

std::string timestampOf(Time time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return fmt::format("{:04}{:02}{:02}T{:02}{:02}{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::optional<Time> parseHttpDate(std::string_view text) {
  constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  if (text.size() != 29 || text[3] != ',' || !text.ends_with(" GMT")) return std::nullopt;
  const std::size_t month = kMonths.find(text.substr(8, 3));
  if (month == std::string_view::npos || month % 3 != 0) return std::nullopt;
  return parseTimestamp(fmt::format("{}{:02}{}T{}{}{}Z", text.substr(12, 4), month / 3 + 1,
                                    text.substr(5, 2), text.substr(17, 2), text.substr(20, 2),
                                    text.substr(23, 2)));
}

std::string httpDateOf(Time time) {
  // In English whatever the locale: the formatter uses the classic one.
  return fmt::format("{:%a, %d %b %Y %H:%M:%S} GMT", fmt::gmtime(time.time_since_epoch().count()));
}

std::optional<Time> parseTimestamp(std::string_view text) {
  if (text.size() != 16 || text[8] != 'T' || text[15] != 'Z') return std::nullopt;
  const auto year = digitsAt(text, 0, 4);
  const auto month = digitsAt(text, 4, 2);
  const auto day = digitsAt(text, 6, 2);
  const auto hour = digitsAt(text, 9, 2);
  const auto minute = digitsAt(text, 11, 2);
  const auto second = digitsAt(text, 13, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(*year)),
                                         std::chrono::month(*month), std::chrono::day(*day)};
  // A 60th second is a leap second.
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  return std::chrono::sys_days(date) + std::chrono::hours(*hour) + std::chrono::minutes(*minute) +
         std::chrono::seconds(*second);
}

}  // namespace varo::sandbox::sigv4
