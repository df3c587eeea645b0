// How `NetworkTask` reads an answer: what its status, its headers and its bytes say.

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/ContentRange.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/GlobalHeaders.h"
#include "Binary/Binary/DownloadTask/NetworkRun.h"
#include "Binary/Binary/DownloadTask/NetworkTask.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Base64.h"
#include "Platform/Foundation/Text.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <utility>

namespace varo::binary {

using platform::Data;
using platform::Dictionary;
using platform::HttpResponseInfo;
using platform::Result;
using platform::Value;
using platform::VSTaskError;

namespace {

enum HttpStatus : int {
  kOk = 200,
  kPartialContent = 206,
  kBadRequest = 400,
  kUnauthorized = 401,
  kForbidden = 403,
  kNotFound = 404,
  kRangeNotSatisfiable = 416,
  kInternalServerError = 500,
  kServiceUnavailable = 503,
};

/// Bytes. An answer that tells of an error is short; one that is longer is the object.
constexpr std::uint64_t kMaxErrorAnswer = std::uint64_t{1} * 1024 * 1024;
/// Bytes of the JSON around an object in Base64, which has no ranges and is decoded in memory.
constexpr std::uint64_t kMaxBase64Answer = std::uint64_t{64} * 1024 * 1024;
/// Bytes of an answer that are logged.
constexpr std::size_t kMaxLoggedAnswer = 4096;

constexpr std::string_view kContentType = "Content-Type";
constexpr std::string_view kContentRange = "Content-Range";
constexpr std::string_view kETag = "ETag";
constexpr std::string_view kJsonType = "application/json";
constexpr std::string_view kWeakTagPrefix = "W/";
/// Of an answer without bytes: not a well-formed field, but what is sent where no size is stated.
constexpr std::string_view kNoRangeOfUnknownSize = "bytes */*";

constexpr char kResult[] = "d";
constexpr char kResultError[] = "error";
constexpr char kResultMessage[] = "msg";
constexpr char kResultBytes[] = "results";
constexpr char kOpstatus[] = "opstatus";

constexpr std::string_view kContentTypeIs = "Content type : %@";
constexpr std::string_view kStatusIs = "HTTP status code recieved : %ld";
constexpr std::string_view kStatusOk = "Status code : 200";
constexpr std::string_view kTypeJson = "  Content type : JSON";
constexpr std::string_view kErrorString = "  Error string : %@";
constexpr std::string_view kWholeFile = "Total file recieved at one go.";
constexpr std::string_view kSizeOfData = "Size of data recieved  : %lu";
constexpr std::string_view kOtherStatus = "Integer out of range in the switch case. ";
constexpr std::string_view kAsterisk = "Asterisk recieved for the total file size.";
constexpr std::string_view kTotalSizeIs = "Total file size : %lld";
constexpr std::string_view kCheckingForError = "Executing isErrorResponse with jsonString %@ ";
constexpr std::string_view kJsonObject = "jsonObject after serialization %@ ";
constexpr std::string_view kErrorIs = "error %@ ";
constexpr std::string_view kReturning = "returning isError %d ";
constexpr std::string_view kNoResults = "Results Object is null or empty ";
constexpr std::string_view kNoBase64 = "base64 is null ";
constexpr std::string_view kJsonNotParsed = "Error parsing json ";
constexpr std::string_view kRangeNotReceived =
    "The Content-Range of the answer is missing or malformed, or is not of the range asked for.";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

std::string_view setErrorMessageDependingOnStatusCode(int status) {
  switch (status) {
    case kBadRequest:
      return "Bad Request.";
    case kUnauthorized:
      return "Unauthorized.";
    case kForbidden:
      return "Forbidden.";
    case kNotFound:
      return "Not Found.";
    case kInternalServerError:
      return "Internal Server Error";
    case kServiceUnavailable:
      return "Service Unavailable.";
    default:
      return "Other issues.";
  }
}

Value loggedAnswer(const std::string& json) { return platform::utf8Prefix(json, kMaxLoggedAnswer); }

/// The text of an answer that may tell of an error; none where it is too long for one.
std::optional<std::string> errorText(const Data& data) {
  Result<std::string> text = data.readAll(kMaxErrorAnswer);
  if (!text) return std::nullopt;
  return std::move(text).value();
}

/// The size of the object that the server has told, early or late; 0 for none.
std::int64_t statedSize(std::int64_t totalFileSize, std::int64_t lateFileSize) {
  return totalFileSize != 0 ? totalFileSize : lateFileSize;
}

/// Whether the range is the one from `first` on, and `size` bytes long.
bool isAt(std::int64_t first, std::uint64_t size, const ContentRange& range) {
  return range.span && range.span->first == first &&
         range.span->last - first == static_cast<std::int64_t>(size) - 1;
}

/// MIME wraps Base64 into lines, which the strict decoder does not take.
std::optional<std::string> decodedBase64(std::string text) {
  std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
  return platform::base64::decode(text);
}

/// The text under "d", "results".
std::optional<std::string> parseBase64StringFromData(const Data& json) {
  const Value parsed =
      json.size() <= kMaxBase64Answer ? CommonUtils::jsonObjectFromData(json) : Value();
  if (parsed.isMissing()) {
    logger().logError(kJsonNotParsed);
    return std::nullopt;
  }
  const Value result = parsed.dictionaryValue()[kResult];
  if (result.dictionaryValue().empty()) {
    logger().logError(kNoResults);
    return std::nullopt;
  }
  const Value base64 = result.dictionaryValue()[kResultBytes];
  if (!base64.isText()) {
    logger().logError(kNoBase64);
    return std::nullopt;
  }
  return *base64.text();
}

}  // namespace

void NetworkTask::setCause(Run& run, std::int64_t code,
                           std::optional<std::string_view> message) const {
  Dictionary userInfo;
  if (message) userInfo.set(std::string(platform::kErrorMessageKey), *message);
  setCause(run, code, std::move(userInfo));
}

void NetworkTask::setCause(Run& run, std::int64_t code, Dictionary userInfo) const {
  run._cause = std::make_shared<const VSTaskError>(ID(), std::string(kNetworkTaskName),
                                                   std::string(kNetworkTaskDomain), code,
                                                   std::move(userInfo));
  run._isErrorServingData = true;
}

/// The required text says little; why a store refuses a request stands in its answer.
void NetworkTask::setCauseOfStatus(Run& run, int status, const Data& body) const {
  Dictionary userInfo{
      {std::string(platform::kErrorMessageKey), setErrorMessageDependingOnStatusCode(status)}};
  if (transferPolicy() == TransferPolicy::kSafe) CommonUtils::addAnswer(userInfo, status, body);
  setCause(run, kInvalidInputCode, std::move(userInfo));
}

void NetworkTask::processNetworkResponse(Run& run, const HttpResponseInfo& response,
                                         const Data& data) const {
  GlobalHeaders::shared().noteAnswer(run._url, response);
  const std::string contentType = response.headerField(kContentType).value_or(std::string());
  logger().logDebug(kContentTypeIs, contentType);
  logger().logDebug(kStatusIs, response.statusCode());
  switch (response.statusCode()) {
    case kOk:
      return processWholeObject(run, response, contentType, data);
    case kPartialContent:
      return processRange(run, response, data);
    case kInternalServerError:
      run._isAsteriskRecieved = false;
      return setCauseOfStatus(run, kInternalServerError, data);
    case kRangeNotSatisfiable:
      if (transferPolicy() == TransferPolicy::kSafe && processUnsatisfiableRange(run, response)) {
        return;
      }
      [[fallthrough]];
    default:
      logger().logDebug(kOtherStatus);
      setCauseOfStatus(run, response.statusCode(), data);
  }
}

void NetworkTask::processWholeObject(Run& run, const HttpResponseInfo& response,
                                     std::string_view contentType, const Data& data) const {
  logger().logDebug(kStatusOk);
  if (platform::lowerCase(contentType).find(kJsonType) != std::string::npos) {
    logger().logDebug(kTypeJson);
    const std::optional<std::string> text = errorText(data);
    if (text && isErrorResponse(*text)) {
      const std::optional<std::string> message = parseErrorResponse(*text);
      logger().logError(kErrorString, message.value_or(std::string()));
      return setCause(run, kInvalidInputCode, message);
    }
  }
  // What was given away cannot be taken back; a file is written anew.
  if (run.isStreamed && run.bytesPublished > 0 && !isSameObject(run, response, std::nullopt)) {
    return setCause(run, kCodeIntegrityCheckFailed, kIntegrityCheckFailed);
  }
  logger().logDebug(kWholeFile);
  run._isBase64OrTotalFile = true;
  run._chunkData = data;
}

/// Sets the cause where the bytes, decoded, do not go with what was published before.
void NetworkTask::checkWholeObject(Run& run) const {
  const bool hasBytes = run._chunkData && !run._chunkData->empty();
  if (!hasBytes) {
    // The listener would take this for the end of what it has.
    const bool hasNothing =
        run.bytesPublished == 0 && run._totalFileSize == 0 && !run._isAsteriskRecieved;
    if (!hasNothing) setCause(run, kCodeEmptyBodyReceived, kEmptyBodyReceived);
    return;
  }
  if (!run.isStreamed || run.bytesPublished == 0) return;
  const auto size = static_cast<std::int64_t>(run._chunkData->size());
  const std::int64_t stated = statedSize(run._totalFileSize, run.lateFileSize);
  if (size < run.bytesPublished || (stated != 0 && size != stated)) {
    setCause(run, kCodeIntegrityCheckFailed, kIntegrityCheckFailed);
  }
}

void NetworkTask::processRange(Run& run, const HttpResponseInfo& response, const Data& data) const {
  const std::string field = response.headerField(kContentRange).value_or(std::string());
  const std::optional<ContentRange> range = ContentRange::parse(field);
  const bool belongs = data.empty() ? isEndOfUnknownSize(run, field)
                                    : range && isAt(run._totalBytesDownloaded, data.size(), *range);
  if (!belongs) return setCause(run, kCodeContentRangeNotReceived, kRangeNotReceived);
  const std::optional<std::int64_t> total = range ? range->total : std::nullopt;
  if (!isSameObject(run, response, total)) {
    return setCause(run, kCodeIntegrityCheckFailed, kIntegrityCheckFailed);
  }
  if (run._totalFileSize == 0 && !run._isAsteriskRecieved) {
    populateFileSizeFromResponse(run, total);
  } else if (run._totalFileSize == 0 && total) {
    run.lateFileSize = *total;
  }
  if (!data.empty()) run._chunkData = data;
  logger().logDebug(kSizeOfData, data.size());
}

/// Whether an answer without bytes is the end of an object whose size the server does not state.
bool NetworkTask::isEndOfUnknownSize(const Run& run, std::string_view contentRange) {
  const std::int64_t end = run._totalBytesDownloaded;
  if (run._totalFileSize != 0 || end < run.bytesPublished) return false;
  if (run.lateFileSize != 0 && run.lateFileSize != end) return false;
  if (platform::equalIgnoringCase(platform::trimmed(contentRange), kNoRangeOfUnknownSize)) {
    return true;
  }
  if (!run._isAsteriskRecieved) return false;
  if (contentRange.empty()) return true;
  const auto range = ContentRange::parse(contentRange);
  return range && !range->span && range->total == end;
}

/// Notes the tag where there is none yet.
bool NetworkTask::isSameObject(Run& run, const HttpResponseInfo& response,
                               std::optional<std::int64_t> total) {
  const std::int64_t stated = statedSize(run._totalFileSize, run.lateFileSize);
  if (stated != 0 && total && *total != stated) return false;
  const std::string tag = response.headerField(kETag).value_or(std::string());
  if (tag.empty() || tag.starts_with(kWeakTagPrefix)) return true;
  if (run.strongTag.empty()) run.strongTag = tag;
  return run.strongTag == tag;
}

void NetworkTask::populateFileSizeFromResponse(Run& run, std::optional<std::int64_t> total) {
  if (!total) {
    run._isAsteriskRecieved = true;
    return logger().logDebug(kAsterisk);
  }
  run._totalFileSize = *total;
  logger().logDebug(kTotalSizeIs, *total);
}

/// False where it is an error.
bool NetworkTask::processUnsatisfiableRange(Run& run, const HttpResponseInfo& response) {
  const auto range =
      ContentRange::parse(response.headerField(kContentRange).value_or(std::string()));
  const std::optional<std::int64_t> total = range ? range->total : std::nullopt;
  const bool isStated = run.lateFileSize == 0 || run.lateFileSize == total;
  if (total && *total == run._totalBytesDownloaded && isStated) {
    run._totalFileSize = *total;
    run.isAllThere = true;
    return true;
  }
  if (total && *total < run._totalBytesDownloaded && !run.hasStartedOver && !run.isStreamed) {
    run._totalBytesDownloaded = 0;
    static_cast<Identity&>(run) = {};
    run.hasStartedOver = run.startsOver = true;
    return true;
  }
  return false;
}

bool NetworkTask::isErrorResponse(const std::string& json) const {
  logger().logError(kCheckingForError, loggedAnswer(json));
  const Value object = CommonUtils::parseJsonString(json);
  logger().logDebug(kJsonObject, object);
  const Dictionary answer = object.dictionaryValue();
  bool isError = false;
  if (inputContext()[kOnlineDownloadTask].boolValue()) {
    isError = answer[kOpstatus].integerValue() != 0;
    if (isError) logger().logError(kErrorIs, loggedAnswer(json));
  } else if (const Dictionary* result = answer[kResult].dictionary()) {
    logger().logError(kErrorIs, (*result)[kResultError]);
    isError = (*result)[kResultError].boolValue();
  }
  logger().logError(kReturning, isError);
  return isError;
}

std::optional<std::string> NetworkTask::parseErrorResponse(const std::string& json) {
  logger().logError(kCheckingForError, loggedAnswer(json));
  const Value object = CommonUtils::parseJsonString(json);
  logger().logError(kJsonObject, object);
  const Dictionary answer = object.dictionaryValue();
  const Dictionary* result = answer[kResult].dictionary();
  if (result == nullptr) return std::nullopt;
  logger().logError(kErrorIs, (*result)[kResultError]);
  if (!(*result)[kResultError].boolValue()) return std::nullopt;
  const Value message = (*result)[kResultMessage];
  logger().logError(kErrorIs, message);
  if (message.isMissing() || message.isNull()) return std::nullopt;
  return message.textValue();
}

void NetworkTask::setChunkDataForBase64(Run& run) {
  const std::optional<std::string> text = parseBase64StringFromData(*run._chunkData);
  std::optional<std::string> bytes = text ? decodedBase64(*text) : std::nullopt;
  run._chunkData.reset();
  if (bytes) run._chunkData = Data::fromBytes(std::move(*bytes));
}

}  // namespace varo::binary
