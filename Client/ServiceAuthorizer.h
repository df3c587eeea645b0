#pragma once

#include "Client/CredentialsCache.h"
#include "Platform/Network/RequestSettings.h"

#include <memory>
#include <utility>
#include <vector>

namespace varo::detail {

/// Gives each request of an operation the service's token of that moment. Only those that have one
/// already: which servers may see it is decided where a request is made. Thread-safe.
class ServiceAuthorizer final : public platform::RequestAuthorizer {
 public:
  explicit ServiceAuthorizer(std::shared_ptr<HeldCredentials> held) : held_(std::move(held)) {}

  [[nodiscard]] platform::Result<void> authorize(platform::HttpRequest& request) override;
  /// A refusal is 401, and 403 where it says that the token has expired.
  [[nodiscard]] bool renew(const std::vector<platform::HttpHeader>& shown,
                           const platform::HttpResponse& response) override;

 private:
  const std::shared_ptr<HeldCredentials> held_;
};

}  // namespace varo::detail
