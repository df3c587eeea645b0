#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// Takes a multipart/form-data body (RFC 7578) piece by piece and passes on the content of its
/// parts. Holds no more than a piece and a part's head.
class MultipartReader {
 public:
  using Sink = std::function<bool(std::string_view content)>;
  /// Told the lines of a part's head before its content; false ends the reading.
  using PartStart = std::function<bool(std::string_view head)>;

  /// A body of exactly one part.
  MultipartReader(std::string_view boundary, Sink sink);
  /// A body of one or more parts.
  MultipartReader(std::string_view boundary, PartStart partStart, Sink sink);

  /// False when the body is wrong or the sink wanted no more.
  [[nodiscard]] bool push(std::string_view piece);
  /// Whether the body came to its proper end.
  [[nodiscard]] bool complete() const { return state_ == State::kEnd; }

 private:
  enum class State { kPreamble, kHead, kContent, kAfterPart, kEnd, kBroken };

  [[nodiscard]] bool step();
  [[nodiscard]] bool readContent();
  bool fail();

  const std::string delimiter_;  // CRLF, two dashes and the boundary
  const PartStart partStart_;    // none: there is but one part
  const Sink sink_;
  State state_ = State::kPreamble;
  // Begins with a CRLF that is not on the wire, so that the first delimiter is like all others.
  std::string pending_ = "\r\n";
};

/// The boundary that the Content-Type `value` of a multipart/form-data body names; empty if none.
[[nodiscard]] std::string multipartBoundary(std::string_view value);

}  // namespace varo::sandbox
