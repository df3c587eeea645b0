#pragma once

#include "Sandbox/Http/WantedToken.h"
#include "Sandbox/Online/SignatureClaim.h"
#include "Sandbox/Online/SignedStoreOptions.h"

#include <optional>
#include <string>
#include <variant>

namespace varo::sandbox {

/// Decides whether a request may reach the objects, by the standard's rules and from nothing but
/// what arrived. Thread-safe.
class SignatureVerifier {
 public:
  /// The SHA-256 that the body must turn out to have, in hexadecimal; absent: any body will do.
  using PayloadHash = std::optional<std::string>;

  /// `sessionToken` takes the place of the options' own, and lives as long as this.
  SignatureVerifier(SignedStoreOptions options, const WantedToken& sessionToken);

  /// `now` is the store's clock.
  [[nodiscard]] std::variant<PayloadHash, StoreError> verify(const HttpRequest& request,
                                                             sigv4::Time now) const;

 private:
  using Problem = std::optional<StoreError>;
  [[nodiscard]] Problem checkScope(const SignatureClaim& claim) const;
  [[nodiscard]] Problem checkToken(const HttpRequest& request, const SignatureClaim& claim) const;
  [[nodiscard]] static Problem checkTime(const SignatureClaim& claim, sigv4::Time now);
  [[nodiscard]] Problem checkPayloadHash(const SignatureClaim& claim) const;
  [[nodiscard]] Problem checkSignature(const HttpRequest& request,
                                       const SignatureClaim& claim) const;

  const SignedStoreOptions options_;
  const WantedToken& sessionToken_;
};

}  // namespace varo::sandbox
