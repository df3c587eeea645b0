#include "Platform/Crypto/Sha256.h"

#include "Platform/Crypto/OpenSslError.h"
#include "Platform/Crypto/OpenSslLibrary.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <utility>

namespace varo::platform {
namespace {

/// Fetched once, since that is a search among the library's providers; never freed, so that it can
/// be used until the last thread ends. Null where no provider has it.
EVP_MD* algorithm() noexcept {
  static EVP_MD* const fetched = [] {
    initializeOpenSsl();
    return ::EVP_MD_fetch(nullptr, "SHA256", nullptr);
  }();
  return fetched;
}

}  // namespace

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

void Sha256::Free::operator()(evp_md_ctx_st* context) const noexcept { ::EVP_MD_CTX_free(context); }

Sha256::Sha256()
    : context_(algorithm() != nullptr ? ::EVP_MD_CTX_new() : nullptr),
      ok_(context_ != nullptr && ::EVP_DigestInit_ex2(context_.get(), algorithm(), nullptr) == 1) {}

void Sha256::update(std::string_view bytes) noexcept {
  ok_ = ok_ && ::EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1;
}

Result<Sha256Digest> Sha256::finish() {
  Sha256Digest digest;
  const bool done = std::exchange(ok_, false) &&
                    ::EVP_DigestFinal_ex(context_.get(), digest.buffer(), nullptr) == 1;
  if (!done) return takeOpenSslError("SHA-256");
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
