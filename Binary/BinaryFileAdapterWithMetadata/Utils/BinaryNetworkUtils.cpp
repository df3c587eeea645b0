#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/UrlEncoding.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace varo::binary {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::DictionaryEntry;
using platform::ErrorPtr;
using platform::HttpResponseInfo;
using platform::LogLevel;
using platform::NetworkCallback;
using platform::NetworkError;
using platform::NetworkErrorPtr;
using platform::RequestType;
using platform::Result;
using platform::Value;
using platform::VRONetworkUtility;

constexpr std::string_view kDownloadLog =
    "BinaryNetworkUtils : getResponseForDwonload : Network response : %@";
constexpr std::string_view kResponseLog =
    "BinaryNetworkUtils : getResponse : Network response : %@";
constexpr std::string_view kUnexpectedOpStatus = "unexpected opstatus : %@";
constexpr std::string_view kParseErrorLog = "Error while parsing network response : %@";
constexpr std::string_view kUnexpectedHttpStatus = "The server answered with HTTP status %@";
/// How the platform's formatting prints a value that is not there.
constexpr std::string_view kAbsent = "(none)";

/// How much of a body is shown in a log line or kept in an error, bytes.
constexpr std::size_t kBodyExcerpt = 4096;
/// HTTP statuses from here on are failures (RFC 9110, section 15).
constexpr int kFirstFailureStatus = 400;

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

std::string startOf(const Data& data) {
  std::array<char, kBodyExcerpt> buffer{};
  const auto count = data.read(0, buffer);
  return count ? platform::sanitizeUtf8({buffer.data(), *count}) : std::string();
}

NetworkErrorPtr networkError(std::int64_t code, Dictionary userInfo) {
  return std::make_shared<const NetworkError>(std::string(kBinaryNetworkUtilsErrorDomain), code,
                                              std::move(userInfo), platform::currentCallStack());
}

NetworkErrorPtr networkError(std::int64_t code, std::string_view description) {
  return networkError(code,
                      Dictionary{{std::string(platform::kLocalizedDescriptionKey), description}});
}

/// The error of an answer whose status says that it failed; null for others, and where there is no
/// status. Asked under `kSafe` only.
NetworkErrorPtr errorOfStatus(const HttpResponseInfo* response, const std::optional<Data>& body) {
  if (response == nullptr || response->statusCode() < kFirstFailureStatus) return nullptr;
  Dictionary userInfo{{std::string(platform::kLocalizedDescriptionKey),
                       platform::formatMessage(kUnexpectedHttpStatus, {response->statusCode()})},
                      {kHttpStatusCode, response->statusCode()},
                      {kResponseHeaders, response->allHeaderFields()}};
  if (body) userInfo.set(kResponseBody, startOf(*body));
  return networkError(kCodeHTTPRequestFailed, std::move(userInfo));
}

NetworkErrorPtr errorOfTransport(const NetworkErrorPtr& error) {
  return std::make_shared<const NetworkError>(std::string(kBinaryNetworkUtilsErrorDomain),
                                              error->code(), error->userInfo(), error->callStack());
}

NetworkErrorPtr errorOfOpStatus(const Dictionary& result) {
  return networkError(
      kCodeHTTPRequestFailed,
      Dictionary{{keys::kUserInfo, result},
                 {std::string(platform::kLocalizedDescriptionKey),
                  platform::formatMessage(kUnexpectedOpStatus, {result[kOpStatus]})}});
}

void completeWithoutBody(const HttpResponseInfo* response, const TaskCallback& callback) {
  if (transferPolicy() == TransferPolicy::kCompatible) return;
  NetworkErrorPtr error = errorOfStatus(response, std::nullopt);
  if (error == nullptr) error = networkError(kCodeEmptyBodyReceived, kEmptyBodyReceived);
  callback({}, error);
}

void completeDownload(const Data& body, const HttpResponseInfo* response,
                      const TaskCallback& callback) {
  logger().logDebug(kDownloadLog, body);
  if (transferPolicy() == TransferPolicy::kSafe) {
    if (const NetworkErrorPtr error = errorOfStatus(response, body)) return callback({}, error);
  }
  callback(Dictionary{{kResponseData, body}}, nullptr);
}

