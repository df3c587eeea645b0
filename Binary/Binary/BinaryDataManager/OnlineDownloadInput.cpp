#include "Binary/Binary/BinaryDataManager/OnlineDownloadInput.h"

#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Text.h"

#include <memory>
#include <string_view>

namespace varo::binary {

using platform::Block;
using platform::Clock;
using platform::Data;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::Result;
using platform::Value;

namespace {

constexpr char kFileId[] = "fileId";
constexpr std::string_view kIdentifierOfTime = "_%@";

/// The configuration with the file parameters filled in. Not with the strict fill, which drops what
/// closes the JSON.
std::optional<Dictionary> filledConfiguration(const OnlineDownload& download) {
  const auto json = CommonUtils::jsonStringFromDictionary(download.configuration);
  if (!json) return std::nullopt;
  const std::string filled = TemplateUtil(*json).tryPopulateJSONTemplate(
      TemplateUtil::escapedForJson(download.fileParams));
  const Value parsed = CommonUtils::parseJsonString(filled);
  return parsed.isDictionary() ? std::optional(*parsed.dictionary()) : std::nullopt;
}

Result<Dictionary> signedHeaders(const OnlineDownload& download, const Clock& clock) {
  const auto filled = filledConfiguration(download);
  if (!filled) {
    return CommonUtils::generateErrorWith(kTemplateParsingErrorDomain, kInvalidFileParams,
                                          kmsgtemplateParsing);
  }
  S3HMACGenerator signer((*filled)[signing::kAuthParameters].dictionaryValue(), *filled, Data(),
                         S3OperationType::kDownload, clock);
  return signer.getRequestHeaders(S3OperationType::kDownload);
}

Dictionary plainHeaders(const Dictionary& configuration) {
  Dictionary headers = configuration[keys::kHeaders].dictionaryValue();
  const Value& token = configuration[kVaroAuthorization];
  if (CommonUtils::isGiven(token))
    BinaryNetworkUtils::setHeader(headers, kVaroAuthorization, token);
  return headers;
}

bool isSigned(const Dictionary& configuration) {
  const std::string* auth = configuration[kTemplateParamAuth].text();
  return auth != nullptr && *auth == kAuthHmacDigest;
}

/// "Headers" and "URL". An address that cannot be told is left out: the download fails without it.
Result<Dictionary> request(const OnlineDownload& download, const Clock& clock) {
  const Dictionary& configuration = download.configuration;
  Dictionary headers = plainHeaders(configuration);
  if (isSigned(configuration)) {
    auto authenticated = signedHeaders(download, clock);
    if (!authenticated) return authenticated.error();
    headers = std::move(authenticated).value();
  }
  std::optional<std::string> url;
  if (const Value& endpoint = configuration[kTemplateParamEndpointUrl];
      CommonUtils::isGiven(endpoint)) {
    ErrorPtr error;
    url = TemplateUtil(endpoint.textValue()).populateJSONTemplate(download.fileParams, &error);
    if (error != nullptr) return error;
  } else {
    url = TemplateUtil::endPointURLFrom(configuration, download.options);
    headers = TemplateUtil::injectVaroAuthorizationInto(std::move(headers), download.options);
  }
  return Dictionary{{kURL, url ? Value(*url) : Value()}, {kDownloadHeaders, headers}};
}

/// As something that travels in a context; missing for an empty block.
template <typename Carrier>
Value carried(const typename Carrier::Function& block) {
  return block ? Value(std::make_shared<Carrier>(block)) : Value();
}

}  // namespace

std::string onlineDownloadIdentifier(const OnlineDownload& download, const Clock& clock) {
  const Value& fileId = download.fileParams[kFileId];
  return CommonUtils::isGiven(fileId)
             ? fileId.textValue()
             : platform::formatMessage(kIdentifierOfTime, {CommonUtils::getEpochTime(clock)});
}

Result<Dictionary> onlineDownloadInput(const OnlineDownload& download,
                                       const std::string& identifier, const Clock& clock) {
  const auto target = request(download, clock);
  if (!target) return target.error();
  const Dictionary& configuration = download.configuration;
  const auto given = [&configuration](const char* key) {
    return CommonUtils::isGiven(configuration[key]) ? configuration[key] : Value();
  };
  return Dictionary{
      {keys::kQueryParams, given(keys::kQueryParams)},
      {kFileParams, download.fileParams},
      {kURL, (*target)[kURL]},
      {kBlobId, identifier},
      {kDownloadHeaders, (*target)[kDownloadHeaders]},
      {kStreaming, download.streaming},
      {kOnlineDownloadTask, kTrue},
      {keys::kDisableIntegrityCheck, true},
      {kChunkSizeKey, given(kChunkSizeKey)},
      {kOnFileDownloadStarted, carried<OnFileDownloadStarted>(download.onFileDownloadStarted)},
      {kOnChunkDownloadCompleted,
       carried<OnChunkDownloadCompleted>(download.onChunkDownloadCompleted)},
      {kOnStreamDownloadCompleted,
       carried<OnStreamDownloadCompleted>(download.onStreamDownloadCompleted)},
      {kOnFileDownloadCompleted,
       carried<OnFileDownloadCompleted>(download.onFileDownloadCompleted)},
      {kOnDownloadFailure, carried<OnDownloadFailure>(download.onDownloadFailure)}};
}

}  // namespace varo::binary
