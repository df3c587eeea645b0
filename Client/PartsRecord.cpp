#include "Client/PartsRecord.h"

#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <algorithm>

namespace varo::detail {

using platform::Dictionary;

namespace {

constexpr std::int64_t kVersion = 1;
constexpr std::size_t kLongestTag = 1024;

constexpr char kVersionKey[] = "version";
constexpr char kObjectKey[] = "object";
constexpr char kEntityTagKey[] = "entityTag";
constexpr char kObjectSizeKey[] = "objectSize";
constexpr char kFirstKey[] = "first";
constexpr char kSizeKey[] = "size";
constexpr char kPartSizeKey[] = "partSize";
constexpr char kPartsKey[] = "parts";

std::string digestOf(std::string_view line) {
  const auto digest = platform::Sha256::of(line);
  return digest ? digest->hex() : std::string();
}

/// "0-7,9,12-13": short, as parts come nearly in order.
std::string rangesOf(const std::vector<bool>& isThere) {
  std::string ranges;
  for (std::size_t i = 0; i < isThere.size(); ++i) {
    if (!isThere[i]) continue;
    const std::size_t first = i;
    while (i + 1 < isThere.size() && isThere[i + 1]) ++i;
    ranges += ranges.empty() ? "" : ",";
    ranges += first == i ? fmt::to_string(first) : fmt::format("{}-{}", first, i);
  }
  return ranges;
}

bool readRanges(std::string_view ranges, std::vector<bool>& isThere) {
  std::size_t next = 0;
  while (!ranges.empty()) {
    const std::string_view one = ranges.substr(0, ranges.find(','));
    ranges.remove_prefix(std::min(ranges.size(), one.size() + 1));
    const std::size_t dash = one.find('-');
    const auto first = platform::parseInteger(one.substr(0, dash));
    const auto last =
        dash == std::string_view::npos ? first : platform::parseInteger(one.substr(dash + 1));
    if (!first || !last || *first < 0 || *last < *first) return false;
    if (static_cast<std::uint64_t>(*first) < next) return false;
    if (static_cast<std::uint64_t>(*last) >= isThere.size()) return false;
    next = static_cast<std::size_t>(*last) + 1;
    for (auto i = static_cast<std::size_t>(*first); i < next; ++i) isThere[i] = true;
  }
  return true;
}

/// Numbers of 63 bits alone, so that no sum of two is beyond 64.
std::optional<std::uint64_t> numberIn(const Dictionary& fields, const char* key) {
  const platform::Value& value = fields[key];
  if (!value.isInteger() || value.integerValue() < 0) return std::nullopt;
  return static_cast<std::uint64_t>(value.integerValue());
}

}  // namespace

std::uint64_t PartsRecord::bytesThere() const {
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < isThere.size(); ++i) bytes += isThere[i] ? plan.length(i) : 0;
  return bytes;
}

std::size_t PartsRecord::firstMissing() const {
  const auto missing = std::find(isThere.begin(), isThere.end(), false);
  return std::min<std::size_t>(static_cast<std::size_t>(missing - isThere.begin()),
                               isThere.size() - 1);
}

std::uint64_t PartsRecord::end() const {
  for (std::size_t i = isThere.size(); i > 0; --i) {
    if (isThere[i - 1]) return plan.first(i - 1) + plan.length(i - 1);
  }
  return 0;
}

std::string PartsRecord::text() const {
  if (!entityTag.starts_with('"') || entityTag.size() > kLongestTag) return {};
  const auto line =
      platform::json::serialize(Dictionary{{kVersionKey, kVersion},
                                           {kObjectKey, object},
                                           {kEntityTagKey, entityTag},
                                           {kObjectSizeKey, static_cast<std::int64_t>(objectSize)},
                                           {kFirstKey, static_cast<std::int64_t>(first)},
                                           {kSizeKey, static_cast<std::int64_t>(plan.size)},
                                           {kPartSizeKey, static_cast<std::int64_t>(plan.partSize)},
                                           {kPartsKey, rangesOf(isThere)}});
  if (!line || line->size() > kMaxText / 2) return {};
  return fmt::format("{}\n{}\n", *line, digestOf(*line));
}

std::optional<PartsRecord> PartsRecord::parse(std::string_view text) {
  const std::size_t end = text.find('\n');
  if (text.size() > kMaxText || end == std::string_view::npos) return std::nullopt;
  const std::string_view line = text.substr(0, end);
  if (text.substr(end) != fmt::format("\n{}\n", digestOf(line))) return std::nullopt;
  const auto parsed = platform::json::parse(line);
  const Dictionary* fields = parsed ? parsed->dictionary() : nullptr;
  if (fields == nullptr || numberIn(*fields, kVersionKey) != kVersion) return std::nullopt;

  PartsRecord record;
  record.object = (*fields)[kObjectKey].textValue();
  record.entityTag = (*fields)[kEntityTagKey].textValue();
  const auto objectSize = numberIn(*fields, kObjectSizeKey);
  const auto first = numberIn(*fields, kFirstKey);
  const auto size = numberIn(*fields, kSizeKey);
  const auto partSize = numberIn(*fields, kPartSizeKey);
  if (!objectSize || !first || !size || !partSize || !record.entityTag.starts_with('"')) {
    return std::nullopt;
  }
  if (*size == 0 || *partSize == 0 || *first + *size > *objectSize) return std::nullopt;
  if ((*size - 1) / *partSize >= kMostParts) return std::nullopt;
  record.objectSize = *objectSize;
  record.first = *first;
  record.plan = {*size, *partSize};
  record.isThere.assign(record.plan.count(), false);
  if (!readRanges((*fields)[kPartsKey].textValue(), record.isThere)) return std::nullopt;
  return record;
}

}  // namespace varo::detail
