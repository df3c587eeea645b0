#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Network/HttpTransport.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

/// Collects the header lines of a response as libcurl hands them out, within fixed limits.
/// Not thread-safe.
class ResponseHead {
 public:
  /// Takes one line with its line break. A status line begins the response anew (interim responses
  /// come before the final one); lines after the empty line that ends a final response's headers
  /// are trailers and are dropped. False once the lines exceed the limits.
  [[nodiscard]] bool addLine(std::string_view line);

  /// Whether the headers of the final response are complete.
  [[nodiscard]] bool isComplete() const noexcept { return complete_; }
  /// Of the status line; 0 before it.
  [[nodiscard]] int status() const noexcept { return status_; }

  /// The value of the first header of that name, in any letter case.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view name) const noexcept;
  /// Whether the status sends the client elsewhere (301, 302, 303, 307, 308).
  [[nodiscard]] bool isRedirect() const noexcept;
  /// Whether the status allows an entity, if only an empty one: all but 1xx, 204, 205 and 304.
  [[nodiscard]] bool canHaveEntity() const noexcept;
  /// Bytes announced; 0 also where none are. An error where that is no number, is 2^63 or more, or
  /// where two of them differ: nobody can say then where the response ends.
  [[nodiscard]] Result<std::uint64_t> contentLength() const;

  /// In the order received.
  [[nodiscard]] const std::vector<HttpHeader>& headers() const noexcept { return headers_; }
  /// Hands them over.
  [[nodiscard]] std::vector<HttpHeader> takeHeaders() noexcept { return std::move(headers_); }

 private:
  void beginAnswer(std::string_view statusLine);

  std::vector<HttpHeader> headers_;
  int status_ = 0;
  bool complete_ = false;
  // Over all responses of the request, so that endless interim responses count too.
  std::size_t bytes_ = 0;
  std::size_t lines_ = 0;
};

}  // namespace varo::platform