/// The end of an answer whose body says how the service fared. A parse error beside it takes a JSON
/// reader that keeps what it has read before the error; the platform's own keeps nothing.
void completeWithOpStatus(const Dictionary& result, const ErrorPtr& parseError,
                          const TaskCallback& callback) {
  if (result[kOpStatus].integerValue() != 0) return callback(result, errorOfOpStatus(result));
  if (parseError == nullptr) return callback(result, nullptr);
  logger().logError(kParseErrorLog, parseError);
  if (transferPolicy() == TransferPolicy::kSafe) {
    callback(result, networkError(kCodeHTTPRequestFailed,
                                  platform::formatMessage(kParseErrorLog, {parseError})));
  }
}

void completeJson(const Data& body, const HttpResponseInfo* response,
                  const TaskCallback& callback) {
  ErrorPtr parseError;
  Dictionary result = platform::VROCommonUtility::getDictionaryFromJSONData(body, &parseError)
                          .value_or(Dictionary{});
  if (BinaryLogger::isEnabled(LogLevel::kDebug)) {
    logger().logDebug(kResponseLog, platform::redactSecrets(startOf(body)));
  }
  if (result.contains(kOpStatus)) return completeWithOpStatus(result, parseError, callback);

  // An object store's answer: its headers, an entity tag among them, are what the caller needs.
  if (response != nullptr) result.set(kResponseHeaders, response->allHeaderFields());
  if (transferPolicy() == TransferPolicy::kSafe) {
    if (const NetworkErrorPtr error = errorOfStatus(response, body)) return callback(result, error);
  }
  callback(result, nullptr);
}

std::string printed(const std::optional<std::string>& text) {
  return text.value_or(std::string(kAbsent));
}

std::string printed(const Value& value) {
  return CommonUtils::isGiven(value) ? value.textValue() : std::string(kAbsent);
}

}  // namespace

void BinaryNetworkUtils::GET(const std::string& url, const Dictionary& queryParams,
                             const Dictionary& headers, const Dictionary& options,
                             std::string_view operationType, TaskCallback callback) {
  VRONetworkUtility::GET(url, queryParams, headers, options,
                         getBinaryNetworkCompletionHandler(std::move(callback), operationType));
}

void BinaryNetworkUtils::POST(const std::string& url, const Dictionary& queryParams,
                              const Dictionary& headers, RequestType requestType, const Value& body,
                              const Dictionary& options, TaskCallback callback) {
  VRONetworkUtility::POST(url, queryParams, headers, requestType, body, options,
                          getBinaryNetworkCompletionHandler(std::move(callback), {}));
}

void BinaryNetworkUtils::PUT(const std::string& url, const Dictionary& queryParams,
                             const Dictionary& headers, RequestType requestType, const Value& body,
                             const Dictionary& options, TaskCallback callback) {
  VRONetworkUtility::PUT(url, queryParams, headers, requestType, body, options,
                         getBinaryNetworkCompletionHandler(std::move(callback), {}));
}

void BinaryNetworkUtils::DELETE(const std::string& url, const Dictionary& queryParams,
                                const Dictionary& headers, const Dictionary& options,
                                TaskCallback callback) {
  VRONetworkUtility::DELETE(url, queryParams, headers, options,
                            getBinaryNetworkCompletionHandler(std::move(callback), {}));
}

NetworkCallback BinaryNetworkUtils::getBinaryNetworkCompletionHandler(
    TaskCallback callback, std::string_view operationType) {
  const bool isDownload = operationType == kOperationTypeDownload;
  return [callback = std::move(callback), isDownload](const std::optional<Data>& data,
                                                      const Dictionary& responseInfo,
                                                      const NetworkErrorPtr& error) {
    if (error != nullptr) return callback({}, errorOfTransport(error));
    const auto response = responseInfo[platform::kHttpResponse].objectAs<HttpResponseInfo>();
    if (!data) return completeWithoutBody(response.get(), callback);
    if (isDownload) return completeDownload(*data, response.get(), callback);
    completeJson(*data, response.get(), callback);
  };
}

std::optional<std::string> BinaryNetworkUtils::extractBaseUrl(
    const std::optional<std::string>& url) {
  if (!url) return std::nullopt;
  // A host that is named "services..." is not the path: what followed it would name another host.
  const std::size_t services = url->find(kServices, endOfAuthority(*url));
  if (services == std::string::npos) return std::nullopt;
  return url->substr(0, services);
}

