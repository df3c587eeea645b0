#pragma once

#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Result.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace varo::platform {

/// Everything that travels in a context: missing, null (JSON's), boolean, 64-bit integer, larger
/// whole number, double, text (UTF-8), bytes, array, dictionary, an error, or a shared object.
///
/// Values behave as values; copying one never costs more than copying a text. Typed accessors
/// answer with a null pointer for a value of another type; the `...Value` conversions never fail.
/// Not thread-safe as one instance; copies may be used on different threads.
class Value {
 public:
  /// The missing value.
  Value() noexcept = default;
  /// JSON's null, which is a value and not missing.
  Value(std::nullptr_t) noexcept : value_(Null{}) {}
  Value(std::same_as<bool> auto flag) noexcept : value_(flag) {}
  template <std::integral T>
  requires(!std::same_as<T, bool>) Value(T number)
  noexcept(!kMayExceedInteger<T>) : value_(static_cast<std::int64_t>(number)) {
    if constexpr (kMayExceedInteger<T>) {
      if (std::cmp_greater(number, std::numeric_limits<std::int64_t>::max())) {
        value_ = LargeInteger{std::to_string(number)};
      }
    }
  }
  Value(double number) noexcept : value_(number) {}
  Value(const char* text) : value_(std::string(text)) {}
  Value(std::string_view text) : value_(std::string(text)) {}
  Value(std::string text) noexcept : value_(std::move(text)) {}
  Value(Data data) noexcept : value_(std::move(data)) {}
  Value(Array array) noexcept : value_(std::move(array)) {}
  Value(Dictionary dictionary) noexcept : value_(std::move(dictionary)) {}
  /// A null pointer makes the missing value, here and below.
  template <typename T>
  requires std::derived_from<T, Error> Value(std::shared_ptr<const T> error) {
    if (error != nullptr) value_ = ErrorPtr(std::move(error));
  }
  Value(ErrorPtr error);
  template <std::derived_from<Object> T>
  Value(std::shared_ptr<T> object) {
    if (object != nullptr) value_ = ObjectPtr(std::move(object));
  }

  /// The whole number with these decimal digits and an optional minus: an integer where it fits,
  /// else one that keeps all its digits. `digits` must be JSON's form of a whole number.
  [[nodiscard]] static Value wholeNumber(std::string_view digits);

  [[nodiscard]] bool isMissing() const noexcept { return is<Missing>(); }
  [[nodiscard]] bool isPresent() const noexcept { return !isMissing(); }
  [[nodiscard]] bool isNull() const noexcept { return is<Null>(); }
  /// Missing, or JSON's null: for entries where both mean that nothing is given.
  [[nodiscard]] bool isBool() const noexcept { return is<bool>(); }
  [[nodiscard]] bool isInteger() const noexcept { return is<std::int64_t>(); }
  [[nodiscard]] bool isReal() const noexcept { return is<double>(); }
  [[nodiscard]] bool isText() const noexcept { return is<std::string>(); }
  [[nodiscard]] bool isData() const noexcept { return is<Data>(); }
  [[nodiscard]] bool isArray() const noexcept { return is<Array>(); }
  [[nodiscard]] bool isDictionary() const noexcept { return is<Dictionary>(); }

  /// The value as what it is, or null when it is something else. Valid while this value is
  /// unchanged.
  [[nodiscard]] const bool* boolean() const noexcept { return std::get_if<bool>(&value_); }
  [[nodiscard]] const std::int64_t* integer() const noexcept {
    return std::get_if<std::int64_t>(&value_);
  }
  /// The digits, with their sign, of a whole number that no `integer` can be.
  [[nodiscard]] const std::string* largeInteger() const noexcept {
    const auto* number = std::get_if<LargeInteger>(&value_);
    return number != nullptr ? &number->digits : nullptr;
  }
  [[nodiscard]] const double* real() const noexcept { return std::get_if<double>(&value_); }
  [[nodiscard]] const std::string* text() const noexcept {
    return std::get_if<std::string>(&value_);
  }
  [[nodiscard]] const Data* data() const noexcept { return std::get_if<Data>(&value_); }
  [[nodiscard]] const Array* array() const noexcept { return std::get_if<Array>(&value_); }
  [[nodiscard]] const Dictionary* dictionary() const noexcept {
    return std::get_if<Dictionary>(&value_);
  }
  [[nodiscard]] ErrorPtr error() const noexcept;
  [[nodiscard]] ObjectPtr object() const noexcept;
  /// The shared object if it is a `T`, else null.
  template <std::derived_from<Object> T>
  [[nodiscard]] std::shared_ptr<T> objectAs() const noexcept {
    return std::dynamic_pointer_cast<T>(object());
  }

  /// The dictionary, or an empty one where this is something else.
  [[nodiscard]] Dictionary dictionaryValue() const noexcept;

  /// Number of a number (fractions cut off, out-of-range values clamped), 0 or 1 of a boolean, of a
  /// text its leading digits with an optional sign and leading blanks; otherwise 0.
  [[nodiscard]] std::int64_t integerValue() const noexcept;

  /// True for a non-zero number and for the texts "true", "yes" and "1" in any letter case.
  [[nodiscard]] bool boolValue() const noexcept;

  /// The text that is sent: decimal for numbers, "true"/"false", the text itself, the JSON text of
  /// an array or a dictionary (`json::text`: whole, secrets included), "null" for null, a
  /// description of bytes, errors and objects. Empty for a missing value. For logs, use
  /// `description`.
  [[nodiscard]] std::string textValue() const;

  /// Where a description for a log ends, in bytes, and what stands for no limit.
  static constexpr std::size_t kLogLimit = 4096;
  static constexpr std::size_t kWhole = std::string::npos;
  /// Text for logs and people: of at most `limit` bytes and an ellipsis, bytes as their length,
  /// secrets inside of dictionaries and arrays redacted. A value that is a text is that text.
  [[nodiscard]] std::string description(std::size_t limit = kLogLimit) const;

  /// Deep comparison; errors and shared objects by identity. 1 and 1.0 differ.
  friend bool operator==(const Value& left, const Value& right);

 private:
  template <typename T>
  static constexpr bool kMayExceedInteger = std::is_unsigned_v<T> &&
                                            sizeof(T) >= sizeof(std::int64_t);
  struct Missing {
    friend bool operator==(Missing, Missing) { return true; }
  };
  struct Null {
    friend bool operator==(Null, Null) { return true; }
  };
  struct LargeInteger {
    std::string digits;
    friend bool operator==(const LargeInteger&, const LargeInteger&) = default;
  };
  template <typename T>
  [[nodiscard]] bool is() const noexcept {
    return std::holds_alternative<T>(value_);
  }

  std::variant<Missing, Null, bool, std::int64_t, LargeInteger, double, std::string, Data, Array,
               Dictionary, ErrorPtr, ObjectPtr>
      value_;
};

/// One entry of a `Dictionary`, by itself.
struct DictionaryEntry {
  std::string key;
  Value value;
};

inline Dictionary::Entry::operator DictionaryEntry() const { return {key, value}; }

inline Dictionary::Entry Dictionary::const_iterator::operator[](
    difference_type distance) const noexcept {
  return {keys_[position_ + distance], values_[position_ + distance]};
}

}  // namespace varo::platform
