#pragma once

#include "Platform/Crypto/Sha256.h"

#include <memory>
#include <string_view>

namespace varo::platform {

/// HMAC-SHA256 (RFC 2104) of bytes that come piece by piece. Copies of the key are wiped.
/// Not thread-safe as one instance; the functions of the class are.
class HmacSha256 {
 public:
  /// A key of any length, also none.
  explicit HmacSha256(std::string_view key);
  ~HmacSha256();
  HmacSha256(const HmacSha256&) = delete;
  HmacSha256& operator=(const HmacSha256&) = delete;

  /// A failure shows up in `finish`.
  void update(std::string_view bytes) noexcept;
  /// The code of all that was passed to `update`. A second call is an error.
  [[nodiscard]] Result<Sha256Digest> finish();

  [[nodiscard]] static Result<Sha256Digest> of(std::string_view key, std::string_view bytes);
  /// Reads piece by piece, in constant memory. Errors: also those of `Data::read`.
  [[nodiscard]] static Result<Sha256Digest> of(std::string_view key, const Data& data);

 private:
  class Context;
  const std::unique_ptr<Context> context_;
};

}  // namespace varo::platform
