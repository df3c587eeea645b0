#include "Platform/Network/HttpTransportError.h"

#include "Platform/Network/TransportFailure.h"

#include <fmt/format.h>

#include <utility>

namespace varo::platform {
namespace {

TransportFailure failureOf(HttpTransportError code) noexcept {
  switch (code) {
    case HttpTransportError::kInvalidUrl:
      return TransportFailure::kInvalidUrl;
    case HttpTransportError::kInvalidHeader:
      return TransportFailure::kInvalidHeader;
    case HttpTransportError::kInvalidBody:
      return TransportFailure::kInvalidBody;
    case HttpTransportError::kRedirectRefused:
      return TransportFailure::kRedirectRefused;
    case HttpTransportError::kTooManyRedirects:
      return TransportFailure::kTooManyRedirects;
    case HttpTransportError::kHeadersTooLarge:
      return TransportFailure::kBadAnswer;
    case HttpTransportError::kRequestBodyUnreadable:
      return TransportFailure::kRequestBodyUnreadable;
    case HttpTransportError::kResponseBodyNotStored:
      return TransportFailure::kResponseBodyNotStored;
    case HttpTransportError::kCancelled:
      return TransportFailure::kCancelled;
    case HttpTransportError::kShutDown:
      return TransportFailure::kShutDown;
    case HttpTransportError::kNoResources:
      return TransportFailure::kNoResources;
    case HttpTransportError::kResponseTooLarge:
      return TransportFailure::kTooLarge;
    case HttpTransportError::kInvalidConfiguration:
      return TransportFailure::kInvalidConfiguration;
    case HttpTransportError::kProxyRefused:
      return TransportFailure::kProxyRefused;
    case HttpTransportError::kNoAnswer:
      break;  // no server's doing
  }
  return TransportFailure::kOther;
}

ErrorPtr make(HttpTransportError code, Dictionary userInfo, const std::string& url) {
  userInfo.set(std::string(kTransportFailureKey), nameOf(failureOf(code)));
  if (!url.empty()) userInfo.set(std::string(kErrorUrlKey), url);
  return std::make_shared<Error>(std::string(kHttpTransportErrorDomain),
                                 static_cast<std::int64_t>(code), std::move(userInfo));
}

std::string withUrl(std::string_view text, const std::string& url) {
  return url.empty() ? std::string(text) : fmt::format("{} ({})", text, url);
}

}  // namespace

ErrorPtr makeTransportError(HttpTransportError code, const std::string& description,
                            const std::string& url, Dictionary details) {
  details.set(std::string(kLocalizedDescriptionKey), withUrl(description, url));
  return make(code, std::move(details), url);
}

ErrorPtr makeTransportError(HttpTransportError code, std::string_view what, const Error& cause,
                            const std::string& url) {
  const std::string text = fmt::format("{}: {}", what, cause.localizedDescription());
  Dictionary userInfo{{std::string(kLocalizedDescriptionKey), withUrl(text, url)}};
  userInfo.set(std::string(kErrorPathKey), cause.userInfo()[kErrorPathKey]);
  if (cause.domain() == kPosixErrorDomain) {
    userInfo.set(std::string(kErrorSystemCodeKey), cause.code());
  }
  return make(code, std::move(userInfo), url);
}

}  // namespace varo::platform
