#include "Binary/Binary/DownloadTask/RangeOrder.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/DownloadTask/GlobalHeaders.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/UrlEncoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::ResponseLimits;

namespace {

namespace texts = log_texts::range_order;

constexpr std::string_view kResponseTypeBase64 = "Base64";
constexpr std::string_view kResponseTypeBinary = "Binary";

/// A key or value as it stands in the URL of a record. They are the record's own and may hold
/// anything; a bare "&" would name another record. What is encoded already stays as it is, unless
/// the policy has everything encoded.
std::string inPair(const std::string& text, bool isSafe) {
  if (isSafe) return platform::percentEncode(text);
  std::string encoded;
  for (const char c : platform::encodeForbiddenBytes(text)) {
    if (c == '&' || c == '#' || c == '=') {
      encoded += platform::percentEncode(std::string_view(&c, 1));
    } else {
      encoded += c;
    }
  }
  return encoded;
}

/// "key=value" for each, with an ampersand between.
std::string joinedPairs(const Dictionary& pairs, bool isSafe) {
  std::string joined;
  for (const auto& pair : pairs) {
    if (!joined.empty()) joined += '&';
    joined += inPair(pair.key, isSafe) + "=" + inPair(pair.value.textValue(), isSafe);
  }
  return joined;
}

/// "&name=value"; nothing where there is no value.
std::string parameter(std::string_view name, const std::optional<std::string>& value, bool isSafe) {
  if (!value) return {};
  return "&" + std::string(name) + "=" + inPair(*value, isSafe);
}

std::optional<std::string> givenText(const Value& value) {
  if (value.isMissing()) return std::nullopt;
  return value.textValue();
}

/// Puts them in the place of those of the same name.
void setHeaders(Dictionary& headers, const Dictionary& more) {
  for (const auto& header : more) {
    BinaryNetworkUtils::setHeader(headers, header.key, header.value.textValue());
  }
}

std::string getRangeRequestStringFrom(std::int64_t from, std::int64_t to) {
  return "bytes=" + std::to_string(from) + "-" + std::to_string(to);
}

/// The key of a size that is a text and not wholly a number; null for none.
const char* malformedNumber(const Dictionary& input) {
  for (const char* key : {kChunkSizeKey, kTotalFileSize, kTotalBytesDownloaded}) {
    const Value& value = input[key];
    if (value.isText() && !platform::parseInteger(*value.text())) return key;
  }
  return nullptr;
}

bool validateInput(const Dictionary& input) {
  const bool hasUrl = input[kURL].isPresent() && input[kURL] != Value(kEmptyString);
  bool valid = hasUrl;
  if (input[kChunkSizeKey].integerValue() < 0) valid = false;
  if (!input[kOnlineDownloadTask].boolValue()) {
    for (const char* key : {kScopeName, kObjectName, kPrimaryKeys}) {
      if (input[key].isMissing() || !hasUrl) valid = false;
    }
  }
  logger().logDebug(texts::kValidInput, valid);
  return valid;
}

ErrorPtr error(std::int64_t code, std::string message) {
  return std::make_shared<const Error>(
      std::string(kNetworkTaskErrorDomain), code,
      Dictionary{{std::string(platform::kErrorMessageKey), std::move(message)}});
}

}  // namespace

