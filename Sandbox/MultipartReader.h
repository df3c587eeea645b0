#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// Takes a multipart/form-data body (RFC 7578) piece by piece and passes on the content of its one
/// part. Holds no more than a piece and a part's head.
class MultipartReader {
 public:
  using Sink = std::function<bool(std::string_view content)>;

  MultipartReader(std::string_view boundary, Sink sink);

  /// False when the body is wrong or the sink wanted no more.
  [[nodiscard]] bool push(std::string_view piece);
  /// Whether the body came to its proper end with exactly one part.
  [[nodiscard]] bool complete() const { return state_ == State::kEnd; }

 private:
  enum class State { kPreamble, kHead, kContent, kAfterPart, kEnd, kBroken };

  [[nodiscard]] bool step();
  [[nodiscard]] bool readContent();
  bool fail();

  const std::string delimiter_;  // CRLF, two dashes and the boundary
  const Sink sink_;
  State state_ = State::kPreamble;
  // Begins with a CRLF that is not on the wire, so that the first delimiter is like all others.
  std::string pending_ = "\r\n";
};

/// The boundary that the Content-Type `value` of a multipart/form-data body names; empty if none.
[[nodiscard]] std::string multipartBoundary(std::string_view value);

}  // namespace varo::sandbox
