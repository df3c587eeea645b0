#include "Platform/Foundation/Json.h"

#include "Platform/Foundation/DictionaryBuilder.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"

#include <boost/json/basic_parser_impl.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

namespace varo::platform::json {
namespace {

using boost::json::error_code;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Builds a `Value` from the parser's events. It keeps one frame a level of nesting, each with the
/// entries or elements of the container that is open there.
class ValueBuilder {
 public:
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);

  explicit ValueBuilder(std::uint64_t maxValues) : left_(maxValues) {}

  /// Whether there are more values than allowed: why an event has been refused.
  [[nodiscard]] bool hasTooMany() const noexcept { return hasTooMany_; }
  [[nodiscard]] Value takeRoot() noexcept { return std::move(root_); }

  bool on_document_begin(error_code& /*error*/) { return true; }
  bool on_document_end(error_code& /*error*/) { return true; }

  bool on_object_begin(error_code& /*error*/) {
    push(true);
    return true;
  }
  bool on_object_end(std::size_t /*size*/, error_code& error) {
    return add(frames_[--depth_].entries.take(), error);
  }
  bool on_array_begin(error_code& /*error*/) {
    Frame& frame = push(false);
    frame.elements.reserve(std::min(frame.lastElements, kMaxReserved));
    return true;
  }
  bool on_array_end(std::size_t /*size*/, error_code& error) {
    Frame& frame = frames_[--depth_];
    frame.lastElements = frame.elements.size();
    return add(Array(std::exchange(frame.elements, {})), error);
  }

  bool on_key_part(std::string_view part, std::size_t /*size*/, error_code& /*error*/) {
    text_ += part;
    return true;
  }
  bool on_key(std::string_view part, std::size_t /*size*/, error_code& /*error*/) {
    DictionaryBuilder& entries = frames_[depth_ - 1].entries;
    if (text_.empty()) {
      entries.key(part);
    } else {
      entries.key(takeText(part));
    }
    return true;
  }
  bool on_string_part(std::string_view part, std::size_t /*size*/, error_code& /*error*/) {
    text_ += part;
    return true;
  }
  bool on_string(std::string_view part, std::size_t /*size*/, error_code& error) {
    return add(takeText(part), error);
  }

  bool on_number_part(std::string_view part, error_code& /*error*/) {
    text_ += part;
    return true;
  }
  bool on_int64(std::int64_t number, std::string_view /*part*/, error_code& error) {
    text_.clear();
    return add(number, error);
  }
  bool on_uint64(std::uint64_t /*number*/, std::string_view part, error_code& error) {
    return add(Value::wholeNumber(takeText(part)), error);
  }
  bool on_double(double approximation, std::string_view part, error_code& error) {
    // The parser's own conversion is off by some units in the last place.
    const std::string digits = takeText(part);
    if (digits.find_first_of(".eE") == std::string::npos) {
      return add(Value::wholeNumber(digits), error);
    }
    double number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (result.ec == std::errc::result_out_of_range && std::abs(approximation) > 1) {
      error = boost::json::error::exponent_overflow;
      return false;
    }
    return add(number, error);
  }
  bool on_bool(bool flag, error_code& error) { return add(flag, error); }
  bool on_null(error_code& error) { return add(nullptr, error); }
  bool on_comment_part(std::string_view /*part*/, error_code& /*error*/) { return true; }
  bool on_comment(std::string_view /*part*/, error_code& /*error*/) { return true; }

 private:
  /// More is not reserved for an array on the word of its sibling.
  static constexpr std::size_t kMaxReserved = 64;
  struct Frame {
    bool isObject = false;
    DictionaryBuilder entries;
    std::vector<Value> elements;
    /// Of the last array that ended at this level: siblings are mostly alike, so that the next one
    /// needs one allocation.
    std::size_t lastElements = 0;
  };

  Frame& push(bool isObject) {
    if (depth_ == frames_.size()) frames_.emplace_back();
    Frame& frame = frames_[depth_++];
    frame.isObject = isObject;
    return frame;
  }

