#include "Platform/Network/ResponseHead.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/NetworkTuning.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace varo::platform {
namespace {

std::string_view trim(std::string_view text) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

ErrorPtr lengthError(std::string_view what, std::string_view value) {
  constexpr std::size_t kShown = 40;  // bytes of a text that may be long
  return Error::make(kHttpTransportErrorDomain, 0,
                     fmt::format("The response's Content-Length {}: {}", what,
                                 sanitizeUtf8(value.substr(0, kShown))));
}

}  // namespace

void ResponseHead::beginAnswer(std::string_view statusLine) {
  headers_.clear();
  complete_ = false;
  const std::size_t blank = std::min(statusLine.find(' '), statusLine.size());
  const std::string_view code = trim(statusLine.substr(blank)).substr(0, 3);
  status_ = static_cast<int>(parseInteger(code).value_or(0));
}

bool ResponseHead::addLine(std::string_view line) {
  bytes_ += line.size();
  ++lines_;
  // One count for all of them: endless interim responses are as bad as endless headers.
  if (bytes_ > tuning::kMaxHeaderBytes || lines_ > tuning::kMaxHeaderLines) return false;
  // What comes behind the head are the trailers of a chunked body.
  // They count, but nobody needs them.
  if (complete_) return true;
  // An interim response may have come before. Only the last one counts.
  if (line.starts_with("HTTP/")) {
    beginAnswer(line);
    return true;
  }
  const std::string_view content = trim(line);
  if (content.empty()) {
    // A 1xx response ends like this, too, and the real one follows (RFC 9110, 15.2).
    complete_ = status_ >= 200;
    return true;
  }
  if ((line.front() == ' ' || line.front() == '\t') && !headers_.empty()) {
    headers_.back().value.append(" ").append(content);  // a value folded over two lines
    return true;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return true;
  headers_.push_back(
      {std::string(trim(line.substr(0, colon))), std::string(trim(line.substr(colon + 1)))});
  return true;
}

std::optional<std::string_view> ResponseHead::find(std::string_view name) const noexcept {
  for (const HttpHeader& header : headers_) {
    if (equalIgnoringCase(header.name, name)) return header.value;
  }
  return std::nullopt;
}

bool ResponseHead::isRedirect() const noexcept {
  constexpr std::array kRedirects = {301, 302, 303, 307, 308};
  return std::find(kRedirects.begin(), kRedirects.end(), status_) != kRedirects.end();
}

bool ResponseHead::canHaveEntity() const noexcept {
  return status_ >= 200 && status_ != 204 && status_ != 205 && status_ != 304;
}

Result<std::uint64_t> ResponseHead::contentLength() const {
  std::optional<std::uint64_t> length;
  for (const HttpHeader& header : headers_) {
    if (!equalIgnoringCase(header.name, "Content-Length")) continue;
    // Some proxies join two equal ones into a list.
    for (std::string_view rest = header.value; !rest.empty();) {
      const std::size_t comma = std::min(rest.find(','), rest.size());
      const std::string_view digits = trim(rest.substr(0, comma));
      rest.remove_prefix(std::min(comma + 1, rest.size()));
      const auto number = parseInteger(digits);
      if (!number || *number < 0) return lengthError("is not valid", digits);
      const auto value = static_cast<std::uint64_t>(*number);
      if (length.value_or(value) != value) return lengthError("is given twice", header.value);
      length = value;
    }
  }
  return length.value_or(0);
}

}  // namespace varo::platform
