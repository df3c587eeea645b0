#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <utility>

namespace varo::platform {
namespace {

ErrorPtr make(HttpTransportError code, Dictionary userInfo, const std::string& url) {
  if (!url.empty()) userInfo.set(std::string(kErrorUrlKey), url);
  return std::make_shared<Error>(std::string(kHttpTransportErrorDomain),
                                 static_cast<std::int64_t>(code), std::move(userInfo));
}

std::string withUrl(std::string_view text, const std::string& url) {
  return url.empty() ? std::string(text) : fmt::format("{} ({})", text, url);
}

}  // namespace

ErrorPtr makeTransportError(HttpTransportError code, std::string description,
                            const std::string& url, Dictionary details) {
  details.set(std::string(kLocalizedDescriptionKey), withUrl(description, url));
  return make(code, std::move(details), url);
}

ErrorPtr makeTransportError(HttpTransportError code, std::string_view what, const Error& cause,
                            const std::string& url) {
  const std::string text = fmt::format("{}: {}", what, cause.localizedDescription());
  Dictionary userInfo{{std::string(kLocalizedDescriptionKey), withUrl(text, url)}};
  userInfo.set(std::string(kErrorPathKey), cause.userInfo()[kErrorPathKey]);
  return make(code, std::move(userInfo), url);
}

}  // namespace varo::platform
