#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

struct evp_md_ctx_st;  // OpenSSL's EVP_MD_CTX

namespace varo::platform {

/// A digest of bytes that come piece by piece. Not thread-safe.
class OpenSslDigest {
 public:
  enum class Algorithm : std::uint8_t { kMd5, kSha256 };

  explicit OpenSslDigest(Algorithm algorithm);

  /// A failure shows up in `finish`.
  void update(std::string_view bytes) noexcept;
  /// Writes as many bytes as the algorithm's digests have. Once. False for a failure, such as an
  /// algorithm that the system's rules do not allow.
  [[nodiscard]] bool finish(unsigned char* digest) noexcept;

 private:
  struct Deleter {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };
  const std::unique_ptr<evp_md_ctx_st, Deleter> context_;
  bool ok_;
};

}  // namespace varo::platform
