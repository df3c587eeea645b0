#include "Binary/Binary/DownloadTask/RangeArrival.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/GlobalHeaders.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Network/TransportFailure.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <memory>

namespace varo::binary {

using platform::HttpResponseInfo;

namespace {

constexpr int kPartialContent = 206;

}  // namespace

bool RangeArrival::isRange() const noexcept {
  return failure == nullptr && answer.said.status == kPartialContent;
}

bool RangeArrival::isTooLarge() const {
  return transportError != nullptr &&
         platform::transportFailureOf(*transportError) == platform::TransportFailure::kTooLarge;
}

RangeArrival readArrival(std::int64_t taskId, const RangeOrder& order,
                         const std::optional<Data>& data, const Dictionary& responseInfo,
                         const ErrorPtr& error) {
  RangeArrival arrival;
  if (error != nullptr) {
    arrival.transportError = error;
    arrival.failure = CommonUtils::validateResponseforTask(taskId, kRangeRequestErrorDomain,
                                                           responseInfo, data, error);
    return arrival;
  }
  auto response = responseInfo[platform::kHttpResponse].objectAs<HttpResponseInfo>();
  if (response == nullptr) response = std::make_shared<HttpResponseInfo>(0, Dictionary());
  GlobalHeaders::shared().noteAnswer(order._url, *response);
  arrival.answer = readAnswer(*response, data.value_or(Data()),
                              {.isOnline = order.isOnline,
                               .isBase64 = order.isBase64(),
                               .maxBase64 = order.settings->limits.base64,
                               .isSafe = order.settings->isSafe()});
  const int status = arrival.answer.said.status;
  const bool isRefusal = status < 200 || status > 299;
  if (isRefusal && order.settings->isSafe()) {
    CommonUtils::addAnswer(arrival.refusal, status, arrival.answer.body);
    arrival.refusal.set(kResponseHeaders, BinaryNetworkUtils::withoutSecrets(
                                              response->allHeaderFields(), order._headers));
  }
  return arrival;
}

}  // namespace varo::binary