  /// False, with `error` set, for a value too many.
  template <typename T>
  bool add(T&& value, error_code& error) {
    if (left_-- == 0) {
      hasTooMany_ = true;
      error = boost::json::error::array_too_large;
      return false;
    }
    if (depth_ == 0) {
      root_ = Value(std::forward<T>(value));
      return true;
    }
    Frame& frame = frames_[depth_ - 1];
    if (frame.isObject) {
      frame.entries.value(std::forward<T>(value));
    } else {
      frame.elements.emplace_back(std::forward<T>(value));
    }
    return true;
  }

  /// The text that ends with `part`, after the parts that came before it.
  std::string takeText(std::string_view part) {
    if (text_.empty()) return std::string(part);
    text_ += part;
    return std::exchange(text_, {});
  }

  std::uint64_t left_;  // values that may still come
  bool hasTooMany_ = false;
  Value root_;
  std::vector<Frame> frames_;
  std::size_t depth_ = 0;  // open containers; deeper frames are kept for siblings
  std::string text_;       // parts of a key, text or number that has not ended
};

class Parser {
 public:
  explicit Parser(const JsonLimits& limits)
      : limits_(limits), parser_(options(limits), limits.values) {}

  /// Takes the next bytes; `more` says whether others follow.
  [[nodiscard]] Result<void> feed(std::string_view bytes, bool more) {
    if (position_ == 0 && bytes.starts_with(kByteOrderMark)) {
      bytes.remove_prefix(kByteOrderMark.size());
      position_ = kByteOrderMark.size();
    }
    error_code failure;
    const std::size_t used = parser_.write_some(more, bytes.data(), bytes.size(), failure);
    if (!failure && used < bytes.size()) failure = boost::json::error::extra_data;
    position_ += used;
    if (!failure) return {};
    return errorOf(failure);
  }

  [[nodiscard]] Value takeRoot() noexcept { return parser_.handler().takeRoot(); }

 private:
  static boost::json::parse_options options(const JsonLimits& limits) {
    boost::json::parse_options options;
    options.max_depth = std::min(limits.depth, kMaxDepth);
    return options;
  }

  [[nodiscard]] ErrorPtr errorOf(const error_code& failure) const {
    if (failure == boost::json::error::too_deep) {
      return Error::make(kErrorDomain, kTooDeep,
                         fmt::format("The JSON nests deeper at byte {}: the limit is {} levels",
                                     position_, std::min(limits_.depth, kMaxDepth)));
    }
    if (parser_.handler().hasTooMany()) {
      return Error::make(kErrorDomain, kTooManyValues,
                         fmt::format("The JSON has more values at byte {}: the limit is {} values",
                                     position_, limits_.values));
    }
    return Error::make(kErrorDomain, kNotJson,
                       fmt::format("Not JSON at byte {}: {}", position_, failure.message()));
  }

  const JsonLimits limits_;
  boost::json::basic_parser<ValueBuilder> parser_;
  std::uint64_t position_ = 0;
};

/// Null where the length is allowed.
ErrorPtr errorOfLength(std::uint64_t bytes, const JsonLimits& limits) {
  if (bytes <= limits.bytes) return nullptr;
  return Error::make(
      kErrorDomain, kTooManyBytes,
      fmt::format("The JSON has {} bytes: the limit is {} bytes", bytes, limits.bytes));
}

ErrorPtr noJsonForm(std::string_view what) {
  return Error::make(kErrorDomain, kNoJsonForm, fmt::format("No JSON form: {}", what));
}

/// Appends the compact form of values to a text. Each function answers with an error, or null.
class Serializer {
 public:
  /// What is done with what has no JSON form.
  enum class Foreign { kRefuse, kDescribe };

  Serializer(std::string& out, Foreign foreign) : out_(out), foreign_(foreign) {}

  ErrorPtr append(const Value& value, std::size_t depth) {
    if (const auto* text = value.text()) return append(*text);
    if (const auto* number = value.integer()) return appendNumber(*number);
    if (const auto* flag = value.boolean()) {
      out_ += *flag ? "true" : "false";
      return nullptr;
    }
    if (value.isNull()) {
      out_ += "null";
      return nullptr;
    }
    if (const auto* digits = value.largeInteger()) {
      out_ += *digits;
      return nullptr;
    }
    if (const auto* number = value.real()) return appendReal(*number);
    if (const auto* dictionary = value.dictionary()) return append(*dictionary, depth + 1);
    if (const auto* array = value.array()) return append(*array, depth + 1);
    if (foreign_ == Foreign::kRefuse) return noJsonForm(value.description());
    return value.isMissing() ? append(Value(nullptr), depth) : append(value.description());
  }

