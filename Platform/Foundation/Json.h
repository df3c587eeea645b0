#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace varo::platform::json {

/// Domain of the errors below. The position, in bytes, stands in their text.
inline constexpr std::string_view kErrorDomain = "JSON";
/// Deeper nesting than this is an error, in both directions.
inline constexpr std::size_t kMaxDepth = 256;

/// The value that is the whole of `text` (RFC 8259, any type at the top level). Of keys that occur
/// twice the last wins. Whole numbers that fit become integers, others doubles.
[[nodiscard]] Result<Value> parse(std::string_view text);
/// The same of bytes, which are read piece by piece.
[[nodiscard]] Result<Value> parse(const Data& data);

/// Compact JSON (RFC 8259). Fails on what has no JSON form: missing values inside arrays, bytes,
/// errors, shared objects, numbers that are not finite, text that is not UTF-8.
[[nodiscard]] Result<std::string> serialize(const Value& value);

}  // namespace varo::platform::json
