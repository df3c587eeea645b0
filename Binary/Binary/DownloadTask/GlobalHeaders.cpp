#include "Binary/Binary/DownloadTask/GlobalHeaders.h"

#include "Binary/Binary/SourceNames.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Logging/LogSink.h"

#include <algorithm>
#include <optional>

namespace varo::binary {
namespace {

/// Scheme and authority of a URL, in lower case.
std::string originOf(std::string_view url) {
  constexpr std::string_view kSchemeEnd = "://";
  const std::size_t scheme = url.find(kSchemeEnd);
  if (scheme == std::string_view::npos) return {};
  const std::size_t end = url.find_first_of("/?#\\", scheme + kSchemeEnd.size());
  return platform::lowerCase(url.substr(0, end));
}

}  // namespace

GlobalHeaders& GlobalHeaders::shared() {
  static auto& headers = *new GlobalHeaders();  // used until the very end
  return headers;
}

void GlobalHeaders::noteAnswer(std::string_view url, const platform::HttpResponseInfo& answer) {
  const std::optional<std::string> level = answer.headerField(kDeveiceLogLevelHeader);
  if (!level) return;
  // A level that nobody knows changes nothing here; the server still sees that it was heard.
  if (const auto known = platform::logLevelNamed(*level)) {
    logger().setLogLevel(*known);
  }
  const std::string origin = originOf(url);
  const MutexLock lock(mutex_);
  if (platform::equalIgnoringCase(*level, kLogLevelOff)) {
    _globalHeaders.remove(kDeveiceLogLevelHeader);
  } else {
    _globalHeaders.set(kDeveiceLogLevelHeader, *level);
    origin_ = origin;
  }
}

Dictionary GlobalHeaders::headersFor(std::string_view url) const {
  const std::string origin = originOf(url);
  const MutexLock lock(mutex_);
  return origin == origin_ ? _globalHeaders : Dictionary{};
}

}  // namespace varo::binary
