#pragma once

#include "Platform/Crypto/OpenSslDigest.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Result.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace varo::platform {

/// Domain of the errors of this folder: the cryptographic library could not do its work, which no
/// input causes. The code is the library's own.
inline constexpr std::string_view kCryptoErrorDomain = "Crypto";

/// `bytes` in lower-case hexadecimal, two digits each.
[[nodiscard]] std::string hexEncode(std::string_view bytes);

/// 32 bytes, the result of SHA-256 and HMAC-SHA256. May be a derived key, so it is wiped when it
/// goes, and compared in a time that does not depend on its content.
class Sha256Digest {
 public:
  static constexpr std::size_t kSize = 32;

  Sha256Digest() = default;
  Sha256Digest(const Sha256Digest&) = default;
  Sha256Digest& operator=(const Sha256Digest&) = default;
  ~Sha256Digest();

  /// Valid while this digest lives.
  [[nodiscard]] std::string_view bytes() const noexcept { return {bytes_.data(), kSize}; }
  [[nodiscard]] std::string hex() const { return hexEncode(bytes()); }
  /// Where the `kSize` bytes are written.
  [[nodiscard]] unsigned char* buffer() noexcept;

  friend bool operator==(const Sha256Digest& left, const Sha256Digest& right) noexcept;

 private:
  std::array<char, kSize> bytes_{};
};

/// The SHA-256 digest (FIPS 180-4) of bytes that come piece by piece.
/// Not thread-safe as one instance; the functions of the class are.
class Sha256 {
 public:
  Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  /// A failure shows up in `finish`.
  void update(std::string_view bytes) noexcept;
  /// The digest of all that was passed to `update`. A second call is an error.
  [[nodiscard]] Result<Sha256Digest> finish();

  [[nodiscard]] static Result<Sha256Digest> of(std::string_view bytes);
  /// Reads piece by piece, in constant memory. Errors: also those of `Data::read`.
  [[nodiscard]] static Result<Sha256Digest> of(const Data& data);

 private:
  OpenSslDigest digest_;
};

}  // namespace varo::platform