 private:
  ErrorPtr append(const Dictionary& dictionary, std::size_t depth) {
    if (depth > kMaxDepth) return tooDeep(dictionary);
    char separator = '{';
    for (const auto& entry : dictionary) {
      out_ += std::exchange(separator, ',');
      if (auto failure = append(entry.key)) return failure;
      out_ += ':';
      if (auto failure = append(entry.value, depth)) return failure;
    }
    out_ += separator == '{' ? "{}" : "}";
    return nullptr;
  }

  ErrorPtr append(const Array& array, std::size_t depth) {
    if (depth > kMaxDepth) return tooDeep(array);
    char separator = '[';
    for (const Value& element : array) {
      out_ += std::exchange(separator, ',');
      if (auto failure = append(element, depth)) return failure;
    }
    out_ += separator == '[' ? "[]" : "]";
    return nullptr;
  }

  /// A text in quotes. Escapes only what has to be (RFC 8259, section 7).
  ErrorPtr append(std::string_view text) {
    if (!isUtf8(text)) {
      if (foreign_ == Foreign::kDescribe) return append(sanitizeUtf8(text));
      return noJsonForm("a text that is not UTF-8");
    }
    out_ += '"';
    std::size_t plain = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      if (static_cast<unsigned char>(c) >= 0x20U && c != '"' && c != '\\') continue;
      out_ += text.substr(plain, i - plain);
      appendEscaped(c);
      plain = i + 1;
    }
    out_ += text.substr(plain);
    out_ += '"';
    return nullptr;
  }

  void appendEscaped(char c) {
    constexpr std::string_view kShort = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    const std::size_t position = kShort.find(c);
    if (position != std::string_view::npos) {
      out_ += '\\';
      out_ += kLetters[position];
    } else {
      out_ += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
    }
  }

  ErrorPtr appendReal(double number) {
    if (!std::isfinite(number)) {
      if (foreign_ == Foreign::kDescribe) return append(Value(number).textValue());
      return noJsonForm("a number not finite");
    }
    if (number != 0 || !std::signbit(number)) return appendNumber(number);
    out_ += "-0.0";  // "-0" would read back as the integer, which has no sign
    return nullptr;
  }

  /// The shortest digits that read back as the same number.
  template <typename Number>
  ErrorPtr appendNumber(Number number) {
    std::array<char, 32> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    out_.append(digits.data(), result.ptr);
    return nullptr;
  }

  ErrorPtr tooDeep(const Value& container) {
    if (foreign_ == Foreign::kDescribe) return append(container.description());
    return Error::make(kErrorDomain, kTooDeep,
                       fmt::format("No JSON form: nested deeper than {} levels", kMaxDepth));
  }

  std::string& out_;
  const Foreign foreign_;
};

}  // namespace

Result<Value> parse(std::string_view text, const JsonLimits& limits) {
  if (ErrorPtr tooLong = errorOfLength(text.size(), limits)) return tooLong;
  Parser parser(limits);
  if (const auto fed = parser.feed(text, false); !fed) return fed.error();
  return parser.takeRoot();
}

Result<Value> parse(const Data& data, const JsonLimits& limits) {
  if (const auto bytes = data.memory()) return parse(*bytes, limits);
  if (ErrorPtr tooLong = errorOfLength(data.size(), limits)) return tooLong;
  Parser parser(limits);
  const auto fed =
      data.forEachPiece([&parser](std::string_view piece) { return parser.feed(piece, true); });
  if (!fed) return fed.error();
  if (const auto ended = parser.feed({}, false); !ended) return ended.error();
  return parser.takeRoot();
}

Result<std::string> serialize(const Value& value) {
  std::string out;
  if (auto failure = Serializer(out, Serializer::Foreign::kRefuse).append(value, 0)) return failure;
  return out;
}

std::string text(const Value& value) {
  std::string out;
  (void)Serializer(out, Serializer::Foreign::kDescribe).append(value, 0);  // refuses nothing
  return out;
}

}  // namespace varo::platform::json
