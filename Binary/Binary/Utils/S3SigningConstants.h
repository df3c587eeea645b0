#pragma once

#include <string_view>

/// Names and values of signed requests to object stores. Those that are looked up or set in
/// dictionaries are arrays because a dictionary takes its keys as `std::string`.
namespace varo::binary::signing {

/// The authentication parameters.
inline constexpr char kAccessKeyID[] = "accessKeyID";
inline constexpr char kBucketName[] = "bucketName";
inline constexpr char kObjectName[] = "objectName";
inline constexpr char kRegionName[] = "regionName";
inline constexpr char kSecretAccessKey[] = "secretAccessKey";

/// The template, beside "method".
inline constexpr char kAuthParameters[] = "AuthParameters";
inline constexpr char kServiceName[] = "serviceName";

/// Headers as they are sent; "Host" is also where the template names the host.
inline constexpr char kHost[] = "Host";
inline constexpr char kAmzDate[] = "X-Amz-Date";
inline constexpr char kAmzContentSha256[] = "X-Amz-Content-SHA256";
inline constexpr char kAuthorization[] = "Authorization";

/// Headers as they are signed.
inline constexpr char kSignedHost[] = "host";
inline constexpr char kSignedAmzDate[] = "x-amz-date";
inline constexpr char kSignedContentType[] = "content-type";
inline constexpr char kSignedAmzContentSha256[] = "x-amz-content-sha256";

inline constexpr std::string_view kUploadContentType = "binary/octet-stream";

/// The signing standard's own texts.
inline constexpr std::string_view kAlgorithm = "AWS4-HMAC-SHA256";
inline constexpr std::string_view kKeyPrefix = "AWS4";
inline constexpr std::string_view kScopeTerminator = "aws4_request";

/// SHA-256 of no bytes.
inline constexpr std::string_view kEmptyPayloadSha256 =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

}  // namespace varo::binary::signing