std::optional<std::string> BinaryNetworkUtils::extractBaseServiceUrl(
    const std::optional<std::string>& url) {
  std::optional<std::string> base = extractBaseUrl(url);
  if (base) base->append(kServices);
  return base;
}

std::string BinaryNetworkUtils::extractPollingUrl(const std::optional<std::string>& currentUrl,
                                                  std::string_view pollingApiFragment) {
  return printed(extractBaseServiceUrl(currentUrl))
      .append(pollingApiFragment.substr(0, pollingApiFragment.find('?')));
}

Dictionary BinaryNetworkUtils::extractQueryParams(std::string_view url) {
  Dictionary params;
  const std::size_t query = url.find('?');
  if (query == std::string_view::npos) return params;
  std::string_view rest = url.substr(query + 1);
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
    if (pair.empty()) continue;
    const std::size_t equals = std::min(pair.find('='), pair.size());
    // The value ends at a second "=", as the polling URLs are read by everyone else.
    std::string_view value = pair.substr(std::min(equals + 1, pair.size()));
    value = value.substr(0, value.find('='));
    params.set(std::string(pair.substr(0, equals)), value);
  }
  return params;
}

std::string BinaryNetworkUtils::extractFileOperationUrl(
    const Dictionary& templateDictionary, const std::optional<std::string>& currentUrl) {
  const std::string path = printed(templateDictionary[kTemplateParamRelativePath]);
  const Value& domain = templateDictionary[kTemplateParamDomain];
  if (domain == Value(kMiddlewareDomain)) {
    return printed(extractBaseUrl(currentUrl)).append(kServices).append(path);
  }
  return printed(domain).append(path);
}

Result<std::string> BinaryNetworkUtils::addressAtServer(std::string address,
                                                        std::string_view serverUrl) {
  const auto server = ServerAddress::of(serverUrl);
  if (server && ServerAddress::of(address) == server) return address;
  return ErrorPtr(
      networkError(kCodeMissingServerUrl,
                   platform::formatMessage(kAddressRefused, {platform::redactUrl(address)})));
}

Result<std::string> BinaryNetworkUtils::fileOperationUrlAtItsServer(
    const Dictionary& templateDictionary, const std::optional<std::string>& currentUrl) {
  std::string address = extractFileOperationUrl(templateDictionary, currentUrl);
  const Value& domain = templateDictionary[kTemplateParamDomain];
  if (!CommonUtils::isGiven(domain)) return address;
  const bool isOwn = domain == Value(kMiddlewareDomain);
  return addressAtServer(std::move(address),
                         isOwn ? currentUrl.value_or(std::string()) : domain.textValue());
}

std::string BinaryNetworkUtils::appendQueryOfUrl(std::string url, const Dictionary& queryParams) {
  // All that may stand in a query but "&", "=" and "#"; a stray "%" is the transport's to encode.
  constexpr std::string_view kKept = "%!$'()*+,;:@/?";
  char separator = url.find('?') == std::string::npos ? '?' : '&';
  for (const DictionaryEntry& parameter : queryParams) {
    if (parameter.value.isNull()) continue;
    url += separator;
    url += platform::percentEncode(parameter.key, kKept);
    url += '=';
    url += platform::percentEncode(parameter.value.textValue(), kKept);
    separator = '&';
  }
  return url;
}

std::optional<Dictionary> BinaryNetworkUtils::getTemplate(const std::optional<std::string>& json,
                                                          ErrorPtr* error) {
  if (!json) return std::nullopt;
  return platform::VROCommonUtility::getDictionaryFromJSONString(*json, error);
}

void BinaryNetworkUtils::setHeader(Dictionary& headers, std::string_view name, const Value& value) {
  headers = withoutHeaders(headers, {name});
  headers.set(std::string(name), value);
}

Dictionary BinaryNetworkUtils::withoutHeaders(const Dictionary& headers,
                                              std::initializer_list<std::string_view> names) {
  Dictionary result;
  for (const DictionaryEntry& header : headers) {
    const bool named = std::any_of(names.begin(), names.end(), [&](std::string_view name) {
      return platform::equalIgnoringCase(header.key, name);
    });
    if (!named) result.set(header.key, header.value);
  }
  return result;
}

}  // namespace varo::binary
