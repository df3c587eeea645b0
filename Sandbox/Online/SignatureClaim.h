#pragma once

#include "Sandbox/Online/SignatureV4.h"
#include "Sandbox/Online/StoreError.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace varo::sandbox {

/// What a request says of its own signature: in its headers or, for an address that somebody else
/// signed, in its query.
struct SignatureClaim {
  std::string accessKey;
  sigv4::Scope scope;
  std::vector<std::string> signedHeaders;  ///< Lower case, in order, not empty.
  std::string signature;
  std::string timestamp;
  sigv4::Time time{};
  std::string payloadHash;  ///< 64 hexadecimal digits, or "UNSIGNED-PAYLOAD".
  /// How long a signed address is good for; absent for a request that is signed in its headers.
  std::optional<std::chrono::seconds> lifetime;
};

/// 64 lower-case hexadecimal digits.
[[nodiscard]] bool isHexDigest(std::string_view text);

/// Whether the request has a signature of any kind.
[[nodiscard]] bool isSigned(const HttpRequest& request);

/// Reads the claim of a request that is signed; checks its form only.
[[nodiscard]] std::variant<SignatureClaim, StoreError> signatureClaimOf(const HttpRequest& request);

}  // namespace varo::sandbox
