#pragma once

#include "Sandbox/Http/HttpRequest.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// AWS Signature Version 4 as an object store computes it: paths are encoded once and never
/// normalised. The store's side of the wire, so it shares nothing with what clients sign with.
namespace varo::sandbox::sigv4 {

inline constexpr std::string_view kAlgorithm = "AWS4-HMAC-SHA256";
inline constexpr std::string_view kTerminator = "aws4_request";
inline constexpr std::string_view kUnsignedPayload = "UNSIGNED-PAYLOAD";
inline constexpr std::string_view kService = "s3";
/// Query parameter of a signed address. The only one that its signature does not cover.
inline constexpr std::string_view kSignatureParameter = "X-Amz-Signature";

/// What a signing key is good for.
struct Scope {
  std::string date;  ///< "yyyyMMdd"
  std::string region;
  std::string service;

  /// "date/region/service/aws4_request"
  [[nodiscard]] std::string text() const;
  friend bool operator==(const Scope&, const Scope&) = default;
};

/// Encodes all but letters, digits, "-", ".", "_", "~", and "/" where that separates.
enum class Slash { kKept, kEncoded };
[[nodiscard]] std::string uriEncoded(std::string_view text, Slash slash);

/// `signedHeaders` are lower-case names in order. Those that the request lacks count as empty.
[[nodiscard]] std::string canonicalRequest(const HttpRequest& request,
                                           const std::vector<std::string>& signedHeaders,
                                           std::string_view payloadHash);
[[nodiscard]] std::string stringToSign(std::string_view timestamp, const Scope& scope,
                                       std::string_view canonicalRequest);
/// In hexadecimal.
[[nodiscard]] std::string signature(std::string_view secretKey, const Scope& scope,
                                    std::string_view stringToSign);

using Time = std::chrono::sys_seconds;
/// "yyyyMMdd'T'HHmmss'Z'"
[[nodiscard]] std::string timestampOf(Time time);
[[nodiscard]] std::optional<Time> parseTimestamp(std::string_view text);

/// "Fri, 24 May 2013 00:00:00 GMT" (RFC 9110, 5.6.7, the form that is not obsolete)
[[nodiscard]] std::optional<Time> parseHttpDate(std::string_view text);
[[nodiscard]] std::string httpDateOf(Time time);

}  // namespace varo::sandbox::sigv4
