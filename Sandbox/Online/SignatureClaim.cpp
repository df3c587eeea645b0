#include "Sandbox/Online/SignatureClaim.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

namespace varo::sandbox {
namespace {

constexpr std::string_view kAuthorization = "Authorization";
constexpr std::string_view kAlgorithmParameter = "X-Amz-Algorithm";
constexpr std::string_view kMalformedHeader = "AuthorizationHeaderMalformed";
constexpr std::string_view kMalformedQuery = "AuthorizationQueryParametersError";
// In seconds. The standard's limit for signed addresses.
constexpr std::uint64_t kLongestLifetime = std::uint64_t{7} * 24 * 60 * 60;

using ClaimOrError = std::variant<SignatureClaim, StoreError>;

StoreError malformed(std::string_view code, std::string reason) {
  return {400, std::string(code), std::move(reason)};
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

/// "key/date/region/service/aws4_request", read from its end: the key may hold slashes.
bool readCredential(std::string_view text, SignatureClaim& claim) {
  std::string parts[4];
  for (std::string& part : parts) {
    const std::size_t slash = text.rfind('/');
    if (slash == std::string_view::npos) return false;
    part = text.substr(slash + 1);
    text = text.substr(0, slash);
  }
  claim.accessKey = text;
  claim.scope = {std::move(parts[3]), std::move(parts[2]), std::move(parts[1])};
  return parts[0] == sigv4::kTerminator && !text.empty();
}

bool isLowerCase(std::string_view name) {
  return std::none_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

bool readSignedHeaders(std::string_view text, SignatureClaim& claim) {
  claim.signedHeaders = split(text, ';');
  const auto& names = claim.signedHeaders;
  // In strict order, so no name comes twice: the canonical request joins equal names itself.
  const bool inOrder =
      std::adjacent_find(names.begin(), names.end(), std::greater_equal<>()) == names.end();
  return inOrder && std::all_of(names.begin(), names.end(), [](const std::string& name) {
           return !name.empty() && isLowerCase(name);
         });
}

std::optional<StoreError> readFields(const std::string* credential, const std::string* headers,
                                     const std::string* signature, std::string_view code,
                                     SignatureClaim& claim) {
  if (credential == nullptr || !readCredential(*credential, claim)) {
    return malformed(code,
                     "The credential is missing or is not key/date/region/service/aws4_request.");
  }
  if (headers == nullptr || !readSignedHeaders(*headers, claim)) {
    return malformed(code, "The list of signed headers is missing, empty or not in order.");
  }
  if (signature == nullptr || !isHexDigest(*signature)) {
    return malformed(code, "The signature is missing or is not 64 hexadecimal digits.");
  }
  claim.signature = *signature;
  return std::nullopt;
}

/// The fields of "AWS4-HMAC-SHA256 A=...,B=...", with or without blanks after the commas.
std::optional<FieldList> authorizationFields(std::string_view value) {
  if (!value.starts_with(sigv4::kAlgorithm)) return std::nullopt;
  value.remove_prefix(sigv4::kAlgorithm.size());
  if (!value.starts_with(' ')) return std::nullopt;
  FieldList fields;
  for (const std::string& part : split(value, ',')) {
    const std::string_view field = platform::trimmed(part);
    const std::size_t equals = std::min(field.find('='), field.size());
    const std::string_view name = field.substr(0, equals);
    // Two fields of one name could be read differently by two readers.
    if (equals == field.size() || findField(fields, name) != nullptr) return std::nullopt;
    fields.emplace_back(name, field.substr(equals + 1));
  }
  return fields;
}

/// The instant in "x-amz-date", or else in "Date", as its name in strings to sign.
std::optional<std::string> headerTimestamp(const HttpRequest& request) {
  if (const std::string* own = request.header("x-amz-date")) return *own;
  const std::string* date = request.header("Date");
  if (date == nullptr) return std::nullopt;
  const auto time = sigv4::parseHttpDate(*date);
  return time ? sigv4::timestampOf(*time) : *date;
}

ClaimOrError headerClaim(const HttpRequest& request, std::string_view authorization) {
  const auto fields = authorizationFields(authorization);
  if (!fields) {
    return StoreError{400, "InvalidRequest",
                      "The authorization is not AWS4-HMAC-SHA256 with its three fields."};
  }
  SignatureClaim claim;
  if (auto problem =
          readFields(findField(*fields, "Credential"), findField(*fields, "SignedHeaders"),
                     findField(*fields, "Signature"), kMalformedHeader, claim)) {
    return *std::move(problem);
  }
  const auto timestamp = headerTimestamp(request);
  const auto time = timestamp ? sigv4::parseTimestamp(*timestamp) : std::nullopt;
  if (!time) {
    return StoreError{403, "AccessDenied", "A signed request needs a valid x-amz-date or Date."};
  }
  claim.timestamp = *timestamp;
  claim.time = *time;
  // The store cannot take the digest itself before it has the body, and the body may be large. It
  // checks the claim now and the digest when the last byte is here.
  const std::string* hash = request.header("x-amz-content-sha256");
  if (hash == nullptr) {
    return StoreError{400, "InvalidRequest", "The header x-amz-content-sha256 is missing."};
  }
  claim.payloadHash = *hash;
  return claim;
}

ClaimOrError queryClaim(const HttpRequest& request) {
  const std::string* algorithm = request.parameter(kAlgorithmParameter);
  if (algorithm == nullptr || *algorithm != sigv4::kAlgorithm) {
    return malformed(kMalformedQuery, "X-Amz-Algorithm is not AWS4-HMAC-SHA256.");
  }
  SignatureClaim claim;
  if (auto problem = readFields(
          request.parameter("X-Amz-Credential"), request.parameter("X-Amz-SignedHeaders"),
          request.parameter(sigv4::kSignatureParameter), kMalformedQuery, claim)) {
    return *std::move(problem);
  }
  const std::string* timestamp = request.parameter("X-Amz-Date");
  const auto time = timestamp != nullptr ? sigv4::parseTimestamp(*timestamp) : std::nullopt;
  if (!time) return malformed(kMalformedQuery, "X-Amz-Date is missing or not valid.");
  const std::string* expires = request.parameter("X-Amz-Expires");
  const auto seconds = expires != nullptr ? parseUnsigned(*expires) : std::nullopt;
  if (!seconds || *seconds == 0 || *seconds > kLongestLifetime) {
    return malformed(kMalformedQuery, "X-Amz-Expires is not a number of seconds up to a week.");
  }
  claim.timestamp = *timestamp;
  claim.time = *time;
  // Who signs an address does not know yet what will be sent to it.
  claim.payloadHash = sigv4::kUnsignedPayload;
  claim.lifetime = std::chrono::seconds(*seconds);
  return claim;
}

bool isSignedInQuery(const HttpRequest& request) {
  return request.parameter(kAlgorithmParameter) != nullptr ||
         request.parameter(sigv4::kSignatureParameter) != nullptr;
}

}  // namespace

bool isHexDigest(std::string_view text) {
  return text.size() == 64 && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

bool isSigned(const HttpRequest& request) {
  return request.header(kAuthorization) != nullptr || isSignedInQuery(request);
}

ClaimOrError signatureClaimOf(const HttpRequest& request) {
  const std::string* authorization = request.header(kAuthorization);
  if (authorization == nullptr) return queryClaim(request);
  // Checking one and ignoring the other would let the other one say anything.
  if (isSignedInQuery(request)) {
    return StoreError{400, "InvalidArgument", "The request is signed in two places."};
  }
  return headerClaim(request, *authorization);
}

}  // namespace varo::sandbox
