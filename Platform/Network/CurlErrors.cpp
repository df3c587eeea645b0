#include "Platform/Network/CurlErrors.h"

#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace varo::platform {
namespace {

std::string_view summaryOf(CURLcode code) noexcept {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "The host name could not be resolved";
    case CURLE_COULDNT_CONNECT:
      return "No connection could be made";
    case CURLE_OPERATION_TIMEDOUT:
      return "The connection was not made in time";
    case CURLE_PARTIAL_FILE:
      return "The answer was cut short";
    case CURLE_GOT_NOTHING:
      return "The server closed the connection without an answer";
    case CURLE_SEND_ERROR:
      return "The connection broke while sending";
    case CURLE_RECV_ERROR:
      return "The connection broke while receiving";
    case CURLE_PEER_FAILED_VERIFICATION:
      return "The server's certificate is not trusted";
    case CURLE_SSL_CACERT_BADFILE:
      return "The file of trusted certificates cannot be used";
    case CURLE_SSL_CONNECT_ERROR:
      return "No secure connection could be made";
    default:
      return curl_easy_strerror(code);
  }
}

}  // namespace

ErrorPtr makeCurlError(CURLcode code, std::string_view text, const std::string& url) {
  Dictionary userInfo{
      {std::string(kLocalizedDescriptionKey), fmt::format("{} ({})", text, url)},
      {std::string(kErrorUrlKey), url},
      {std::string(kErrorCurlCodeKey), static_cast<std::int64_t>(code)},
  };
  return std::make_shared<Error>(std::string(kHttpTransportErrorDomain),
                                 static_cast<std::int64_t>(code), std::move(userInfo));
}

ErrorPtr describeCurlError(CURLcode code, std::string_view detail, const std::string& url) {
  const std::string_view summary = summaryOf(code);
  const std::string text = detail.empty() || detail == summary
                               ? std::string(summary)
                               : fmt::format("{}: {}", summary, detail);
  return makeCurlError(code, text, url);
}

}  // namespace varo::platform
