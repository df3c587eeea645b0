#include "Sandbox/Http/ByteRange.h"

#include "Sandbox/Http/HttpRequest.h"

#include <algorithm>
#include <limits>

namespace varo::sandbox {
namespace {

bool isDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A number too large for 64 bits lies behind every file's end, which is all that matters here.
std::uint64_t saturated(std::string_view digits) {
  return parseUnsigned(digits).value_or(std::numeric_limits<std::uint64_t>::max());
}

}  // namespace

ByteRange parseByteRange(std::string_view value, std::uint64_t size) {
  constexpr std::string_view kUnit = "bytes=";
  const ByteRange whole{ByteRange::Kind::kWhole, 0, size};
  if (!startsIgnoringCase(value, kUnit)) return whole;
  value.remove_prefix(kUnit.size());
  const std::size_t dash = value.find('-');
  if (dash == std::string_view::npos) return whole;
  const std::string_view first = value.substr(0, dash);
  const std::string_view last = value.substr(dash + 1);
  // A list of ranges has a comma and ends up here, too: the whole file is a valid response to it.
  if (!isDigits(first) || !isDigits(last) || (first.empty() && last.empty())) return whole;

  const ByteRange unsatisfiable{ByteRange::Kind::kUnsatisfiable, 0, 0};
  // "-n": the last n bytes, or all where there are fewer.
  if (first.empty()) {
    const std::uint64_t length = std::min(saturated(last), size);
    return length == 0 ? unsatisfiable : ByteRange{ByteRange::Kind::kPart, size - length, length};
  }
  const std::uint64_t begin = saturated(first);
  const std::uint64_t end =
      last.empty() ? std::numeric_limits<std::uint64_t>::max() : saturated(last);
  // Not a range at all (RFC 9110, 14.1.1), so it is ignored and not refused with 416.
  if (end < begin) return whole;
  if (begin >= size) return unsatisfiable;
  return {ByteRange::Kind::kPart, begin, std::min(end, size - 1) - begin + 1};
}

}  // namespace varo::sandbox
