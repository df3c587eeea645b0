#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/ContentRange.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::binary_network_utils;

using platform::HttpResponseInfo;
using platform::NetworkCallback;
using platform::RequestType;
using platform::VRONetworkUtility;

constexpr std::string_view kUnexpectedOpStatus = "unexpected opstatus : %@";
constexpr std::string_view kUnexpectedHttpStatus = "The server responded with HTTP status %@";
/// How the platform's formatting prints a value that is not there.
constexpr std::string_view kAbsent = "(none)";

constexpr std::string_view kNoJsonObject = "The response is no JSON object";
constexpr std::string_view kPartOfFile = "The server responded with a part of the file : %@";
constexpr std::string_view kAnswerNotRead = "The response can't be read : %@";

/// HTTP statuses from here on are failures (RFC 9110, section 15).
constexpr int kFirstFailureStatus = 400;
constexpr int kStatusOk = 200;
constexpr int kStatusPartialContent = 206;

NetworkErrorPtr networkError(std::int64_t code, Dictionary userInfo) {
  return std::make_shared<const NetworkError>(std::string(kBinaryNetworkUtilsErrorDomain), code,
                                              std::move(userInfo), platform::currentCallStack());
}

NetworkErrorPtr networkError(std::int64_t code, std::string_view description) {
  return networkError(code,
                      Dictionary{{std::string(platform::kLocalizedDescriptionKey), description}});
}

std::string printed(const std::optional<std::string>& text) {
  return text.value_or(std::string(kAbsent));
}

std::string printed(const Value& value) {
  return CommonUtils::isGiven(value) ? value.textValue() : std::string(kAbsent);
}

NetworkErrorPtr errorOfTransport(const NetworkErrorPtr& error) {
  return std::make_shared<const NetworkError>(std::string(kBinaryNetworkUtilsErrorDomain),
                                              error->code(), error->userInfo(), error->callStack());
}

/// What a task gets to hear.
struct Outcome {
  Dictionary result;
  NetworkErrorPtr error;
};

/// A response that has come, and what is asked of it.
struct Answer {
  const HttpResponseInfo* response;  // null where the platform's utility gave none
  const std::optional<Data>& body;
  AnswerKind kind;
  bool isSafe;
  const AnswerLimits& limits;
  const Dictionary& sent;

  /// 0 where it is not known.
  [[nodiscard]] int status() const { return response != nullptr ? response->statusCode() : 0; }
  [[nodiscard]] bool isSuccess() const { return status() / 100 == 2; }
  [[nodiscard]] bool needsNoBody() const {
    return kind == AnswerKind::kReceipt || kind == AnswerKind::kAnything;
  }

  /// An error that says what the server responded.
  [[nodiscard]] NetworkErrorPtr error(std::int64_t code, std::string_view description) const {
    Dictionary userInfo{{std::string(platform::kLocalizedDescriptionKey), description}};
    if (response != nullptr) {
      userInfo.set(kHttpStatusCode, status());
      userInfo.set(kResponseHeaders,
                   BinaryNetworkUtils::withoutSecrets(response->allHeaderFields(), sent));
    }
    if (body) userInfo.set(kResponseBody, platform::excerptOf(*body, sent));
    return networkError(code, std::move(userInfo));
  }

  /// The error of a response whose status says that it failed; null for others.
  [[nodiscard]] NetworkErrorPtr errorOfStatus() const {
    if (status() < kFirstFailureStatus) return nullptr;
    return error(kCodeHTTPRequestFailed,
                 platform::formatMessage(kUnexpectedHttpStatus, {status()}));
  }
};

Dictionary headersOf(const Answer& answer) {
  if (answer.response == nullptr) return {};
  // An object store's response: its headers, an entity tag among them, are what the caller needs.
  return Dictionary{
      {kResponseHeaders, BinaryNetworkUtils::withoutHeaders(answer.response->allHeaderFields(),
                                                            {"set-cookie", "set-cookie2"})}};
}

std::optional<Outcome> outcomeWithoutBody(const Answer& answer) {
  if (!answer.isSafe) return std::nullopt;
  if (NetworkErrorPtr error = answer.errorOfStatus()) return Outcome{{}, std::move(error)};
  if (answer.isSuccess() && answer.needsNoBody()) return Outcome{headersOf(answer), nullptr};
  return Outcome{{}, answer.error(kCodeEmptyBodyReceived, kEmptyBodyReceived)};
}

/// Whether a 206 says of itself that it is all of the file.
bool isWholeFile(const Answer& answer) {
  const auto field = answer.response->headerField(kContentRange);
  const auto range = field ? ContentRange::parse(*field) : std::nullopt;
  if (!range || !range->span || !range->total) return false;
  return range->span->first == 0 && range->span->last + 1 == *range->total &&
         answer.body->size() == static_cast<std::uint64_t>(*range->total);
}

