#include "Binary/Binary/Utils/S3HMACGenerator.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Binary/Binary/Utils/SigningKeyCache.h"
#include "Binary/Binary/Utils/SigningTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Platform/Foundation/PercentCoding.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace varo::binary {

using platform::Clock;
using platform::Sha256;
using platform::Sha256Digest;

namespace {

/// What may stand in a URL's fragment beside the characters that are never encoded.
constexpr std::string_view kFragmentCharacters = "!$&'()*+,;=:@/?";

/// Bytes of a canonical request without the object's name, rather more.
constexpr std::size_t kUsualRequestLength = 512;

/// Bytes of the signed headers' names, at most.
constexpr std::size_t kUsualNamesLength = 64;

constexpr std::uint64_t kLargestByteArray = 64ULL * 1024 * 1024;

/// Empty where there is no text.
std::string textOf(const Value& value) {
  return value.isNull() ? std::string() : value.textValue();
}

void appendText(std::string& to, const Value& value) {
  if (const std::string* text = value.text()) {
    to += *text;
  } else {
    to += textOf(value);
  }
}

std::vector<Dictionary::const_iterator> sortedByKey(const Dictionary& dictionary) {
  std::vector<Dictionary::const_iterator> entries;
  entries.reserve(dictionary.size());
  const auto end = dictionary.end();
  for (auto entry = dictionary.begin(); entry != end; ++entry) entries.push_back(entry);
  // The signature covers names in this order, whatever order they are sent in.
  std::sort(entries.begin(), entries.end(),
            [](const auto& left, const auto& right) { return left->key < right->key; });
  return entries;
}

Result<std::string> payloadHash(const std::optional<Data>& payload) {
  if (!payload || payload->empty()) return std::string(signing::kEmptyPayloadSha256);
  return S3HMACGenerator::generateHashAndConvertIntoHexString(*payload);
}

}  // namespace

S3HMACGenerator::S3HMACGenerator(const Dictionary& authParameters, const Dictionary& withTemplate,
                                 std::optional<Data> rawBytes, S3OperationType operationType,
                                 const Clock& clock)
    : clock_(clock),
      accessKeyID(textOf(authParameters[signing::kAccessKeyID])),
      secretAccessKey(textOf(authParameters[signing::kSecretAccessKey])),
      regionName(textOf(authParameters[signing::kRegionName])),
      objectName(textOf(authParameters[signing::kObjectName])),
      bucketName(textOf(authParameters[signing::kBucketName])),
      payload(std::move(rawBytes)),
      // As it was given: the name's encoding is the caller's, and must be what is sent.
      canonicalURI("/" + objectName),
      payloadHash_(payloadHash(payload)) {
  // After the payload was read: that of a large one may take long, and the time stamp ages.
  xAmzDate = getTimeStamp();
  currentDate = getDate();
  setAuthorizationParameters(withTemplate, operationType);
}

void S3HMACGenerator::setAuthorizationParameters(const Dictionary& template_,
                                                 S3OperationType operationType) {
  if (operationType == S3OperationType::kUpload) extractParamsForUpload(template_);
  if (operationType == S3OperationType::kDownload) extractParamsForDownload(template_);
  awsHeaders = getAWSHeaders(operationType);
}

void S3HMACGenerator::extractParamsForUpload(const Dictionary& template_) {
  extractParams(template_);
}

void S3HMACGenerator::extractParamsForDownload(const Dictionary& template_) {
  extractParams(template_);
}

void S3HMACGenerator::extractParams(const Dictionary& template_) {
  httpMethod = textOf(template_[keys::kMethod]);
  serviceName =
      textOf(template_[signing::kAuthParameters].dictionaryValue()[signing::kServiceName]);
  hostName = textOf(template_[signing::kHost]);
}

std::optional<Dictionary> S3HMACGenerator::getAWSHeaders(S3OperationType operationType) const {
  const bool isUpload = operationType == S3OperationType::kUpload;
  if (!isUpload && operationType != S3OperationType::kDownload) return std::nullopt;
  Dictionary headers;
  if (!hostName.empty()) headers.set(signing::kSignedHost, hostName);
  headers.set(signing::kSignedAmzDate, xAmzDate);
  if (!isUpload) {
    headers.set(signing::kSignedAmzContentSha256, signing::kEmptyPayloadSha256);
    return headers;
  }
  headers.set(signing::kSignedContentType, signing::kUploadContentType);
  // A payload that cannot be read has no digest: then there is no canonical request either.
  if (payloadHash_) headers.set(signing::kSignedAmzContentSha256, *payloadHash_);
  return headers;
}

