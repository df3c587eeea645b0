#include "Platform/Network/CurlErrors.h"

#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/TransportFailure.h"

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
      return "The response was cut short";
    case CURLE_GOT_NOTHING:
      return "The server closed the connection without a response";
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

TransportFailure failureOf(CURLcode code) noexcept {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
      return TransportFailure::kNameNotFound;
    case CURLE_COULDNT_CONNECT:
    case CURLE_INTERFACE_FAILED:
    case CURLE_PROXY:
      return TransportFailure::kNoConnection;
    case CURLE_OPERATION_TIMEDOUT:
      return TransportFailure::kTimedOut;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_CLIENTCERT:
    case CURLE_USE_SSL_FAILED:
      return TransportFailure::kTls;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return TransportFailure::kCertificateNotTrusted;
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
      return TransportFailure::kTrustFileUnusable;
    case CURLE_GOT_NOTHING:
      return TransportFailure::kNoAnswer;
    case CURLE_SEND_ERROR:
    case CURLE_SEND_FAIL_REWIND:
      return TransportFailure::kSendingBroken;
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return TransportFailure::kCutShort;
    case CURLE_UNSUPPORTED_PROTOCOL:  // of the response: the address was checked before
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
      return TransportFailure::kBadAnswer;
    case CURLE_FILESIZE_EXCEEDED:
      return TransportFailure::kTooLarge;
    case CURLE_TOO_MANY_REDIRECTS:
      return TransportFailure::kTooManyRedirects;
    case CURLE_URL_MALFORMAT:
      return TransportFailure::kInvalidUrl;
    case CURLE_READ_ERROR:
      return TransportFailure::kRequestBodyUnreadable;
    case CURLE_WRITE_ERROR:
      return TransportFailure::kResponseBodyNotStored;
    case CURLE_OUT_OF_MEMORY:
    case CURLE_FAILED_INIT:
      return TransportFailure::kNoResources;
    default:
      return TransportFailure::kOther;
  }
}

}  // namespace

ErrorPtr makeCurlError(CURLcode code, std::string_view text, const std::string& url, bool wasSent) {
  Dictionary userInfo{
      {std::string(kLocalizedDescriptionKey), fmt::format("{} ({})", text, url)},
      {std::string(kErrorUrlKey), url},
      {std::string(kTransportFailureKey), nameOf(failureOf(code))},
      {std::string(kErrorCurlCodeKey), static_cast<std::int64_t>(code)},
  };
  if (!wasSent) userInfo.set(std::string(kErrorNotSentKey), true);
  return std::make_shared<Error>(std::string(kHttpTransportErrorDomain),
                                 static_cast<std::int64_t>(code), std::move(userInfo));
}

ErrorPtr describeCurlError(CURLcode code, std::string_view detail, const std::string& url,
                           bool wasSent) {
  const std::string_view summary = summaryOf(code);
  const std::string text = detail.empty() || detail == summary
                               ? std::string(summary)
                               : fmt::format("{}: {}", summary, detail);
  return makeCurlError(code, text, url, wasSent);
}

}  // namespace varo::platform
