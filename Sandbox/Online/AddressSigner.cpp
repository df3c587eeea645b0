#include "Sandbox/Online/AddressSigner.h"

#include <fmt/format.h>

#include <algorithm>

namespace varo::sandbox {
namespace {

constexpr std::string_view kLifetimeSeconds = "3600";
// The only header that every client of a signed address is sure to send as it was signed.
constexpr std::string_view kSignedHeaders = "host";

}  // namespace

std::string_view authorityOf(std::string_view url) {
  const std::size_t scheme = url.find("://");
  if (scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
  return url.substr(0, url.find('/'));
}

std::string signedPath(const SignedStoreOptions& keys, std::string_view method,
                       std::string_view authority, std::string_view key, sigv4::Time now) {
  const std::string timestamp = sigv4::timestampOf(now);
  const sigv4::Scope scope{timestamp.substr(0, 8), keys.region, std::string(sigv4::kService)};
  HttpRequest request;
  request.method = method;
  request.path = fmt::format("/{}", key);
  request.headers = {{"Host", std::string(authority)}};
  request.parameters = {{"X-Amz-Algorithm", std::string(sigv4::kAlgorithm)},
                        // Not encoded yet: the canonical request encodes, and so does the loop
                        // below, each once.
                        {"X-Amz-Credential", fmt::format("{}/{}", keys.accessKey, scope.text())},
                        {"X-Amz-Date", timestamp},
                        {"X-Amz-Expires", std::string(kLifetimeSeconds)},
                        {"X-Amz-SignedHeaders", std::string(kSignedHeaders)}};
  if (!keys.sessionToken.empty()) {
    request.parameters.emplace_back(sigv4::kTokenParameter, keys.sessionToken);
  }
  const std::string toSign = sigv4::stringToSign(
      timestamp, scope,
      sigv4::canonicalRequest(request, {std::string(kSignedHeaders)}, sigv4::kUnsignedPayload));
  // Last, since the signature covers all parameters but itself.
  request.parameters.emplace_back(sigv4::kSignatureParameter,
                                  sigv4::signature(keys.secretKey, scope, toSign));
  std::string path = sigv4::uriEncoded(request.path, sigv4::Slash::kKept);
  char separator = '?';
  for (const auto& [name, value] : request.parameters) {
    path +=
        fmt::format("{}{}={}", separator, name, sigv4::uriEncoded(value, sigv4::Slash::kEncoded));
    separator = '&';
  }
  return path;
}

}  // namespace varo::sandbox
