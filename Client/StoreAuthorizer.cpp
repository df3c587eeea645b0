#include "Client/StoreAuthorizer.h"

#include "Client/Failures.h"
#include "Client/ObjectAnswers.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace varo::detail {

using platform::HttpRequest;
using platform::HttpResponse;

namespace {

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
  const bool mayBeSkewed = isSilent || code == "RequestTimeTooSkewed";
  if (mayBeSkewed && place_->clock().correct(response, signedAt_)) return true;
  const bool isExpired = std::find(kExpired.begin(), kExpired.end(), code) != kExpired.end();
  if (!isExpired && !(isSilent && isTemporary_)) return false;
  return held_->renew([this](const Credentials& one) {
    return one.accessKey == shown_.accessKey && one.secretKey == shown_.secretKey &&
           one.sessionToken == shown_.sessionToken;
  });
}

}  // namespace varo::detail
