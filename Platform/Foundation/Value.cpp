#include "Platform/Foundation/Value.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace varo::platform {
namespace {

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

/// Writes descriptions; stops soon after `limit` bytes.
class Describer {
 public:
  explicit Describer(std::size_t limit) : limit_(limit) {}

  [[nodiscard]] std::string take() noexcept { return std::move(out_); }

  void add(const Value& value, int depth) {
    if (depth > kDescriptionDepth) {
      out_ += "...";
    } else if (const Dictionary* dictionary = value.dictionary()) {
      add(*dictionary, depth);
    } else if (const Array* array = value.array()) {
      add(*array, depth);
    } else if (const std::string* text = value.text()) {
      // A text that someone asked for is shown as it is; among others it may be a signed URL.
      const std::string_view start = limit_ == Value::kWhole
                                         ? std::string_view(*text)
                                         : utf8Prefix(*text, limit_ + kLongestCharacter);
      out_ += depth == 0 ? std::string(start) : redactSecrets(start);
    } else if (value.isMissing()) {
      out_ += "(none)";
    } else if (const ErrorPtr error = value.error()) {
      out_ += redactSecrets(error->description());
    } else {
      out_ += value.textValue();
    }
  }

 private:
  static constexpr std::size_t kLongestCharacter = 4;

  void add(const Dictionary& dictionary, int depth) {
    out_ += '{';
    bool first = true;
    for (const auto& entry : dictionary) {
      if (out_.size() > limit_) break;
      if (!std::exchange(first, false)) out_ += ", ";
      out_ += entry.key;
      out_ += ": ";
      if (isSecretKey(entry.key)) {
        out_ += kRedacted;
      } else {
        add(entry.value, depth + 1);
      }
    }
    out_ += '}';
  }

  void add(const Array& array, int depth) {
    out_ += '[';
    bool first = true;
    for (const Value& element : array) {
      if (out_.size() > limit_) break;
      if (!std::exchange(first, false)) out_ += ", ";
      add(element, depth + 1);
    }
    out_ += ']';
  }

  const std::size_t limit_;
  std::string out_;
};

}  // namespace

Value::Value(ErrorPtr error) {
  if (error != nullptr) value_ = std::move(error);
}

Value Value::wholeNumber(std::string_view digits) {
  if (const auto number = parseInteger(digits)) return *number;
  Value value;
  value.value_ = LargeInteger{std::string(digits)};
  return value;
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
  if (const auto* digits = largeInteger()) return leadingInteger(*digits);
  if (const auto* flag = boolean()) return *flag ? 1 : 0;
  if (const auto* digits = text()) return leadingInteger(*digits);
  return 0;
}

bool Value::boolValue() const noexcept {
  if (const auto* flag = boolean()) return *flag;
  if (const auto* number = integer()) return *number != 0;
  if (const auto* number = real()) return *number != 0.0;
  if (largeInteger() != nullptr) return true;
  if (const auto* word = text()) {
    return equalIgnoringCase(*word, "true") || equalIgnoringCase(*word, "yes") || *word == "1";
  }
  return false;
}

std::string Value::textValue() const {
  if (const auto* words = text()) return *words;
  if (const auto* number = integer()) return std::to_string(*number);
  if (const auto* digits = largeInteger()) return *digits;
  if (const auto* number = real()) return fmt::format("{}", *number);
  if (const auto* flag = boolean()) return *flag ? "true" : "false";
  if (const auto* bytes = data()) return bytes->description();
  if (isNull()) return "null";
  if (const ErrorPtr failure = error()) return failure->description();
  if (const ObjectPtr shared = object()) return shared->description();
  return isMissing() ? std::string() : json::text(*this);
}

std::string Value::description(std::size_t limit) const {
  Describer describer(limit);
  describer.add(*this, 0);
  std::string out = describer.take();
  if (out.size() > limit) {
    out.resize(utf8Prefix(out, limit).size());
    out += "...";
  }
  return out;
}

bool operator==(const Value& left, const Value& right) { return left.value_ == right.value_; }

}  // namespace varo::platform
