#include "Platform/Network/ResponseHead.h"

#include "Platform/Foundation/Text.h"
#include "Platform/Network/NetworkTuning.h"

#include <algorithm>

namespace varo::platform {
namespace {

std::string_view trim(std::string_view text) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

constexpr bool hasNoEntity(int status) noexcept {
  return status < 200 || status == 204 || status == 304;
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
  if (bytes_ > tuning::kMaxHeaderBytes || lines_ > tuning::kMaxHeaderLines) return false;
  if (complete_) return true;
  if (line.starts_with("HTTP/")) {
    beginAnswer(line);
    return true;
  }
  const std::string_view content = trim(line);
  if (content.empty()) {
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

std::optional<std::string> ResponseHead::redirectLocation() const {
  switch (status_) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308: {
      const auto location = find("Location");
      if (!location || location->empty()) return std::nullopt;
      return std::string(*location);
    }
    default:
      return std::nullopt;
  }
}

bool ResponseHead::announcesEntity() const noexcept {
  if (hasNoEntity(status_)) return false;
  return find("Content-Length").has_value() || find("Transfer-Encoding").has_value();
}

}  // namespace varo::platform