Outcome outcomeOfDownload(const Answer& answer) {
  logger().logDebug(texts::kDownloadLog, *answer.body);
  const bool mayBePart = answer.kind == AnswerKind::kPart;
  if (mayBePart && answer.status() == kStatusPartialContent) {
    return {{{kResponseData, *answer.body}}, nullptr};
  }
  if (answer.status() == kStatusPartialContent && (answer.isSafe || !isWholeFile(answer))) {
    const auto range = answer.response->headerField(kContentRange);
    return {{},
            answer.error(kCodeHTTPRequestFailed,
                         platform::formatMessage(kPartOfFile, {printed(range)}))};
  }
  if (answer.isSafe && answer.status() != kStatusOk) {
    return {{},
            answer.error(kCodeHTTPRequestFailed,
                         platform::formatMessage(kUnexpectedHttpStatus, {answer.status()}))};
  }
  return {{{kResponseData, *answer.body}}, nullptr};
}

/// Of a response whose body says how the service fared. A parse error beside it takes a JSON reader
/// that keeps what it has read before the error; the platform's own keeps nothing.
std::optional<Outcome> outcomeOfOpStatus(const Answer& answer, Dictionary result,
                                         const ErrorPtr& parseError) {
  const Value opStatus = result[kOpStatus];
  if (opStatus.integerValue() != 0) {
    Dictionary userInfo{
        {keys::kUserInfo, BinaryNetworkUtils::withoutSecrets(result, answer.sent)},
        {std::string(platform::kLocalizedDescriptionKey),
         platform::formatMessage(kUnexpectedOpStatus,
                                 {BinaryNetworkUtils::withoutSecrets(opStatus, answer.sent)})}};
    // A 401 says more than the service's own status.
    if (answer.isSafe && answer.status() >= kFirstFailureStatus) {
      userInfo.set(kHttpStatusCode, answer.status());
    }
    return Outcome{std::move(result), networkError(kCodeHTTPRequestFailed, std::move(userInfo))};
  }
  if (parseError == nullptr) return Outcome{std::move(result), nullptr};
  logger().logError(texts::kParseErrorLog, parseError);
  if (!answer.isSafe) return std::nullopt;
  return Outcome{std::move(result),
                 answer.error(kCodeHTTPRequestFailed,
                              platform::formatMessage(texts::kParseErrorLog, {parseError}))};
}

/// Whether JSON that may be valid was not read to its end.
bool isBeyondLimits(const platform::Error& parseError) {
  namespace json = platform::json;
  return parseError.domain() == json::kErrorDomain &&
         (parseError.code() == json::kTooDeep || parseError.code() == json::kTooManyValues ||
          parseError.code() == json::kTooManyBytes);
}

std::optional<Outcome> outcomeOfJson(const Answer& answer) {
  ErrorPtr parseError;
  std::optional<Dictionary> parsed = platform::VROCommonUtility::getDictionaryFromJSONData(
      *answer.body, &parseError,
      answer.kind == AnswerKind::kList ? answer.limits.listJson() : answer.limits.smallJson());
  if (BinaryLogger::isEnabled(LogLevel::kDebug)) {
    logger().logDebug(texts::kResponseLog, platform::excerptOf(*answer.body, answer.sent));
  }
  if (parsed && parsed->contains(kOpStatus)) {
    return outcomeOfOpStatus(answer, *std::move(parsed), parseError);
  }
  if (parseError != nullptr && isBeyondLimits(*parseError)) {
    return Outcome{{},
                   answer.error(kCodeHTTPRequestFailed,
                                platform::formatMessage(kAnswerNotRead,
                                                        {parseError->localizedDescription()}))};
  }
  const bool isObject = parsed.has_value();
  Outcome outcome{std::move(parsed).value_or(Dictionary{}), nullptr};
  outcome.result.addEntries(headersOf(answer));
  if (!answer.isSafe) return outcome;
  outcome.error = answer.errorOfStatus();
  if (outcome.error != nullptr || isObject || answer.kind == AnswerKind::kAnything) return outcome;
  if (!answer.body->empty()) {
    outcome.error = answer.error(kCodeHTTPRequestFailed, kNoJsonObject);
  } else if (answer.kind != AnswerKind::kReceipt) {
    outcome.error = answer.error(kCodeEmptyBodyReceived, kEmptyBodyReceived);
  }
  return outcome;
}

/// None for a response that is passed over in silence.
std::optional<Outcome> outcomeOf(const Answer& answer) {
  if (!answer.body) return outcomeWithoutBody(answer);
  if (answer.kind == AnswerKind::kFile || answer.kind == AnswerKind::kPart) {
    return outcomeOfDownload(answer);
  }
  return outcomeOfJson(answer);
}

