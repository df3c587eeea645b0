#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace varo::binary {

/// Key of the input context under which a download whose requests are signed finds what signs them.
inline constexpr char kRequestSigner[] = "requestSigner";

/// Makes the headers of one signed request when it is sent. A store refuses a signature that is
/// some minutes old, so a long download signs each range anew.
///
/// Immutable. As thread-safe as its function; that of `ofDownload` is.
class RequestSigner final : public platform::Object {
 public:
  using Sign = std::function<platform::Result<platform::Dictionary>()>;

  /// `sign` is not empty. Where ranges are fetched in parallel, several threads may call it at
  /// once.
  explicit RequestSigner(Sign sign) : sign_(std::move(sign)) {}

  /// Signs downloads as `S3HMACGenerator` does, with the template's "AuthParameters", "method" and
  /// "Host". The template's placeholders are filled already. `clock` dates the signatures and lives
  /// as long as the signer.
  [[nodiscard]] static std::shared_ptr<RequestSigner> ofDownload(
      const platform::Dictionary& filledTemplate, const platform::Clock& clock);

  /// All headers of a request that is sent now, except those of its range, which are not signed.
  /// Errors: those of `S3HMACGenerator::getRequestHeaders`.
  [[nodiscard]] platform::Result<platform::Dictionary> headers() const { return sign_(); }

  [[nodiscard]] std::string description() const override { return "RequestSigner"; }

 private:
  const Sign sign_;
};

}  // namespace varo::binary
