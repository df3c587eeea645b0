#include "Platform/Foundation/Value.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace varo::platform {
namespace {

/// Descriptions are for logs: beyond this many characters they end in an ellipsis.
constexpr std::size_t kDescriptionLimit = 4096;
/// Nested deeper than this, a description shows "..." (and cannot exhaust the stack).
constexpr int kDescriptionDepth = 16;

std::int64_t clampToInteger(double number) noexcept {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (std::isnan(number)) return 0;
  if (number >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (number < -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

std::int64_t leadingInteger(std::string_view text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  const bool negative = text.starts_with('-');
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
  }
  std::int64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<std::int64_t>::min()
                    : std::numeric_limits<std::int64_t>::max();
  }
  return number;
}

void describe(const Value& value, int depth, std::string& out);

void describe(const Dictionary& dictionary, int depth, std::string& out) {
  out += '{';
  bool first = true;
  for (const DictionaryEntry& entry : dictionary) {
    if (out.size() > kDescriptionLimit) break;
    if (!std::exchange(first, false)) out += ", ";
    out += entry.key;
    out += ": ";
    if (isSecretKey(entry.key)) {
      out += kRedacted;
    } else {
      describe(entry.value, depth + 1, out);
    }
  }
  out += '}';
}

void describe(const Array& array, int depth, std::string& out) {
  out += '[';
  bool first = true;
  for (const Value& element : array) {
    if (out.size() > kDescriptionLimit) break;
    if (!std::exchange(first, false)) out += ", ";
    describe(element, depth + 1, out);
  }
  out += ']';
}

void describe(const Value& value, int depth, std::string& out) {
  if (depth > kDescriptionDepth) {
    out += "...";
  } else if (const Dictionary* dictionary = value.dictionary()) {
    describe(*dictionary, depth, out);
  } else if (const Array* array = value.array()) {
    describe(*array, depth, out);
  } else if (const std::string* text = value.text()) {
    // A text that someone asked for is shown as it is; among others it may be a signed URL.
    const std::string_view start = utf8Prefix(*text, kDescriptionLimit + 4);
    out += depth == 0 ? std::string(start) : redactSecrets(start);
  } else if (value.isMissing()) {
    out += "(none)";
  } else {
    out += value.textValue();
  }
}

}  // namespace

Value::Value(ErrorPtr error) {
  if (error != nullptr) value_ = std::move(error);
}

ErrorPtr Value::error() const noexcept {
  const auto* error = std::get_if<ErrorPtr>(&value_);
  return error != nullptr ? *error : nullptr;
}

ObjectPtr Value::object() const noexcept {
  const auto* object = std::get_if<ObjectPtr>(&value_);
  return object != nullptr ? *object : nullptr;
}

Dictionary Value::dictionaryValue() const noexcept {
  const Dictionary* found = dictionary();
  return found != nullptr ? *found : Dictionary();
}

std::int64_t Value::integerValue() const noexcept {
  if (const auto* number = integer()) return *number;
  if (const auto* number = real()) return clampToInteger(*number);
  if (const auto* flag = boolean()) return *flag ? 1 : 0;
  if (const auto* digits = text()) return leadingInteger(*digits);
  return 0;
}

bool Value::boolValue() const noexcept {
  if (const auto* flag = boolean()) return *flag;
  if (const auto* number = integer()) return *number != 0;
  if (const auto* number = real()) return *number != 0.0;
  if (const auto* word = text()) {
    return equalIgnoringCase(*word, "true") || equalIgnoringCase(*word, "yes") || *word == "1";
  }
  return false;
}

std::string Value::textValue() const {
  if (const auto* words = text()) return *words;
  if (const auto* number = integer()) return std::to_string(*number);
  if (const auto* number = real()) return fmt::format("{}", *number);
  if (const auto* flag = boolean()) return *flag ? "true" : "false";
  if (const auto* bytes = data()) return bytes->description();
  if (isNull()) return "null";
  if (const ErrorPtr failure = error()) return failure->description();
  if (const ObjectPtr shared = object()) return shared->description();
  if (isMissing()) return {};
  return description();
}

std::string Value::description() const {
  std::string out;
  describe(*this, 0, out);
  if (out.size() > kDescriptionLimit) {
    out.resize(utf8Prefix(out, kDescriptionLimit).size());
    out += "...";
  }
  return out;
}

bool operator==(const Value& left, const Value& right) { return left.value_ == right.value_; }

}  // namespace varo::platform
