#include "Client/Failures.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ToldFailure.h"
#include "Platform/Database/DatabaseError.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/RetryPolicy.h"
#include "Platform/Network/TransportFailure.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

namespace varo {

std::string_view nameOf(Kind kind) noexcept {
  switch (kind) {
    case Kind::kCancelled:
      return "cancelled";
    case Kind::kInvalidArgument:
      return "invalidArgument";
    case Kind::kNoConnection:
      return "noConnection";
    case Kind::kTimeout:
      return "timeout";
    case Kind::kTls:
      return "tls";
    case Kind::kUnauthorized:
      return "unauthorized";
    case Kind::kNotFound:
      return "notFound";
    case Kind::kConflict:
      return "conflict";
    case Kind::kThrottled:
      return "throttled";
    case Kind::kServer:
      return "server";
    case Kind::kNotOurService:
      return "notOurService";
    case Kind::kIntegrity:
      return "integrity";
    case Kind::kLocalFile:
      return "localFile";
    case Kind::kDiskFull:
      return "diskFull";
    case Kind::kDatabase:
      return "database";
    case Kind::kShutDown:
      return "shutDown";
    case Kind::kOther:
      break;
  }
  return "other";
}

bool Failure::isWorthRetrying() const noexcept {
  if (maybeDone) return false;
  switch (kind) {
    case Kind::kNoConnection:
    case Kind::kTimeout:
    case Kind::kThrottled:
    case Kind::kIntegrity:
      return true;
    case Kind::kServer:
      return httpStatus && *httpStatus >= 500;
    default:
      return false;
  }
}

namespace detail {

using binary::ToldFailure;
using platform::Dictionary;
using platform::TransportFailure;
using platform::Value;

namespace {

/// Of errors that are failures of the client's own; their code is the kind.
constexpr std::string_view kClientDomain = "VaroClient";
/// Key of their user information, which stays through every wrapping: the kind, a number.
constexpr std::string_view kClientKind = "clientKind";
/// Of the body of a response.
constexpr std::size_t kExcerpt = 1024;

Kind kindOf(TransportFailure failure) {
  switch (failure) {
    case TransportFailure::kNameNotFound:
    case TransportFailure::kNoConnection:
    case TransportFailure::kProxyNotReached:
    case TransportFailure::kNoAnswer:
    case TransportFailure::kSendingBroken:
    case TransportFailure::kCutShort:
      return Kind::kNoConnection;
    case TransportFailure::kTimedOut:
      return Kind::kTimeout;
    case TransportFailure::kTls:
    case TransportFailure::kCertificateNotTrusted:
    case TransportFailure::kTrustFileUnusable:
    case TransportFailure::kPinMismatch:
    case TransportFailure::kClientCertificateUnusable:
      return Kind::kTls;
    case TransportFailure::kProxyRefused:
      return Kind::kUnauthorized;
    case TransportFailure::kBadAnswer:
    case TransportFailure::kTooLarge:
    case TransportFailure::kRedirectRefused:
    case TransportFailure::kTooManyRedirects:
      return Kind::kNotOurService;
    case TransportFailure::kInvalidUrl:
    case TransportFailure::kInvalidHeader:
    case TransportFailure::kInvalidBody:
    case TransportFailure::kInvalidConfiguration:
      return Kind::kInvalidArgument;
    case TransportFailure::kRequestBodyUnreadable:
    case TransportFailure::kResponseBodyNotStored:
      return Kind::kLocalFile;
    case TransportFailure::kCancelled:
      return Kind::kCancelled;
    case TransportFailure::kShutDown:
      return Kind::kShutDown;
    case TransportFailure::kNoResources:
    case TransportFailure::kOther:
      break;
  }
  return Kind::kOther;
}

Kind kindOfStatus(std::int64_t status) {
  switch (status) {
    case 401:
    case 403:
      return Kind::kUnauthorized;
    case 404:
    case 410:
      return Kind::kNotFound;
    case 408:
      return Kind::kTimeout;
    case 409:
    case 412:
      return Kind::kConflict;
    case 429:
      return Kind::kThrottled;
    default:
      return status >= 400 ? Kind::kServer : Kind::kNotOurService;
  }
}

Kind kindOfErrno(std::int64_t number) {
  if (number == EBUSY) return Kind::kConflict;    // another download has the file
  if (number == EEXIST) return Kind::kConflict;   // somebody made the file meanwhile
  if (number == ESTALE) return Kind::kIntegrity;  // somebody else has changed it
  return number == ENOSPC || number == EDQUOT ? Kind::kDiskFull : Kind::kLocalFile;
}

/// Of the database's own errors; none for those of others.
std::optional<Kind> kindOfDatabase(std::string_view domain, std::int64_t code) {
  constexpr std::int64_t kPrimaryCode = 0xff;  // an extended code has more above
  constexpr std::int64_t kFull = 13;
  if (domain == platform::kDatabaseErrorDomain) return Kind::kInvalidArgument;
  if (domain != platform::kSqliteErrorDomain) return std::nullopt;
  return (code & kPrimaryCode) == kFull ? Kind::kDiskFull : Kind::kDatabase;
}

/// Codes that mean one thing in whatever domain they come. Those of requests and of the transport
/// were looked at before.
std::optional<Kind> kindOfCode(std::int64_t code) {
  using namespace binary;  // the codes
  static constexpr std::array<std::pair<std::int64_t, Kind>, 21> kKinds = {{
      {kCodeOperationCancelled, Kind::kCancelled},
      {kCodeBinaryRecordDoesNotExist, Kind::kNotFound},
      {kDownloadNotStartedAlreadyExistsInQueue, Kind::kConflict},
      {kCodeInvalidStateForBinaryOperation, Kind::kConflict},
      {kCodeUploadMissingParameter, Kind::kInvalidArgument},
      {kCodeUploadInvalidParameterDataType, Kind::kInvalidArgument},
      {kCodeUploadInvalidParameterValue, Kind::kInvalidArgument},
      {kCodeDownloadMissingParams, Kind::kInvalidArgument},
      {kCodeDownloadInvalidParams, Kind::kInvalidArgument},
      {kCodeDownloadMissingParameterValue, Kind::kInvalidArgument},
      {kCodeUpdateMissingParams, Kind::kInvalidArgument},
      {kCodeUpdateInvalidParams, Kind::kInvalidArgument},
      {kCodeDeleteMissingParams, Kind::kInvalidArgument},
      {kCodeDeleteInvalidParams, Kind::kInvalidArgument},
      {kCodeUploadIOFailure, Kind::kLocalFile},
      {kCodeBinaryDownloadFailed, Kind::kLocalFile},
      {kCodeUploadJSONParsingError, Kind::kNotOurService},
      {kCodeEmptyBodyReceived, Kind::kNotOurService},
      {kCodeContentRangeNotReceived, Kind::kIntegrity},
      {kCodeIntegrityCheckFailed, Kind::kIntegrity},
      {kCodeSQLiteExecuteFailed, Kind::kDatabase},
  }};
  const auto* found = std::find_if(kKinds.begin(), kKinds.end(),
                                   [code](const auto& known) { return known.first == code; });
  return found != kKinds.end() ? std::optional(found->second) : std::nullopt;
}

bool isShutDown(const ToldFailure& told) {
  return told.code == binary::kCodeInvalidStateForBinaryOperation &&
         told.text.find(binary::kLibraryShutDown) != std::string::npos;
}

/// Of an error that is one of ours.
std::optional<Kind> kindOfOurs(const Dictionary& userInfo) {
  const std::int64_t kind = userInfo[kClientKind].integerValue();
  const bool isOne = userInfo.contains(kClientKind) && kind >= 0 &&
                     kind <= static_cast<std::int64_t>(Kind::kOther);
  return isOne ? std::optional(static_cast<Kind>(kind)) : std::nullopt;
}

/// Of a transport that could not read or write a file; none: it was not that.
std::optional<Kind> kindOfFile(const Dictionary& userInfo) {
  if (!userInfo.contains(platform::kErrorSystemCodeKey)) return std::nullopt;
  return kindOfErrno(userInfo[platform::kErrorSystemCodeKey].integerValue());
}

/// What the transport says of a request that has failed: in the error itself, or below it.
Dictionary transportInfo(const ToldFailure& told) {
  const bool isItself = told.cause == nullptr || platform::transportFailureIn(told.userInfo);
  return isItself ? told.userInfo : told.cause->userInfo();
}

Kind kindOf(const ToldFailure& told, const Failure& failure) {
  if (const auto ours = kindOfOurs(told.userInfo)) return *ours;
  if (told.cause != nullptr) {
    if (const auto ours = kindOfOurs(told.cause->userInfo())) return *ours;
  }
  if (isShutDown(told)) return Kind::kShutDown;
  const auto transport = platform::transportFailureIn(transportInfo(told));
  // A full disk is told by the cause below.
  if (told.cause != nullptr && told.cause->domain() == platform::kPosixErrorDomain) {
    return kindOfErrno(told.cause->code());
  }
  if (told.domain == platform::kPosixErrorDomain) return kindOfErrno(told.code);
  if (const auto kind = told.cause != nullptr
                            ? kindOfDatabase(told.cause->domain(), told.cause->code())
                            : kindOfDatabase(told.domain, told.code)) {
    return *kind;
  }
  if (transport) {
    const auto& of = told.cause != nullptr ? told.cause->userInfo() : told.userInfo;
    return kindOfFile(of).value_or(kindOf(*transport));
  }
  if (failure.httpStatus && *failure.httpStatus >= 400) return kindOfStatus(*failure.httpStatus);
  if (failure.serviceStatus && *failure.serviceStatus != 0) return Kind::kServer;
  if (told.domain == binary::kRetriesExceededErrorDomain) return Kind::kTimeout;
  if (told.code == binary::kCodeMissingServerUrl) {
    return told.domain == binary::kUrlValidationErrorDomain ? Kind::kInvalidArgument
                                                            : Kind::kNotOurService;
  }
  if (told.code == binary::kCodeHTTPRequestFailed) return Kind::kNotOurService;
  return kindOfCode(told.code).value_or(Kind::kOther);
}

std::optional<std::string> header(const Dictionary& headers, std::string_view name) {
  for (const auto& entry : headers) {
    if (platform::equalIgnoringCase(entry.key, name)) return entry.value.textValue();
  }
  return std::nullopt;
}

/// What the response said, where the error has it.
void addResponse(const ToldFailure& told, Failure& failure) {
  const Dictionary answer = told.userInfo[binary::keys::kUserInfo].dictionaryValue();
  const Dictionary& source =
      told.userInfo.contains(binary::kHttpStatusCode) ? told.userInfo : answer;
  if (const std::int64_t status = source[binary::kHttpStatusCode].integerValue(); status > 0) {
    failure.httpStatus = static_cast<int>(std::min<std::int64_t>(status, 999));
  }
  if (answer.contains(binary::kOpStatus)) {
    failure.serviceStatus = answer[binary::kOpStatus].integerValue();
  }
  failure.responseExcerpt = told.userInfo[binary::kResponseBody].textValue().substr(0, kExcerpt);
  const Dictionary headers = told.userInfo[binary::kResponseHeaders].dictionaryValue();
  failure.retryAfter = platform::retryAfterFrom(header(headers, "Retry-After").value_or(""),
                                                platform::Clock::system().now());
  failure.requestId = header(headers, "X-Pelmar-RequestId").value_or("");
}

}  // namespace

Failure failureFrom(const Value& value, std::string_view about) {
  const ToldFailure told = binary::readFailure(value);
  Failure failure;
  addResponse(told, failure);
  failure.kind = kindOf(told, failure);
  const std::string text = told.text.empty() ? std::string(nameOf(failure.kind)) : told.text;
  failure.message = fmt::format("{}: {}", about, text);
  failure.cause = told.cause != nullptr ? Cause{told.cause->domain(), told.cause->code(),
                                                told.cause->localizedDescription()}
                                        : Cause{told.domain, told.code, told.text};
  return failure;
}

bool mayHaveArrived(const Value& value) {
  const Dictionary info = transportInfo(binary::readFailure(value));
  const auto failure = platform::transportFailureIn(info);
  if (!failure || info[platform::kErrorNotSentKey].boolValue()) return false;
  const Kind kind = kindOf(*failure);
  return kind == Kind::kNoConnection || kind == Kind::kTimeout;
}

platform::ErrorPtr errorOf(const Failure& failure) {
  return std::make_shared<const platform::Error>(
      std::string(kClientDomain), static_cast<std::int64_t>(failure.kind),
      Dictionary{{std::string(platform::kLocalizedDescriptionKey), failure.message},
                 {std::string(kClientKind), static_cast<std::int64_t>(failure.kind)}});
}

std::optional<Kind> kindOfEnd(std::optional<int> status, const platform::ErrorPtr& error) {
  if (error != nullptr) return failureFrom(error, {}).kind;
  if (!status) return Kind::kOther;
  return *status >= 400 ? std::optional(kindOfStatus(*status)) : std::nullopt;
}

Failure failureOf(Kind kind, std::string message) {
  Failure failure;
  failure.kind = kind;
  failure.message = std::move(message);
  return failure;
}

}  // namespace detail

}  // namespace varo
