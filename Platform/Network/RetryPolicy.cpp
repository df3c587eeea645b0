#include "Platform/Network/RetryPolicy.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/TimeText.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/TransportFailure.h"

#include <algorithm>

namespace varo::platform {

using std::chrono::milliseconds;

namespace {

constexpr int kRequestTimeout = 408;
constexpr int kTooManyRequests = 429;
constexpr int kServiceUnavailable = 503;

/// The server has not begun to carry it out, and says so.
bool isTurnedAway(int status) {
  return status == kRequestTimeout || status == kTooManyRequests || status == kServiceUnavailable;
}

bool isOfTheMoment(int status) {
  constexpr int kInternalError = 500;
  constexpr int kBadGateway = 502;
  constexpr int kGatewayTimeout = 504;
  return isTurnedAway(status) || status == kInternalError || status == kBadGateway ||
         status == kGatewayTimeout;
}

bool isOfTheConnection(TransportFailure failure) {
  switch (failure) {
    case TransportFailure::kNameNotFound:
    case TransportFailure::kNoConnection:
    case TransportFailure::kProxyNotReached:
    case TransportFailure::kTimedOut:
    case TransportFailure::kNoAnswer:
    case TransportFailure::kSendingBroken:
    case TransportFailure::kCutShort:
      return true;
    default:
      return false;
  }
}

}  // namespace

milliseconds RetryPolicy::waitBefore(int attempt, Random& random) const {
  const milliseconds ceiling = std::max(longestWait, milliseconds(0));
  milliseconds most = std::clamp(firstWait, milliseconds(0), ceiling);
  // Halved before it is doubled: no product leaves the range of the type.
  for (int i = 2; i < attempt && most < ceiling; ++i)
    most = most > ceiling / 2 ? ceiling : most * 2;
  return milliseconds(random.integer(0, most.count()));
}

bool RetryBudget::take(milliseconds wait) {
  const MutexLock lock(mutex_);
  if (wait > left_) return false;
  left_ -= wait;
  return true;
}

Repeat repeatOf(const HttpRequest& request) noexcept {
  if (request.repeat) return *request.repeat;
  const bool changesNothingTwice = request.method == HttpMethod::kGet ||
                                   request.method == HttpMethod::kHead ||
                                   request.method == HttpMethod::kPut;
  return changesNothingTwice ? Repeat::kAlways : Repeat::kUnlessReceived;
}

bool isWorthRepeating(Repeat repeat, const HttpResponse* response, const Error* error) {
  if (response != nullptr) {
    return repeat == Repeat::kAlways ? isOfTheMoment(response->status)
                                     : isTurnedAway(response->status);
  }
  const auto failure = transportFailureOf(*error);
  if (!failure || !isOfTheConnection(*failure)) return false;
  return repeat == Repeat::kAlways || error->userInfo()[kErrorNotSentKey].boolValue();
}

std::optional<milliseconds> retryAfterFrom(std::string_view value,
                                           std::chrono::system_clock::time_point now) {
  constexpr std::int64_t kLongest = std::int64_t{24} * 60 * 60;
  const std::string_view text = trimmed(value);
  if (const auto seconds = parseInteger(text); seconds && *seconds >= 0) {
    return std::chrono::seconds(std::min(*seconds, kLongest));
  }
  const auto date = httpTime(text);
  if (!date) return std::nullopt;
  const auto wait = std::chrono::ceil<milliseconds>(*date - now);
  return std::clamp<milliseconds>(wait, milliseconds(0), std::chrono::seconds(kLongest));
}

std::optional<milliseconds> retryAfterOf(const HttpResponse& response,
                                         std::chrono::system_clock::time_point now) {
  for (const HttpHeader& header : response.headers) {
    if (equalIgnoringCase(header.name, "Retry-After")) return retryAfterFrom(header.value, now);
  }
  return std::nullopt;
}

}  // namespace varo::platform
