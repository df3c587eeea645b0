#pragma once

#include "Client/ObjectPlace.h"
#include "Platform/Network/RequestSettings.h"

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

namespace varo::detail {

/// Gives the requests of an upload by template the service's token, and finds out whether the store
/// would take the bytes by another template. Belongs to one attempt, whose requests follow each
/// other.
class TemplateAuthorizer final : public platform::RequestAuthorizer {
 public:
  /// `service` gives the token; null: there is none.
  TemplateAuthorizer(std::shared_ptr<const ObjectPlace> place,
                     std::shared_ptr<platform::RequestAuthorizer> service)
      : place_(std::move(place)), service_(std::move(service)) {}

  [[nodiscard]] platform::Result<void> authorize(platform::HttpRequest& request) override;
  /// As the service's; what else was refused shows in `needsAnotherTemplate`.
  [[nodiscard]] bool renew(const std::vector<platform::HttpHeader>& shown,
                           const platform::HttpResponse& response) override;

  /// What follows goes where the template says.
  void templateIsThere() noexcept { hasTemplate_ = true; }
  /// The last response refused the bytes for their time: that of their signature, after which the
  /// clock was corrected, or of the address that the service has signed.
  [[nodiscard]] bool needsAnotherTemplate() const noexcept { return needsAnother_; }

 private:
  [[nodiscard]] bool isForItsTime(const std::vector<platform::HttpHeader>& shown,
                                  const platform::HttpResponse& refusal) const;

  const std::shared_ptr<const ObjectPlace> place_;
  const std::shared_ptr<platform::RequestAuthorizer> service_;
  bool hasTemplate_ = false;
  bool needsAnother_ = false;

  // Of the last request.
  std::chrono::system_clock::time_point sentAt_;
  bool hasQuery_ = false;
};

}  // namespace varo::detail
