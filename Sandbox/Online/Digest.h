#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// `bytes` in lower-case hexadecimal.
[[nodiscard]] std::string hexText(std::string_view bytes);

/// The digest of bytes that come piece by piece. Throws `std::runtime_error` when the cryptographic
/// library fails, which no input causes. Used by one thread.
class Digest {
 public:
  enum class Kind { kSha256, kMd5 };

  explicit Digest(Kind kind = Kind::kSha256);
  ~Digest();
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;

  void update(std::string_view bytes);
  /// The digest in hexadecimal. Once, after the last `update`.
  [[nodiscard]] std::string hex();

  /// Of SHA-256.
  [[nodiscard]] static std::string hexOf(std::string_view bytes);

 private:
  struct Context;
  const std::unique_ptr<Context> context_;
};

/// The 32 bytes of HMAC-SHA256 (RFC 2104). Throws as `Digest` does.
[[nodiscard]] std::string hmacSha256(std::string_view key, std::string_view bytes);

/// Compares in a time that depends on the lengths alone.
[[nodiscard]] bool equalInConstantTime(std::string_view a, std::string_view b);

}  // namespace varo::sandbox