Result<RangeOrder::Ptr> RangeOrder::unpackInputContext(const Dictionary& input) {
  if (!validateInput(input)) {
    logger().logError(texts::kInvalidInput);
    if (input[kURL].isMissing()) logger().logError(texts::kUrlNotBuilt);
    return error(kCodeDownloadFault, std::string(texts::kInvalidInput));
  }
  auto order = std::make_shared<RangeOrder>();
  order->settings = OperationSettings::of(input);
  if (const char* key = order->settings->isSafe() ? malformedNumber(input) : nullptr) {
    return error(kCodeUploadInvalidParameterDataType,
                 fmt::format("{} is not a number: {}", key, input[key].textValue()));
  }
  order->_clientID = givenText(input[kClientID]);
  order->_sessionID = givenText(input[kSessionID]);
  order->isOnline = input[kOnlineDownloadTask].boolValue();
  order->buildURL(input);
  order->queryParams = input[keys::kQueryParams].dictionaryValue();
  order->_headers = input[kDownloadHeaders].dictionaryValue();
  order->signer = input[kRequestSigner].objectAs<RequestSigner>();
  order->_responseType = givenText(input[kResponseType]).value_or(std::string(kResponseTypeBinary));
  order->blobId = input[kBlobId];
  order->spoolDirectory = input[platform::kSpoolDirectory].textValue();
  order->isStreamed = input[kStreaming].boolValue();
  const std::int64_t chunkSize = input[kChunkSizeKey].integerValue();
  order->_chunkSize = chunkSize > 0 ? chunkSize : kDefaultChunkSize;
  if (const Value& offset = input[kTotalBytesDownloaded]; offset.isPresent()) {
    order->offset = std::max<std::int64_t>(offset.integerValue(), 0);
  }
  order->_totalFileSize = std::max<std::int64_t>(input[kTotalFileSize].integerValue(), 0);
  order->validator =
      ObjectValidator::parse(input[kValidator].textValue()).value_or(ObjectValidator());
  return Ptr(std::move(order));
}

/// There is a "URL": `validateInput` has seen to that.
void RangeOrder::buildURL(const Dictionary& input) {
  _url = input[kURL].textValue();
  if (isOnline) return;
  const bool isSafe = settings->isSafe();
  _url += input[kScopeName].textValue() + "/" + input[kObjectName].textValue() + "/binary?" +
          joinedPairs(input[kPrimaryKeys].dictionaryValue(), isSafe) + "&type=bytes" +
          parameter("clientid", _clientID, isSafe) +
          parameter("varosyncsessionid", _sessionID, isSafe);
  if (BinaryLogger::isEnabled(platform::LogLevel::kDebug)) {
    logger().logDebug(texts::kUrlBuilt, platform::redactSecrets(_url));
  }
}

Result<Dictionary> RangeOrder::prepareRequestObject(const RangeQuestion& question) const {
  // Each set replaces headers of the same name in those before it: what the server wants to get
  // back, the caller's, the signature's.
  Dictionary headers = GlobalHeaders::shared().headersFor(_url);
  setHeaders(headers, _headers);
  if (signer != nullptr) {
    const Result<Dictionary> signedHeaders = signer->headers();
    if (!signedHeaders) return signedHeaders.error();
    setHeaders(headers, *signedHeaders);
  }
  // After the signature, which must not cover it: under the compatible policy one signature goes
  // with all ranges.
  const std::string range = getRangeRequestStringFrom(question.offset, question.last());
  logger().logDebug(texts::kRangeRequest, blobId, range);
  BinaryNetworkUtils::setHeader(headers, "Range", range);
  // Where the object is another one now, the server then sends all of that instead of a range of it
  // (RFC 9110, 13.1.5). From byte 0 there is nothing yet that it could be mixed with.
  const std::string ifRange =
      question.isSafe && question.offset > 0 ? question.known.object.ifRange() : std::string();
  if (!ifRange.empty()) BinaryNetworkUtils::setHeader(headers, "If-Range", ifRange);
  return headers;
}

Dictionary RangeOrder::optionsFor(const RangeQuestion& question) const {
  Dictionary options;
  if (!spoolDirectory.empty()) options.set(platform::kSpoolDirectory, spoolDirectory);
  const AnswerLimits& limits = settings->limits;
  const auto total = static_cast<std::uint64_t>(question.known.object.total);
  std::uint64_t whole = limits.file.value_or(ResponseLimits::kUnlimited);
  // In place of the range; an error that has the status of an object may be longer than a small
  // one.
  if (total != 0) whole = std::max(total, limits.errorPage);
  if (isBase64()) whole = limits.base64;
  // Each range of a server that sends whole objects would bring one. Where the first comes, it is
  // asked for again, alone.
  if (question.isAhead) whole = limits.errorPage;
  return OperationSettings::forRequest(settings, std::move(options),
                                       {.success = whole,
                                        .partial = static_cast<std::uint64_t>(question.length()),
                                        .error = limits.errorPage});
}

bool RangeOrder::isBase64() const { return _responseType == kResponseTypeBase64; }

}  // namespace varo::binary
