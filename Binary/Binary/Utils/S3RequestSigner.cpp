#include "Binary/Binary/Utils/S3RequestSigner.h"

#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Binary/Binary/Utils/SigningKeyCache.h"
#include "Binary/Binary/Utils/SigningTexts.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <cstddef>

namespace varo::binary {

using platform::HttpHeader;
using platform::Result;

namespace {

constexpr std::string_view kService = "s3";
constexpr char kSecurityToken[] = "X-Amz-Security-Token";
/// Host, time, digest, token and signature.
constexpr std::size_t kMostHeadersOfSignature = 5;
/// Bytes of the signed headers, rather more.
constexpr std::size_t kUsualLinesLength = 384;

using Pair = std::pair<std::string, std::string>;

/// Without the blanks around it, and with each run of blanks inside as one.
std::string canonicalValue(std::string_view value) {
  std::string result;
  result.reserve(value.size());
  for (const char c : platform::trimmed(value)) {
    if (c != ' ' || result.back() != ' ') result += c;
  }
  return result;
}

/// Values by the lower-case names, in their order, as the signature has them; those of one name
/// joined.
std::vector<Pair> canonicalHeaders(const std::vector<HttpHeader>& headers) {
  std::vector<Pair> canonical;
  canonical.reserve(headers.size());
  for (const HttpHeader& header : headers) {
    std::string name = platform::lowerCase(header.name);
    const auto place =
        std::lower_bound(canonical.begin(), canonical.end(), name,
                         [](const Pair& each, const std::string& key) { return each.first < key; });
    if (place != canonical.end() && place->first == name) {
      place->second.append(1, ',').append(canonicalValue(header.value));
    } else {
      canonical.emplace(place, std::move(name), canonicalValue(header.value));
    }
  }
  return canonical;
}

}  // namespace

std::string encodedPath(std::string_view path) { return platform::percentEncode(path, "/"); }

std::string encodedQuery(const S3Request::Query& query) {
  std::vector<Pair> encoded;
  encoded.reserve(query.size());
  for (const auto& [name, value] : query) {
    encoded.emplace_back(platform::percentEncode(name), platform::percentEncode(value));
  }
  // Ordered after the encoding: "%" sorts elsewhere than the character that it stands for.
  std::sort(encoded.begin(), encoded.end());
  std::string text;
  for (const auto& [name, value] : encoded) {
    if (!text.empty()) text += '&';
    text.append(name).append(1, '=').append(value);
  }
  return text;
}

S3RequestSigner::S3RequestSigner(S3Keys keys, std::string region, const platform::Clock& clock)
    : keys_(std::move(keys)), region_(std::move(region)), clock_(clock) {}

Result<std::vector<HttpHeader>> S3RequestSigner::sign(const S3Request& request) const {
  const auto now = clock_.now();
  const std::string time = signing::timeText(now);
  std::vector<HttpHeader> headers;
  headers.reserve(request.headers.size() + kMostHeadersOfSignature);
  headers = request.headers;
  headers.push_back({signing::kHost, request.host});
  headers.push_back({signing::kAmzDate, time});
  headers.push_back({signing::kAmzContentSha256, request.payloadHash});
  if (!keys_.sessionToken.empty()) headers.push_back({kSecurityToken, keys_.sessionToken});

  std::string lines;
  std::string names;
  lines.reserve(kUsualLinesLength);
  for (const auto& [name, value] : canonicalHeaders(headers)) {
    lines.append(name).append(1, ':').append(value).append(1, '\n');
    if (!names.empty()) names += ';';
    names += name;
  }
  const auto hash = platform::Sha256::of(signing::joined(
      {request.method, "\n", encodedPath(request.path), "\n", encodedQuery(request.query), "\n",
       lines, "\n", names, "\n", request.payloadHash}));
  if (!hash) return hash.error();
  const std::string day = signing::dateText(now);
  const std::string scope = signing::scopeText(day, region_, kService);
  const auto key = SigningKeyCache::shared().keyOf(keys_.secretKey, day, region_, kService);
  if (!key) return key.error();
  const auto signature = (*key)->hmac.of(signing::stringToSign(time, scope, hash->hex()));
  if (!signature) return signature.error();
  headers.push_back(
      {signing::kAuthorization,
       signing::joined({signing::kAlgorithm, " Credential=", keys_.accessKey, "/", scope,
                        ", SignedHeaders=", names, ", Signature=", signature->hex()})});
  return headers;
}

}  // namespace varo::binary
