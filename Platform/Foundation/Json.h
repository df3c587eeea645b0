#pragma once

#include "Platform/Foundation/JsonLimits.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace varo::platform::json {

/// Domain of the errors below, and their codes. The text of a parse error holds the position, in
/// bytes. None of them goes away by trying again.
inline constexpr std::string_view kErrorDomain = "JSON";
inline constexpr std::int64_t kNotJson = 1;
inline constexpr std::int64_t kTooDeep = 2;
inline constexpr std::int64_t kNoJsonForm = 3;
/// Another type at the top level where only an object will do.
inline constexpr std::int64_t kNotAnObject = 4;
/// More values or bytes than the limit; the text names it.
inline constexpr std::int64_t kTooManyValues = 5;
inline constexpr std::int64_t kTooManyBytes = 6;
/// Deeper nesting than this is an error, in both directions.
inline constexpr std::size_t kMaxDepth = JsonLimits{}.depth;

/// The value that is the whole of `text` (RFC 8259, any type at the top level). Of keys that occur
/// twice the last wins. Whole numbers keep all their digits (`Value::wholeNumber`), others become
/// the nearest double; one beyond the doubles is an error. A byte order mark at the start is
/// skipped.
[[nodiscard]] Result<Value> parse(std::string_view text, const JsonLimits& limits = {});
/// The same of bytes, which are read piece by piece. Bytes that cannot be read are an error of
/// `Data::read`.
[[nodiscard]] Result<Value> parse(const Data& data, const JsonLimits& limits = {});

/// Compact JSON (RFC 8259). Fails on what has no JSON form: missing values inside arrays, bytes,
/// errors, shared objects, numbers that are not finite, text that is not UTF-8.
[[nodiscard]] Result<std::string> serialize(const Value& value);

/// The same for a text that is sent whatever is in it: what has no JSON form stands as the text of
/// its description, a missing value as null. Never cut, secrets included: not for logs.
[[nodiscard]] std::string text(const Value& value);

}  // namespace varo::platform::json
