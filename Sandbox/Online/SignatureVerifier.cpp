#include "Sandbox/Online/SignatureVerifier.h"

#include "Platform/Foundation/Text.h"
#include "Sandbox/Online/Digest.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace varo::sandbox {
namespace {

// As such stores have it: more than clocks differ, and little time for an intercepted request.
constexpr std::chrono::minutes kLargestSkew{15};

StoreError denied(std::string message) { return {403, "AccessDenied", std::move(message)}; }

/// What must be signed is signed, and what is signed is there.
std::optional<StoreError> checkSignedHeaders(const HttpRequest& request,
                                             const SignatureClaim& claim) {
  const auto isNamed = [&claim](std::string_view name) {
    return std::any_of(claim.signedHeaders.begin(), claim.signedHeaders.end(),
                       [name](const auto& one) { return platform::equalIgnoringCase(one, name); });
  };
  if (!isNamed("host")) return denied("The header \"host\" must be signed.");
  for (const auto& [name, value] : request.headers) {
    // These change what the store does. Unsigned, anybody on the way could add one.
    if (startsIgnoringCase(name, "x-amz-") && !isNamed(name)) {
      return denied(fmt::format("The header \"{}\" is not signed.", name));
    }
  }
  for (const std::string& name : claim.signedHeaders) {
    if (request.header(name) == nullptr) {
      return denied(fmt::format("The signed header \"{}\" is missing.", name));
    }
  }
  return std::nullopt;
}

}  // namespace

SignatureVerifier::SignatureVerifier(SignedStoreOptions options, const WantedToken& sessionToken)
    : options_(std::move(options)), sessionToken_(sessionToken) {}

std::variant<SignatureVerifier::PayloadHash, StoreError> SignatureVerifier::verify(
    const HttpRequest& request, sigv4::Time now) const {
  if (!isSigned(request)) {
    if (options_.requiresSignature) return denied("The request is not signed.");
    return PayloadHash{};
  }
  auto read = signatureClaimOf(request);
  if (auto* problem = std::get_if<StoreError>(&read)) return std::move(*problem);
  const auto& claim = std::get<SignatureClaim>(read);
  // The signature last: its refusal says nothing of the cause, the others say it exactly.
  if (auto problem = checkScope(claim)) return *std::move(problem);
  if (auto problem = checkToken(request, claim)) return *std::move(problem);
  if (auto problem = checkTime(claim, now)) return *std::move(problem);
  if (auto problem = checkPayloadHash(claim)) return *std::move(problem);
  if (auto problem = checkSignedHeaders(request, claim)) return *std::move(problem);
  if (auto problem = checkSignature(request, claim)) return *std::move(problem);
  return claim.payloadHash == sigv4::kUnsignedPayload ? PayloadHash{} : claim.payloadHash;
}

SignatureVerifier::Problem SignatureVerifier::checkScope(const SignatureClaim& claim) const {
  if (claim.accessKey != options_.accessKey) {
    return StoreError{403,
                      "InvalidAccessKeyId",
                      "There is no such access key.",
                      {{"AWSAccessKeyId", claim.accessKey}}};
  }
  // The day comes from the request's own time. Whether that is today is for `checkTime`.
  const sigv4::Scope expected{claim.timestamp.substr(0, 8), options_.region,
                              std::string(sigv4::kService)};
  if (claim.scope == expected) return std::nullopt;
  const bool inQuery = claim.lifetime.has_value();
  return StoreError{400,
                    inQuery ? "AuthorizationQueryParametersError" : "AuthorizationHeaderMalformed",
                    fmt::format("The credential is for {}, this request needs {}.",
                                claim.scope.text(), expected.text())};
}

SignatureVerifier::Problem SignatureVerifier::checkToken(const HttpRequest& request,
                                                         const SignatureClaim& claim) const {
  if (sessionToken_.isEmpty()) return std::nullopt;
  // In either place the signature covers it: the whole query, and all headers of this kind.
  const std::string* token = claim.lifetime ? request.parameter(sigv4::kTokenParameter)
                                            : request.header(sigv4::kTokenParameter);
  if (token == nullptr) {
    return StoreError{403,
                      "InvalidAccessKeyId",
                      "The access key is a temporary one and needs its session token.",
                      {{"AWSAccessKeyId", claim.accessKey}}};
  }
  const auto verdict = sessionToken_.judge(*token);
  if (verdict == WantedToken::Verdict::kGood) return std::nullopt;
  if (verdict == WantedToken::Verdict::kExpired) {
    return StoreError{400, "ExpiredToken", "The session token has expired."};
  }
  return StoreError{400, "InvalidToken", "The session token is not the access key's."};
}

SignatureVerifier::Problem SignatureVerifier::checkTime(const SignatureClaim& claim,
                                                        sigv4::Time now) {
  const FieldList clocks{{claim.lifetime ? "X-Amz-Date" : "RequestTime", claim.timestamp},
                         {"ServerTime", sigv4::timestampOf(now)}};
  if (!claim.lifetime) {
    if (claim.time >= now - kLargestSkew && claim.time <= now + kLargestSkew) return std::nullopt;
    return StoreError{403, "RequestTimeTooSkewed",
                      "The request's time and the store's are more than 15 minutes apart.", clocks};
  }
  if (claim.time > now + kLargestSkew) {
    return StoreError{403, "AccessDenied", "The signed address is not good yet.", clocks};
  }
  if (now > claim.time + *claim.lifetime) {
    return StoreError{403, "AccessDenied", "The signed address has expired.", clocks};
  }
  return std::nullopt;
}

SignatureVerifier::Problem SignatureVerifier::checkPayloadHash(const SignatureClaim& claim) const {
  const std::string& hash = claim.payloadHash;
  if (hash == sigv4::kUnsignedPayload) {
    // A signed address never covers the body, so no setting forbids it there.
    if (claim.lifetime || options_.allowsUnsignedPayload) return std::nullopt;
    return denied("The body must be signed.");
  }
  if (hash.starts_with("STREAMING-")) {
    return StoreError{501, "NotImplemented", "Bodies that are signed in chunks are not served."};
  }
  if (isHexDigest(hash)) return std::nullopt;
  return StoreError{400, "InvalidArgument",
                    "The header x-amz-content-sha256 is neither a digest nor UNSIGNED-PAYLOAD."};
}

SignatureVerifier::Problem SignatureVerifier::checkSignature(const HttpRequest& request,
                                                             const SignatureClaim& claim) const {
  const std::string canonical =
      sigv4::canonicalRequest(request, claim.signedHeaders, claim.payloadHash);
  const std::string toSign = sigv4::stringToSign(claim.timestamp, claim.scope, canonical);
  const std::string expected = sigv4::signature(options_.secretKey, claim.scope, toSign);
  if (equalInConstantTime(expected, claim.signature)) return std::nullopt;
  return StoreError{403,
                    "SignatureDoesNotMatch",
                    "The signature is not the one of this request under the access key's secret.",
                    {{"AWSAccessKeyId", claim.accessKey},
                     {"SignatureProvided", claim.signature},
                     // Both without the secret. Compared with the client's own, they show where the
                     // two part.
                     {"StringToSign", toSign},
                     {"CanonicalRequest", canonical}}};
}

}  // namespace varo::sandbox
