#pragma once

#include "Platform/Network/HttpTransport.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

/// Collects the header lines of an answer as libcurl hands them out, within fixed limits.
/// Not thread-safe.
class ResponseHead {
 public:
  /// Takes one line with its line break. A status line begins the answer anew (interim answers come
  /// before the final one); lines after the empty line that ends a final answer's headers are
  /// trailers and are dropped. False once the lines exceed the limits.
  [[nodiscard]] bool addLine(std::string_view line);

  /// Whether the headers of the final answer are complete.
  [[nodiscard]] bool isComplete() const noexcept { return complete_; }
  /// Of the status line; 0 before it.
  [[nodiscard]] int status() const noexcept { return status_; }

  /// The value of the first header of that name, in any letter case.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view name) const noexcept;
  /// The target, where the answer is a redirect that names one.
  [[nodiscard]] std::optional<std::string> redirectLocation() const;
  /// Whether the answer says that it has an entity, if only an empty one.
  [[nodiscard]] bool announcesEntity() const noexcept;

  /// Hands over the headers, in the order received.
  [[nodiscard]] std::vector<HttpHeader> takeHeaders() noexcept { return std::move(headers_); }

 private:
  void beginAnswer(std::string_view statusLine);

  std::vector<HttpHeader> headers_;
  int status_ = 0;
  bool complete_ = false;
  // Over all answers of the request, so that endless interim answers count too.
  std::size_t bytes_ = 0;
  std::size_t lines_ = 0;
};

}  // namespace varo::platform
