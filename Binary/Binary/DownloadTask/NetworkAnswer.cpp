#include "Binary/Binary/DownloadTask/NetworkAnswer.h"

#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Platform/Foundation/Base64.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::excerptOf;
using platform::HttpResponseInfo;

namespace {

namespace texts = log_texts::network_answer;

/// Bytes. A response that tells of an error is short; one that is longer is the object.
constexpr std::uint64_t kMaxErrorAnswer = std::uint64_t{1} * 1024 * 1024;

constexpr std::string_view kDate = "Date";
constexpr std::string_view kETag = "ETag";
constexpr std::string_view kLastModified = "Last-Modified";

constexpr char kResult[] = "d";
constexpr char kResultError[] = "error";
constexpr char kResultMessage[] = "msg";
constexpr char kResultBytes[] = "results";

bool isErrorResponse(const std::string& json, bool isOnline) {
  logger().logError(texts::kCheckingForError, excerptOf(json));
  const Value object = CommonUtils::parseJsonString(json);
  logger().logDebug(texts::kJsonObject, object);
  const Dictionary answer = object.dictionaryValue();
  bool isError = false;
  if (isOnline) {
    isError = answer[kOpStatus].integerValue() != 0;
    if (isError) logger().logError(texts::kErrorIs, excerptOf(json));
  } else if (const Dictionary* result = answer[kResult].dictionary()) {
    logger().logError(texts::kErrorIs, excerptOf((*result)[kResultError].textValue()));
    isError = (*result)[kResultError].boolValue();
  }
  logger().logError(texts::kReturning, isError);
  return isError;
}

std::optional<std::string> parseErrorResponse(const std::string& json) {
  logger().logError(texts::kCheckingForError, excerptOf(json));
  const Value object = CommonUtils::parseJsonString(json);
  logger().logError(texts::kJsonObject, excerptOf(json));
  const Dictionary answer = object.dictionaryValue();
  const Dictionary* result = answer[kResult].dictionary();
  if (result == nullptr) return std::nullopt;
  logger().logError(texts::kErrorIs, excerptOf((*result)[kResultError].textValue()));
  if (!(*result)[kResultError].boolValue()) return std::nullopt;
  const Value message = (*result)[kResultMessage];
  logger().logError(texts::kErrorIs, excerptOf(message.textValue()));
  if (message.isMissing() || message.isNull()) return std::nullopt;
  return message.textValue();
}

/// MIME wraps Base64 into lines, which the strict decoder does not take.
std::optional<std::string> decodedBase64(std::string text) {
  std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
  return platform::base64::decode(text);
}

/// The text under "d", "results".
std::optional<std::string> parseBase64StringFromData(const Data& json) {
  // Few values, however long the one text is: its size was checked before.
  const Value parsed = CommonUtils::jsonObjectFromData(
      json, {.values = platform::kAnswerJsonLimits.values, .bytes = json.size()});
  if (parsed.isMissing()) {
    logger().logError(texts::kJsonNotParsed);
    return std::nullopt;
  }
  const Value result = parsed.dictionaryValue()[kResult];
  if (result.dictionaryValue().empty()) {
    logger().logError(texts::kNoResults);
    return std::nullopt;
  }
  const Value base64 = result.dictionaryValue()[kResultBytes];
  if (!base64.isText()) {
    logger().logError(texts::kNoBase64);
    return std::nullopt;
  }
  return *base64.text();
}

void setChunkDataForBase64(NetworkAnswer& answer, std::uint64_t maxSize) {
  if (answer.body.size() > maxSize) {
    answer.said.isError = true;
    answer.said.errorMessage = fmt::format(
        "A response in Base64 may have {} bytes at most and has {}.", maxSize, answer.body.size());
    return;
  }
  const std::optional<std::string> text = parseBase64StringFromData(answer.body);
  std::optional<std::string> bytes = text ? decodedBase64(*text) : std::nullopt;
  // Empty for what is no Base64: nothing of it may be taken for the object.
  answer.body = bytes ? Data::fromBytes(*std::move(bytes)) : Data();
}

/// Whether this is the beginning of the service's JSON around an object in Base64. The whole of it
/// may be large.
bool beginsAsBase64(const Data& body) {
  std::array<char, 256> buffer{};
  const Result<std::size_t> count = body.read(0, buffer);
  if (!count) return false;
  std::string text(buffer.data(), *count);
  std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
  return text.starts_with(R"({"d":{"results":")");
}

void readWholeObject(NetworkAnswer& answer, std::string_view contentType,
                     const AnswerReading& reading) {
  logger().logDebug(texts::kStatusOk);
  if (platform::lowerCase(contentType).find(kContentTypeJson) != std::string::npos) {
    logger().logDebug(texts::kTypeJson);
    const Result<std::string> text = answer.body.readAll(kMaxErrorAnswer);
    if (text && isErrorResponse(*text, reading.isOnline)) {
      answer.said.isError = true;
      answer.said.errorMessage = parseErrorResponse(*text);
      return logger().logError(texts::kErrorString,
                               excerptOf(answer.said.errorMessage.value_or(std::string())));
    }
    // The other policy takes the JSON for the object.
    if (reading.isSafe && !reading.isOnline && !reading.isBase64 && beginsAsBase64(answer.body)) {
      answer.said.isError = true;
      answer.said.errorMessage = "The object came in Base64, but was asked for as bytes.";
      return;
    }
  }
  logger().logDebug(texts::kWholeFile);
  if (reading.isBase64) setChunkDataForBase64(answer, reading.maxBase64);
}

}  // namespace

NetworkAnswer readAnswer(const HttpResponseInfo& response, const Data& body,
                         const AnswerReading& reading) {
  const auto field = [&response](std::string_view name) {
    return response.headerField(name).value_or(std::string());
  };
  NetworkAnswer answer;
  answer.body = body;
  answer.said.status = response.statusCode();
  answer.said.contentRange = field(kContentRange);
  answer.said.validator.entityTag = field(kETag);
  answer.said.validator.lastModified = field(kLastModified);
  answer.said.validator.isLastModifiedStrong =
      isLaterDate(field(kDate), answer.said.validator.lastModified);
  const std::string contentType = field(kContentType);
  logger().logDebug(texts::kContentTypeIs, contentType);
  logger().logDebug(texts::kStatusIs, answer.said.status);
  switch (answer.said.status) {
    case 200:
      readWholeObject(answer, contentType, reading);
      break;
    case 206:
      logger().logDebug(texts::kSizeOfData, body.size());
      break;
    case 500:
      break;
    default:
      logger().logDebug(texts::kOtherStatus);
  }
  answer.said.size = static_cast<std::int64_t>(answer.body.size());
  return answer;
}

}  // namespace varo::binary
