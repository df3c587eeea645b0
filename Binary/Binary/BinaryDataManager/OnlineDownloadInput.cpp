#include "Binary/Binary/BinaryDataManager/OnlineDownloadInput.h"

#include "Binary/Binary/DownloadTask/DownloadPath.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/RequestSigner.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/KnownKeys.h"
#include "Platform/Foundation/Text.h"

#include <array>
#include <memory>
#include <string_view>

namespace varo::binary {

using platform::Block;
using platform::Clock;

namespace {

constexpr char kFileId[] = "fileId";
constexpr std::string_view kIdentifierOfTime = "_%@";

/// The entries that a download reads of what the caller gives.
constexpr std::array<std::string_view, 12> kConfigurationKeys = {
    kTemplateParamEndpointUrl, kTemplateParamDomain, kTemplateParamRelativePath,
    kTemplateParamAuth,        kVaroAuthorization,   keys::kHeaders,
    keys::kQueryParams,        keys::kMethod,        kChunkSizeKey,
    signing::kAuthParameters,  signing::kHost,       signing::kServiceName};
constexpr std::array<std::string_view, 4> kOptionKeys = {kTemplateParamDomain, kVaroAuthorization,
                                                         kOperationSettings, kCancellation};

/// The configuration with the file parameters filled in. Not with the strict fill, which drops what
/// closes the JSON.
std::optional<Dictionary> filledConfiguration(const OnlineDownload& download) {
  const auto json = CommonUtils::jsonStringFromDictionary(download.configuration);
  if (!json) return std::nullopt;
  const std::string filled = TemplateUtil(*json).tryPopulateJSONTemplate(
      TemplateUtil::escapedForJson(download.fileParams));
  const Value parsed = CommonUtils::parseJsonString(filled, platform::kFilledJsonLimits);
  return parsed.isDictionary() ? std::optional(*parsed.dictionary()) : std::nullopt;
}

using SignerPtr = std::shared_ptr<RequestSigner>;

/// An address that is made of the options takes their token along; under the safe policy only to
/// the server of the options' own domain.
bool takesToken(const OnlineDownload& download, const Value& url) {
  if (CommonUtils::isGiven(download.configuration[kTemplateParamEndpointUrl])) return false;
  if (!download.settings->isSafe() || !download.options) return true;
  const std::string* domain = (*download.options)[kTemplateParamDomain].text();
  return domain != nullptr && url.isText() &&
         BinaryNetworkUtils::addressAtServer(*url.text(), *domain).ok();
}

/// Signs each request of the download.
Result<SignerPtr> signerOf(const OnlineDownload& download, bool withToken, const Clock& clock) {
  const auto filled = filledConfiguration(download);
  if (!filled) {
    return CommonUtils::generateErrorWith(kTemplateParsingErrorDomain, kInvalidFileParams,
                                          kmsgtemplateParsing);
  }
  SignerPtr signer = RequestSigner::ofDownload(*filled, clock);
  if (!withToken) return signer;
  return std::make_shared<RequestSigner>(
      [signer, options = download.options]() -> Result<Dictionary> {
        auto headers = signer->headers();
        if (!headers) return headers;
        return TemplateUtil::injectVaroAuthorizationInto(std::move(headers).value(), options);
      });
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

/// Missing for an address that cannot be told: the download fails without it.
Result<Value> address(const OnlineDownload& download) {
  const Value& endpoint = download.configuration[kTemplateParamEndpointUrl];
  Result<std::optional<std::string>> url = std::optional<std::string>();
  if (CommonUtils::isGiven(endpoint)) {
    ErrorPtr error;
    url = TemplateUtil(endpoint.textValue()).populateJSONTemplate(download.fileParams, &error);
    if (error != nullptr) return error;
  } else {
    url = TemplateUtil::endPointAtItsDomain(download.configuration, download.options);
    if (!url) return url.error();
  }
  return *url ? Value(**url) : Value();
}

/// "Headers", and under the safe policy what makes them anew for each range.
Result<Dictionary> authorization(const OnlineDownload& download, const Value& url,
                                 const Clock& clock) {
  const Dictionary& configuration = download.configuration;
  const bool withToken = takesToken(download, url);
  if (isSigned(configuration)) {
    const auto signer = signerOf(download, withToken, clock);
    if (!signer) return signer.error();
    // Signed once now under both policies, so that missing keys fail the call. The compatible one
    // sends these headers with every range.
    const auto headers = (*signer)->headers();
    if (!headers) return headers.error();
    return Dictionary{{kDownloadHeaders, *headers},
                      {kRequestSigner, download.settings->isSafe() ? Value(*signer) : Value()}};
  }
  Dictionary headers = plainHeaders(configuration);
  if (withToken) {
    headers = TemplateUtil::injectVaroAuthorizationInto(std::move(headers), download.options);
  }
  return Dictionary{{kDownloadHeaders, headers}};
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
  const Dictionary& configuration = download.configuration;
  warnOfUnknownKeys("the configuration", configuration, kConfigurationKeys);
  if (download.options) warnOfUnknownKeys("the options", *download.options, kOptionKeys);
  const auto url = address(download);
  if (!url) return url.error();
  const auto headers = authorization(download, *url, clock);
  if (!headers) return headers.error();
  const auto given = [&configuration](const char* key) {
    return CommonUtils::isGiven(configuration[key]) ? configuration[key] : Value();
  };
  return Dictionary{
      {keys::kQueryParams, given(keys::kQueryParams)},
      {kFileParams, download.fileParams},
      {kURL, *url},
      {platform::kSpoolDirectory, DownloadPath::folderOfOnlineDownloads()},
      {kBlobId, identifier},
      {kDownloadHeaders, (*headers)[kDownloadHeaders]},
      {kRequestSigner, (*headers)[kRequestSigner]},
      {kOperationSettings, OperationSettings::value(download.settings)},
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
