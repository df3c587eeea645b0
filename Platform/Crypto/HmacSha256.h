#pragma once

#include "Platform/Crypto/Sha256.h"

#include <string_view>

namespace varo::platform {

/// HMAC-SHA256 (RFC 2104). Thread-safe.
class HmacSha256 {
 public:
  HmacSha256() = delete;

  /// The code of `bytes` under `key`, which may have any length, also none; copies of it are wiped.
  /// Errors: `kCryptoErrorDomain`, where OpenSSL fails.
  [[nodiscard]] static Result<Sha256Digest> of(std::string_view key, std::string_view bytes);
};

}  // namespace varo::platform
