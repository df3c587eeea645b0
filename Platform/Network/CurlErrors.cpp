#include "Platform/Network/CurlErrors.h"

#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <optional>
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
      return "The trusted certificates cannot be used";
    case CURLE_SSL_CERTPROBLEM:
      return "The client certificate or its key cannot be used";
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      return "The server's public key is none of those that are pinned";
    case CURLE_SSL_CONNECT_ERROR:
      return "No secure connection could be made";
    default:
      return curl_easy_strerror(code);
  }
}

TransportFailure failureOf(CURLcode code) noexcept {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
      return TransportFailure::kProxyNotReached;
    case CURLE_COULDNT_RESOLVE_HOST:
      return TransportFailure::kNameNotFound;
    case CURLE_COULDNT_CONNECT:
    case CURLE_INTERFACE_FAILED:
      return TransportFailure::kNoConnection;
    case CURLE_OPERATION_TIMEDOUT:
      return TransportFailure::kTimedOut;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CLIENTCERT:
    case CURLE_USE_SSL_FAILED:
      return TransportFailure::kTls;
    case CURLE_SSL_CERTPROBLEM:
      return TransportFailure::kClientCertificateUnusable;
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      return TransportFailure::kPinMismatch;
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

/// A TLS 1.3 server refuses a client after the handshake, which libcurl takes for a connection that
/// broke. OpenSSL's text is all that tells.
bool isTlsAlert(CURLcode code, std::string_view detail) noexcept {
  return (code == CURLE_RECV_ERROR || code == CURLE_SEND_ERROR) &&
         detail.find("OpenSSL") != std::string_view::npos &&
         detail.find(" alert ") != std::string_view::npos;
}

ErrorPtr make(CURLcode code, TransportFailure failure, std::string_view text,
              const std::string& url, bool wasSent) {
  Dictionary userInfo{
      {std::string(kLocalizedDescriptionKey), fmt::format("{} ({})", text, url)},
      {std::string(kErrorUrlKey), url},
      {std::string(kTransportFailureKey), nameOf(failure)},
      {std::string(kErrorCurlCodeKey), static_cast<std::int64_t>(code)},
  };
  if (!wasSent) userInfo.set(std::string(kErrorNotSentKey), true);
  return std::make_shared<Error>(std::string(kHttpTransportErrorDomain),
                                 static_cast<std::int64_t>(code), std::move(userInfo));
}

/// What a SOCKS proxy has said. http proxies say a status.
TransportFailure failureOfSocks(long reply) noexcept {
  switch (reply) {
    case CURLPX_IDENTD:
    case CURLPX_IDENTD_DIFFER:
    case CURLPX_NO_AUTH:
    case CURLPX_RECV_AUTH:  // some close the connection instead of saying no
    case CURLPX_REPLY_COMMAND_NOT_SUPPORTED:
    case CURLPX_REPLY_NOT_ALLOWED:
    case CURLPX_REQUEST_FAILED:
    case CURLPX_USER_REJECTED:
      return TransportFailure::kProxyRefused;
    case CURLPX_REPLY_CONNECTION_REFUSED:
    case CURLPX_REPLY_GENERAL_SERVER_FAILURE:
    case CURLPX_REPLY_HOST_UNREACHABLE:
    case CURLPX_REPLY_NETWORK_UNREACHABLE:
    case CURLPX_REPLY_TTL_EXPIRED:
      return TransportFailure::kNoConnection;
    case CURLPX_RESOLVE_HOST:
      return TransportFailure::kNameNotFound;
    default:
      return TransportFailure::kProxyNotReached;
  }
}

TransportFailure failureOfConnectStatus(long status) noexcept {
  constexpr long kServerError = 500;
  return status >= kServerError ? TransportFailure::kNoConnection : TransportFailure::kProxyRefused;
}

/// What has failed before the request left, seen from the proxy; none: nothing of the proxy's.
std::optional<TransportFailure> failureOnTheWay(CURL* easy, CURLcode code) noexcept {
  long status = 0;
  long socks = CURLPX_OK;
  // These cannot fail on a handle that was used; 0 is what they say where there was none.
  static_cast<void>(curl_easy_getinfo(easy, CURLINFO_HTTP_CONNECTCODE, &status));
  static_cast<void>(curl_easy_getinfo(easy, CURLINFO_PROXY_ERROR, &socks));
  const bool isThrough = status / 100 == 2;
  switch (code) {
    case CURLE_PROXY:
      return failureOfSocks(socks);
    case CURLE_COULDNT_RESOLVE_PROXY:
      return TransportFailure::kProxyNotReached;
    case CURLE_COULDNT_CONNECT:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
      if (isThrough) return std::nullopt;
      return status == 0 ? TransportFailure::kProxyNotReached : failureOfConnectStatus(status);
    default:
      return std::nullopt;
  }
}

std::string summaryOf(TransportFailure failure, CURLcode code, const CurlProxy& proxy) {
  switch (failure) {
    case TransportFailure::kProxyRefused:
      return fmt::format("The proxy {} does not let the request through", proxy.url);
    case TransportFailure::kProxyNotReached:
      return code == CURLE_COULDNT_RESOLVE_PROXY
                 ? fmt::format("The name of the proxy {} could not be resolved", proxy.url)
                 : fmt::format("The proxy {} could not be reached, or broke off", proxy.url);
    default:
      return fmt::format("The proxy {} could not reach the server", proxy.url);
  }
}

std::string withDetail(std::string_view summary, std::string_view detail) {
  return detail.empty() || detail == summary ? std::string(summary)
                                             : fmt::format("{}: {}", summary, detail);
}

}  // namespace

ErrorPtr makeCurlError(CURLcode code, std::string_view text, const std::string& url, bool wasSent) {
  return make(code, isTlsAlert(code, text) ? TransportFailure::kTls : failureOf(code), text, url,
              wasSent);
}

ErrorPtr describeCurlError(CURLcode code, std::string_view detail, const std::string& url,
                           bool wasSent) {
  return makeCurlError(code, withDetail(summaryOf(code), detail), url, wasSent);
}

ErrorPtr describeProxiedError(CURL* easy, CURLcode code, std::string_view detail,
                              const CurlProxy& proxy, const std::string& url, bool wasSent) {
  if (wasSent) return describeCurlError(code, detail, url);
  if (const auto failure = failureOnTheWay(easy, code)) {
    const std::string text = withDetail(summaryOf(*failure, code, proxy), detail);
    return make(code, *failure, text, url, false);
  }
  const std::string text = withDetail(summaryOf(code), detail);
  return makeCurlError(code, fmt::format("{}, over the proxy {}", text, proxy.url), url, false);
}

ErrorPtr makeProxyRefusal(const CurlProxy& proxy, const std::string& url) {
  constexpr int kProxyAuthenticationRequired = 407;
  return makeTransportError(
      HttpTransportError::kProxyRefused,
      fmt::format("The proxy {} does not let the request through: it wants {} (status {})",
                  proxy.url, proxy.user.empty() ? "a user and a password" : "other credentials",
                  kProxyAuthenticationRequired),
      url, {{std::string(kErrorStatusKey), kProxyAuthenticationRequired}});
}

}  // namespace varo::platform
