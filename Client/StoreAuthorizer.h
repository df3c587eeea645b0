#pragma once

#include "Binary/Binary/Utils/S3RequestSigner.h"
#include "Client/CredentialsCache.h"
#include "Client/ObjectPlace.h"
#include "Platform/Network/RequestSettings.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace varo::detail {

/// Signs each attempt of one request to a store: with the keys of that moment, and its time as far
/// as it is known. Belongs to one request, whose attempts follow each other.
class StoreAuthorizer final : public platform::RequestAuthorizer {
 public:
  /// `toSign` has the digest of the body already.
  StoreAuthorizer(std::shared_ptr<const ObjectPlace> place, std::shared_ptr<HeldCredentials> held,
                  binary::S3Request toSign);

  [[nodiscard]] platform::Result<void> authorize(platform::HttpRequest& request) override;
  /// A refusal is one that says that the keys have expired, are not known any more, or that the
  /// time was wrong.
  [[nodiscard]] bool renew(const std::vector<platform::HttpHeader>& shown,
                           const platform::HttpResponse& response) override;

  /// What the last attempt has shown, which a refusal may repeat. Empty for none.
  [[nodiscard]] const std::string& sessionToken() const noexcept { return shown_.sessionToken; }

 private:
  const std::shared_ptr<const ObjectPlace> place_;
  const std::shared_ptr<HeldCredentials> held_;
  const binary::S3Request toSign_;

  // Of the last attempt.
  binary::S3Keys shown_;
  bool isTemporary_ = false;
  std::chrono::system_clock::time_point signedAt_;
};

}  // namespace varo::detail
