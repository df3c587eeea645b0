#include "Platform/Crypto/Sha256.h"

#include "Platform/Crypto/OpenSslError.h"

#include <openssl/crypto.h>

namespace varo::platform {

std::string hexEncode(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text(bytes.size() * 2, '\0');
  char* digit = text.data();
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    *digit++ = kDigits[byte >> 4U];
    *digit++ = kDigits[byte & 0x0FU];
  }
  return text;
}

// A digest may be a signing key.
Sha256Digest::~Sha256Digest() { ::OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

unsigned char* Sha256Digest::buffer() noexcept {
  return reinterpret_cast<unsigned char*>(bytes_.data());
}

bool operator==(const Sha256Digest& left, const Sha256Digest& right) noexcept {
  return ::CRYPTO_memcmp(left.bytes_.data(), right.bytes_.data(), Sha256Digest::kSize) == 0;
}

Sha256::Sha256() : digest_(OpenSslDigest::Algorithm::kSha256) {}

void Sha256::update(std::string_view bytes) noexcept { digest_.update(bytes); }

Result<Sha256Digest> Sha256::finish() {
  Sha256Digest digest;
  if (!digest_.finish(digest.buffer())) return takeOpenSslError("SHA-256");
  return digest;
}

Result<Sha256Digest> Sha256::of(std::string_view bytes) {
  Sha256 hash;
  hash.update(bytes);
  return hash.finish();
}

Result<Sha256Digest> Sha256::of(const Data& data) {
  Sha256 hash;
  const auto read = data.forEachPiece([&hash](std::string_view piece) {
    hash.update(piece);
    return Result<void>();
  });
  if (!read) return read.error();
  return hash.finish();
}

}  // namespace varo::platform
