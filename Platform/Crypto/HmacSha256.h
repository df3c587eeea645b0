#pragma once

#include "Platform/Crypto/Sha256.h"

#include <memory>
#include <string_view>
#include <utility>

struct evp_mac_ctx_st;  // OpenSSL's EVP_MAC_CTX

namespace varo::platform {

/// HMAC-SHA256 (RFC 2104) under a key that is set up once, which is half of the work of a short
/// code. Immutable, thread-safe. Errors: `kCryptoErrorDomain`, where OpenSSL fails.
class HmacSha256 {
 public:
  /// `key` may have any length, also none; copies of it are wiped.
  [[nodiscard]] static Result<HmacSha256> withKey(std::string_view key);

  /// The code of `bytes`.
  [[nodiscard]] Result<Sha256Digest> of(std::string_view bytes) const;
  /// The same for a key that is used once.
  [[nodiscard]] static Result<Sha256Digest> of(std::string_view key, std::string_view bytes);

 private:
  struct Free {
    void operator()(evp_mac_ctx_st* context) const noexcept;
  };
  using Context = std::unique_ptr<evp_mac_ctx_st, Free>;

  explicit HmacSha256(Context keyed) : keyed_(std::move(keyed)) {}

  /// Copied for each code, so that threads share nothing that changes.
  Context keyed_;
};

}  // namespace varo::platform
