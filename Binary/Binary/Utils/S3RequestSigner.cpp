#include "Binary/Binary/Utils/S3RequestSigner.h"

#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Binary/Binary/Utils/SigningTime.h"
#include "Platform/Crypto/HmacSha256.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <map>
#include <set>

namespace varo::binary {

using platform::HttpHeader;
using platform::Result;

namespace {

constexpr std::string_view kService = "s3";
constexpr char kSecurityToken[] = "X-Amz-Security-Token";

/// Without the blanks around it, and with each run of blanks inside as one.
std::string canonicalValue(std::string_view value) {
  std::string result;
  for (const char c : platform::trimmed(value)) {
    if (c != ' ' || result.back() != ' ') result += c;
  }
  return result;
}

/// Values by the lower-case names, as the signature has them; those of one name joined.
std::map<std::string, std::string> canonicalHeaders(const std::vector<HttpHeader>& headers) {
  std::map<std::string, std::string> canonical;
  for (const HttpHeader& header : headers) {
    std::string value = canonicalValue(header.value);
    const auto [place, isNew] = canonical.emplace(platform::lowerCase(header.name), value);
    if (!isNew) place->second += "," + value;
  }
  return canonical;
}

}  // namespace

std::string encodedPath(std::string_view path) { return platform::percentEncode(path, "/"); }

std::string encodedQuery(const S3Request::Query& query) {
  // Ordered after the encoding: "%" sorts elsewhere than the character that it stands for.
  std::multiset<std::pair<std::string, std::string>> encoded;
  for (const auto& [name, value] : query) {
    encoded.emplace(platform::percentEncode(name), platform::percentEncode(value));
  }
  std::string text;
  for (const auto& [name, value] : encoded) {
    text += fmt::format("{}{}={}", text.empty() ? "" : "&", name, value);
  }
  return text;
}

S3RequestSigner::S3RequestSigner(S3Keys keys, std::string region, const platform::Clock& clock)
    : keys_(std::move(keys)), region_(std::move(region)), clock_(clock) {}

Result<std::vector<HttpHeader>> S3RequestSigner::sign(const S3Request& request) const {
  const auto now = clock_.now();
  std::vector<HttpHeader> headers = request.headers;
  headers.push_back({signing::kHost, request.host});
  headers.push_back({signing::kAmzDate, signing::timeText(now)});
  headers.push_back({signing::kAmzContentSha256, request.payloadHash});
  if (!keys_.sessionToken.empty()) headers.push_back({kSecurityToken, keys_.sessionToken});

  std::string lines;
  std::string names;
  for (const auto& [name, value] : canonicalHeaders(headers)) {
    lines += fmt::format("{}:{}\n", name, value);
    names += fmt::format("{}{}", names.empty() ? "" : ";", name);
  }
  const auto hash = platform::Sha256::of(
      fmt::format("{}\n{}\n{}\n{}\n{}\n{}", request.method, encodedPath(request.path),
                  encodedQuery(request.query), lines, names, request.payloadHash));
  if (!hash) return hash.error();
  const std::string day = signing::dateText(now);
  const std::string scope =
      fmt::format("{}/{}/{}/{}", day, region_, kService, signing::kScopeTerminator);
  const auto key = S3HMACGenerator::getSignatureKey(keys_.secretKey, day, region_, kService);
  if (!key) return key.error();
  const auto signature = platform::HmacSha256::of(
      key->bytes(), fmt::format("{}\n{}\n{}\n{}", signing::kAlgorithm, signing::timeText(now),
                                scope, hash->hex()));
  if (!signature) return signature.error();
  headers.push_back(
      {signing::kAuthorization,
       fmt::format("{} Credential={}/{}, SignedHeaders={}, Signature={}", signing::kAlgorithm,
                   keys_.accessKey, scope, names, signature->hex())});
  return headers;
}

}  // namespace varo::binary