Dictionary joined(Dictionary headers, const Dictionary& queryParams) {
  headers.addEntries(queryParams);
  return headers;
}

}  // namespace

void BinaryNetworkUtils::GET(const std::string& url, const Dictionary& queryParams,
                             const Dictionary& headers, const Dictionary& options,
                             std::string_view operationType, TaskCallback callback) {
  VRONetworkUtility::GET(url, queryParams, headers, options,
                         getBinaryNetworkCompletionHandler(
                             std::move(callback), operationType, OperationSettings::of(options),
                             AnswerKind::kRecord, joined(headers, queryParams)));
}

void BinaryNetworkUtils::POST(const std::string& url, const Dictionary& queryParams,
                              const Dictionary& headers, RequestType requestType, const Value& body,
                              const Dictionary& options, TaskCallback callback, AnswerKind kind) {
  VRONetworkUtility::POST(
      url, queryParams, headers, requestType, body, options,
      getBinaryNetworkCompletionHandler(std::move(callback), {}, OperationSettings::of(options),
                                        kind, joined(headers, queryParams)));
}

void BinaryNetworkUtils::PUT(const std::string& url, const Dictionary& queryParams,
                             const Dictionary& headers, RequestType requestType, const Value& body,
                             const Dictionary& options, TaskCallback callback, AnswerKind kind) {
  VRONetworkUtility::PUT(
      url, queryParams, headers, requestType, body, options,
      getBinaryNetworkCompletionHandler(std::move(callback), {}, OperationSettings::of(options),
                                        kind, joined(headers, queryParams)));
}

void BinaryNetworkUtils::DELETE(const std::string& url, const Dictionary& queryParams,
                                const Dictionary& headers, const Dictionary& options,
                                TaskCallback callback) {
  VRONetworkUtility::DELETE(
      url, queryParams, headers, options,
      getBinaryNetworkCompletionHandler(std::move(callback), {}, OperationSettings::of(options),
                                        AnswerKind::kReceipt, joined(headers, queryParams)));
}

NetworkCallback BinaryNetworkUtils::getBinaryNetworkCompletionHandler(
    TaskCallback callback, std::string_view operationType, const OperationSettings::Ptr& settings,
    AnswerKind kind, Dictionary sent) {
  if (operationType == kOperationTypeDownload) kind = AnswerKind::kFile;
  if (operationType == kOperationTypeRange) kind = AnswerKind::kPart;
  if (operationType == kOperationTypeList) kind = AnswerKind::kList;
  return [callback = std::move(callback), kind,
          settings = settings != nullptr ? settings : OperationSettings::of({}),
          sent = std::move(sent)](const std::optional<Data>& data, const Dictionary& responseInfo,
                                  const NetworkErrorPtr& error) {
    if (error != nullptr) return callback({}, errorOfTransport(error));
    std::optional<Outcome> outcome;
    try {
      const auto response = responseInfo[platform::kHttpResponse].objectAs<HttpResponseInfo>();
      outcome = outcomeOf({response.get(), data, kind, settings->isSafe(), settings->limits, sent});
    } catch (const std::exception& failure) {
      // Memory that a large response has asked for in vain, above all: there is enough to say so.
      outcome = Outcome{{},
                        networkError(kCodeHTTPRequestFailed,
                                     platform::formatMessage(kAnswerNotRead, {failure.what()}))};
    }
    if (outcome) callback(outcome->result, outcome->error);
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
  for (const auto& parameter : queryParams) {
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
  return platform::VROCommonUtility::getDictionaryFromJSONString(*json, error,
                                                                 platform::kFilledJsonLimits);
}

void BinaryNetworkUtils::setHeader(Dictionary& headers, std::string_view name, const Value& value) {
  headers = withoutHeaders(headers, {name});
  headers.set(std::string(name), value);
}

Dictionary BinaryNetworkUtils::withoutHeaders(const Dictionary& headers,
                                              std::initializer_list<std::string_view> names) {
  Dictionary result;
  for (const auto& header : headers) {
    const bool named = std::any_of(names.begin(), names.end(), [&](std::string_view name) {
      return platform::equalIgnoringCase(header.key, name);
    });
    if (!named) result.set(header.key, header.value);
  }
  return result;
}

Value BinaryNetworkUtils::withoutSecrets(const Value& value, const Dictionary& sent) {
  if (const std::string* text = value.text()) return platform::redactSecrets(*text, sent);
  if (const Array* array = value.array()) {
    Array result;
    for (const Value& item : *array) result.append(withoutSecrets(item, sent));
    return result;
  }
  if (!value.isDictionary()) return value;
  Dictionary result;
  for (const auto& entry : value.dictionaryValue()) {
    result.set(entry.key, platform::isSecretKey(entry.key) ? Value(platform::kRedacted)
                                                           : withoutSecrets(entry.value, sent));
  }
  return result;
}

}  // namespace varo::binary