Result<Dictionary> S3HMACGenerator::getRequestHeaders(S3OperationType operationType) {
  auto authorization = getAuthorizationHeader();
  if (!authorization) return authorization.error();
  Dictionary headers;
  if (!hostName.empty()) headers.set(signing::kHost, hostName);
  headers.set(signing::kAmzDate, xAmzDate);
  headers.set(signing::kAuthorization, std::move(authorization).value());
  headers.set(signing::kAmzContentSha256, *payloadHash_);
  if (operationType == S3OperationType::kUpload) {
    headers.set(kContentType, signing::kUploadContentType);
  }
  return headers;
}

Result<std::string> S3HMACGenerator::prepareCanonicalRequest() {
  if (!payload) payload = Data();
  if (!payloadHash_) return payloadHash_.error();
  std::string request;
  request.reserve(kUsualRequestLength + canonicalURI.size());
  request.append(httpMethod).append(1, '\n').append(canonicalURI).append(1, '\n');
  appendQueryLine(request);
  appendHeaderLines(request);
  request += strSignedHeader;
  request += '\n';
  request += *payloadHash_;
  return request;
}

/// Keeps the "&" after the last parameter: the form that this library signs.
void S3HMACGenerator::appendQueryLine(std::string& request) const {
  if (queryParameters) {
    for (const auto& parameter : sortedByKey(*queryParameters)) {
      request += parameter->key;
      request += '=';
      request += platform::percentEncode(textOf(parameter->value), kFragmentCharacters);
      request += '&';
    }
  }
  request += '\n';
}

void S3HMACGenerator::appendHeaderLines(std::string& request) {
  strSignedHeader.clear();
  if (awsHeaders) {
    strSignedHeader.reserve(kUsualNamesLength);
    for (const auto& header : sortedByKey(*awsHeaders)) {
      request += header->key;
      request += ':';
      appendText(request, header->value);
      request += '\n';
      strSignedHeader += header->key;
      strSignedHeader += ';';
    }
  }
  request += '\n';
  if (!strSignedHeader.empty()) strSignedHeader.pop_back();
}

std::string S3HMACGenerator::scope() const {
  return signing::scopeText(currentDate, regionName, serviceName);
}

Result<std::string> S3HMACGenerator::prepareStringToSign(std::string_view canonicalRequest) const {
  const auto hash = Sha256::of(canonicalRequest);
  if (!hash) return hash.error();
  return signing::stringToSign(xAmzDate, scope(), hash->hex());
}

Result<Sha256Digest> S3HMACGenerator::getSignatureKey(std::string_view secret,
                                                      std::string_view date,
                                                      std::string_view region,
                                                      std::string_view service) {
  const auto key = SigningKeyCache::shared().keyOf(secret, date, region, service);
  if (!key) return key.error();
  return (*key)->bytes;
}

Result<std::string> S3HMACGenerator::calculateSignature(std::string_view stringToSign) const {
  const auto key =
      SigningKeyCache::shared().keyOf(secretAccessKey, currentDate, regionName, serviceName);
  if (!key) return key.error();
  const auto signature = (*key)->hmac.of(stringToSign);
  if (!signature) return signature.error();
  return signature->hex();
}

std::string S3HMACGenerator::buildAuthorizationString(std::string_view signature) const {
  return signing::joined({signing::kAlgorithm, " Credential=", accessKeyID, "/", scope(),
                          ",SignedHeaders=", strSignedHeader, ",Signature=", signature});
}

Result<std::string> S3HMACGenerator::getAuthorizationHeader() {
  const auto canonicalRequest = prepareCanonicalRequest();
  if (!canonicalRequest) return canonicalRequest.error();
  const auto stringToSign = prepareStringToSign(*canonicalRequest);
  if (!stringToSign) return stringToSign.error();
  const auto signature = calculateSignature(*stringToSign);
  if (!signature) return signature.error();
  return buildAuthorizationString(*signature);
}

std::string S3HMACGenerator::getTimeStamp() const { return signing::timeText(clock_.now()); }

std::string S3HMACGenerator::getDate() const { return signing::dateText(clock_.now()); }

Result<std::string> S3HMACGenerator::generateHashAndConvertIntoHexString(const Data& bytes) {
  const auto hash = Sha256::of(bytes);
  if (!hash) return hash.error();
  return hash->hex();
}

std::string S3HMACGenerator::hexadecimalStringInLowerCaseFromByteArray(
    std::string_view byteArray, std::size_t byteArrayLength) {
  return platform::hexEncode(byteArray.substr(0, byteArrayLength));
}

Result<std::string> S3HMACGenerator::getByteArrayFromNSData(const Data& bytes) {
  return bytes.readAll(kLargestByteArray);
}

}  // namespace varo::binary
