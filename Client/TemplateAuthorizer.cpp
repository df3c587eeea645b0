#include "Client/TemplateAuthorizer.h"

#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Client/ObjectAnswers.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <string>

namespace varo::detail {

using platform::HttpHeader;
using platform::HttpRequest;
using platform::HttpResponse;

namespace {

constexpr int kForbidden = 403;

bool isSigned(const std::vector<HttpHeader>& headers) {
  return std::any_of(headers.begin(), headers.end(), [](const HttpHeader& header) {
    return platform::equalIgnoringCase(header.name, binary::signing::kAmzDate);
  });
}

}  // namespace

platform::Result<void> TemplateAuthorizer::authorize(HttpRequest& request) {
  sentAt_ = place_->clock().now();
  hasQuery_ = request.url.find('?') != std::string::npos;
  return service_ != nullptr ? service_->authorize(request) : platform::Result<void>();
}

bool TemplateAuthorizer::renew(const std::vector<HttpHeader>& shown, const HttpResponse& response) {
  if (service_ != nullptr && service_->renew(shown, response)) return true;
  needsAnother_ = hasTemplate_ && response.status / 100 == 4 && isForItsTime(shown, response);
  return false;
}

bool TemplateAuthorizer::isForItsTime(const std::vector<HttpHeader>& shown,
                                      const HttpResponse& refusal) const {
  const std::string code = codeIn(refusal);
  if (isSigned(shown)) {
    return code == "RequestTimeTooSkewed" && place_->clock().correct(refusal, sentAt_);
  }
  // A signed address has its signature in the query. Each kind of store says in a way of its own
  // that its time is over; where that was not why, another template only costs one more attempt.
  return hasQuery_ &&
         (refusal.status == kForbidden || code == "ExpiredToken" || code == "TokenRefreshRequired");
}

}  // namespace varo::detail
