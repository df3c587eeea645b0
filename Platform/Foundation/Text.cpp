#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace varo::platform {
namespace {

// ASCII alone and no locale: protocols compare names in this way.
constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

constexpr bool isContinuation(unsigned char byte) { return (byte & 0xC0U) == 0x80U; }

/// The length of the well-formed sequence at the start of `bytes`, or 0 (Unicode, table 3-7).
std::size_t sequenceLength(std::string_view bytes) noexcept {
  const auto at = [bytes](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : static_cast<unsigned char>(0);
  };
  const unsigned char lead = at(0);
  if (lead < 0x80U) return 1;
  if (lead >= 0xC2U && lead <= 0xDFU) return isContinuation(at(1)) ? 2 : 0;
  if (lead >= 0xE0U && lead <= 0xEFU) {
    const bool second = isContinuation(at(1)) && (lead != 0xE0U || at(1) >= 0xA0U) &&
                        (lead != 0xEDU || at(1) <= 0x9FU);
    return second && isContinuation(at(2)) ? 3 : 0;
  }
  if (lead >= 0xF0U && lead <= 0xF4U) {
    const bool second = isContinuation(at(1)) && (lead != 0xF0U || at(1) >= 0x90U) &&
                        (lead != 0xF4U || at(1) <= 0x8FU);
    return second && isContinuation(at(2)) && isContinuation(at(3)) ? 4 : 0;
  }
  return 0;
}

constexpr std::array<std::string_view, 4> kIntegerPlaceholders{"%ld", "%lu", "%lld", "%d"};

const std::string_view* integerPlaceholderAt(std::string_view text) {
  return std::find_if(
      kIntegerPlaceholders.begin(), kIntegerPlaceholders.end(),
      [text](std::string_view placeholder) { return text.starts_with(placeholder); });
}

}  // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lower(a) == lower(b); });
}

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower);
  return result;
}

std::string_view trimmed(std::string_view text) noexcept {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
}

std::optional<std::int64_t> parseInteger(std::string_view text) noexcept {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, failure] = std::from_chars(text.data(), end, number);
  if (failure != std::errc() || stopped != end || text.empty()) return std::nullopt;
  return number;
}

namespace {

std::string filledIn(std::string_view pattern, std::initializer_list<Value> values,
                     std::size_t limit) {
  std::string result;
  const Value* next = values.begin();
  std::size_t i = 0;
  while (i < pattern.size()) {
    const std::string_view rest = pattern.substr(i);
    const std::string_view* integer =
        next == values.end() ? kIntegerPlaceholders.end() : integerPlaceholderAt(rest);
    if (next != values.end() && rest.starts_with("%@")) {
      result += (next++)->description(limit);
      i += 2;
    } else if (integer != kIntegerPlaceholders.end()) {
      result += std::to_string((next++)->integerValue());
      i += integer->size();
    } else {
      result += pattern[i++];
    }
  }
  return result;
}

}  // namespace

std::string formatMessage(std::string_view pattern, std::initializer_list<Value> values) {
  return filledIn(pattern, values, Value::kWhole);
}

std::string formatLogMessage(std::string_view pattern, std::initializer_list<Value> values) {
  return filledIn(pattern, values, Value::kLogLimit);
}

bool isUtf8(std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const std::size_t length = sequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string_view utf8Prefix(std::string_view text, std::size_t limit) noexcept {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  // Back to the start of a character, which has three such bytes at most; other bytes may follow
  // for ever in what is not UTF-8.
  while (end > 0 && limit - end < 3 && isContinuation(static_cast<unsigned char>(text[end]))) --end;
  return text.substr(0, end);
}

std::string sanitizeUtf8(std::string_view bytes) {
  if (isUtf8(bytes)) return std::string(bytes);
  std::string result;
  result.reserve(bytes.size());
  while (!bytes.empty()) {
    const std::size_t length = sequenceLength(bytes);
    result += length != 0 ? bytes.substr(0, length) : kReplacementCharacter;
    bytes.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

}  // namespace varo::platform
