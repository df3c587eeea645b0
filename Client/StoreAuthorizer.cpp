#include "Client/StoreAuthorizer.h"

#include "Client/Failures.h"
#include "Client/ObjectAnswers.h"
#include "Platform/Foundation/TimeText.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace varo::detail {

using platform::HttpRequest;
using platform::HttpResponse;

namespace {

/// Of the clock: stores tolerate many minutes, and their "Date" has seconds.
constexpr std::chrono::minutes kWorthCorrecting{1};
constexpr std::array<std::string_view, 3> kExpired = {"ExpiredToken", "TokenRefreshRequired",
                                                      "InvalidAccessKeyId"};

}  // namespace

StoreAuthorizer::StoreAuthorizer(std::shared_ptr<const ObjectPlace> place,
                                 std::shared_ptr<HeldCredentials> held, binary::S3Request toSign)
    : place_(std::move(place)), held_(std::move(held)), toSign_(std::move(toSign)) {}

platform::Result<void> StoreAuthorizer::authorize(HttpRequest& request) {
  const auto given = held_->current();
  if (!given) return errorOf(given.error());
  auto keys = place_->keysIn(**given);
  if (!keys) return errorOf(keys.error());
  shown_ = *std::move(keys);
  isTemporary_ = !shown_.sessionToken.empty() || (*given)->expires.has_value();
  signedAt_ = place_->clock().now();
  auto headers = binary::S3RequestSigner(shown_, place_->region(), place_->clock()).sign(toSign_);
  if (!headers) return headers.error();
  request.headers = std::move(headers).value();
  return {};
}

bool StoreAuthorizer::renew(const std::vector<platform::HttpHeader>& /*shown*/,
                            const HttpResponse& response) {
  if (response.status / 100 != 4) return false;
  const std::string code = codeIn(response);
  // The refusal of a HEAD cannot say why.
  const bool isSilent = !response.body && (response.status == 400 || response.status == 403);
  if ((isSilent || code == "RequestTimeTooSkewed") && correctClock(response)) return true;
  const bool isExpired = std::find(kExpired.begin(), kExpired.end(), code) != kExpired.end();
  if (!isExpired && !(isSilent && isTemporary_)) return false;
  return held_->renew([this](const Credentials& one) {
    return one.accessKey == shown_.accessKey && one.secretKey == shown_.secretKey &&
           one.sessionToken == shown_.sessionToken;
  });
}

/// False where the difference is not why the request was refused.
bool StoreAuthorizer::correctClock(const HttpResponse& response) const {
  const auto store = platform::httpTime(headerOf(response, "Date").value_or(""));
  if (!store || std::chrono::abs(*store - signedAt_) < kWorthCorrecting) return false;
  place_->clock().set(*store);
  return true;
}

}  // namespace varo::detail
