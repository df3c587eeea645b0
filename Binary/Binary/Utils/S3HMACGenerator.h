#pragma once

#include "Binary/Binary/Utils/BaseHMACGenerator.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

/// What a signed request does. Any other number signs no header.
enum class S3OperationType : std::uint32_t { kUpload = 0, kDownload = 1 };

/// Signs one request to an object store with AWS Signature Version 4, and is then dropped.
///
/// Derivation of the key, string to sign and credential scope follow the standard. Three things are
/// this library's own:
/// - the object name enters the canonical request as it is, not percent-encoded;
/// - the fields of the Authorization value have no blank after their commas;
/// - a query line would end with "&".
///
/// Nothing is checked: the store refuses what it cannot verify. An absent input counts as an empty
/// text; an absent host is no header. Two things can fail: reading the payload (`Data::read`'s
/// errors) and the cryptographic library (domain "Crypto"). Nothing is logged, and errors hold no
/// input. Not thread-safe as one instance.
class S3HMACGenerator final : public BaseHMACGenerator {
 public:
  /// Takes the time from `clock` and reads the payload, piece by piece: once, and only for its
  /// digest. `authParameters` has "accessKeyID", "secretAccessKey", "regionName", "bucketName" and
  /// "objectName", `withTemplate` has "method", "Host" and, in "AuthParameters", "serviceName". A
  /// payload that is absent counts as empty.
  S3HMACGenerator(const platform::Dictionary& authParameters,
                  const platform::Dictionary& withTemplate, std::optional<platform::Data> rawBytes,
                  S3OperationType operationType,
                  const platform::Clock& clock = platform::Clock::system());

  /// The headers to send: "Host", "X-Amz-Date", "Authorization", "X-Amz-Content-SHA256" and, of an
  /// upload, "Content-Type". To be used within the store's tolerance of the clock, minutes.
  [[nodiscard]] platform::Result<platform::Dictionary> getRequestHeaders(
      S3OperationType operationType);

  // The steps of `getRequestHeaders`, in their order.

  /// The canonical request. Sets the list of signed headers.
  [[nodiscard]] platform::Result<std::string> prepareCanonicalRequest();
  [[nodiscard]] platform::Result<std::string> prepareStringToSign(
      std::string_view canonicalRequest) const;
  /// The key of a day, region and service, from those kept or derived now. `date` is "yyyyMMdd".
  [[nodiscard]] static platform::Result<platform::Sha256Digest> getSignatureKey(
      std::string_view secret, std::string_view date, std::string_view region,
      std::string_view service);
  /// Lower-case hexadecimal, 64 digits.
  [[nodiscard]] platform::Result<std::string> calculateSignature(
      std::string_view stringToSign) const;
  /// The value of the header "Authorization".
  [[nodiscard]] std::string buildAuthorizationString(std::string_view signature) const;
  /// All of them.
  [[nodiscard]] platform::Result<std::string> getAuthorizationHeader();

  // What the constructor does.

  /// Takes over what the template says, for an upload or download, and the headers to sign.
  void setAuthorizationParameters(const platform::Dictionary& template_,
                                  S3OperationType operationType);
  void extractParamsForUpload(const platform::Dictionary& template_);
  void extractParamsForDownload(const platform::Dictionary& template_);
  /// The headers to sign, by their lower-case names; none for an operation of another type.
  [[nodiscard]] std::optional<platform::Dictionary> getAWSHeaders(
      S3OperationType operationType) const;
  /// Now, in UTC, as "yyyyMMdd'T'HHmmss'Z'" and as "yyyyMMdd". Each reads the clock.
  [[nodiscard]] std::string getTimeStamp() const;
  [[nodiscard]] std::string getDate() const;

  /// Parameters of the request's query, for the canonical request; none unless set.
  void setQueryParameters(std::optional<platform::Dictionary> parameters) {
    queryParameters = std::move(parameters);
  }

  /// SHA-256 in lower-case hexadecimal, 64 digits. Reads piece by piece.
  [[nodiscard]] static platform::Result<std::string> generateHashAndConvertIntoHexString(
      const platform::Data& bytes);
  /// Two lower-case digits for each of the first `byteArrayLength` bytes.
  [[nodiscard]] static std::string hexadecimalStringInLowerCaseFromByteArray(
      std::string_view byteArray, std::size_t byteArrayLength);
  /// A copy of the bytes; EFBIG where they are more than 64 MiB.
  [[nodiscard]] static platform::Result<std::string> getByteArrayFromNSData(
      const platform::Data& bytes);

 private:
  void appendQueryLine(std::string& request) const;
  void appendHeaderLines(std::string& request);
  void extractParams(const platform::Dictionary& template_);
  [[nodiscard]] std::string scope() const;

  const platform::Clock& clock_;

  std::string accessKeyID;
  std::string secretAccessKey;
  std::string httpMethod;
  std::string regionName;
  std::string serviceName;
  std::string objectName;
  std::string bucketName;  // enters no computed value
  std::string xAmzDate;
  std::string hostName;
  std::string currentDate;
  std::string strSignedHeader;
  std::optional<platform::Data> payload;
  std::string canonicalURI;
  std::optional<platform::Dictionary> queryParameters;
  std::optional<platform::Dictionary> awsHeaders;

  /// The payload's digest in hexadecimal: the canonical request and the headers need it again.
  platform::Result<std::string> payloadHash_;
};

}  // namespace varo::binary
