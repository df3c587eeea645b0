#pragma once

#include "Platform/Foundation/Text.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace varo::test {

/// The range that a request asks for, both ends inclusive; none without a well-formed field.
inline std::optional<std::pair<std::int64_t, std::int64_t>> askedRange(
    const RecordedRequest& request) {
  const std::string field = request.header("Range").value_or(std::string());
  const std::size_t dash = field.find('-');
  if (!field.starts_with("bytes=") || dash == std::string::npos) return std::nullopt;
  const auto first = platform::parseInteger(field.substr(6, dash - 6));
  const auto last = platform::parseInteger(field.substr(dash + 1));
  if (!first || !last) return std::nullopt;
  return std::pair(*first, *last);
}

/// Answers requests for ranges of `bytes` as a server does that keeps to the standard, or that does
/// not state the size.
struct RangedObject {
  std::string bytes;
  std::string tag = "\"1\"";
  bool statesSize = true;

  static RangedObject ofSize(std::size_t size) { return {.bytes = sampleBytes(size)}; }
  [[nodiscard]] std::string total() const {
    return statesSize ? std::to_string(bytes.size()) : "*";
  }
  [[nodiscard]] ScriptedAnswer answer(const RecordedRequest& request) const {
    const auto range = askedRange(request);
    if (!range) return answerWith(200, bytes);
    const auto size = static_cast<std::int64_t>(bytes.size());
    const auto [first, asked] = *range;
    if (first >= size) {
      if (statesSize) return answerWith(416, "", {{"Content-Range", "bytes */" + total()}});
      return answerWith(206, "", {{"Content-Range", "bytes */*"}});
    }
    const std::int64_t last = std::min(asked, size - 1);
    return answerWith(
        206,
        bytes.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(last - first + 1)),
        {{"Content-Range", fmt::format("bytes {}-{}/{}", first, last, total())}, {"ETag", tag}});
  }
};

}  // namespace varo::test
