#include "Sandbox/Online/Digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <stdexcept>

namespace varo::sandbox {
namespace {

constexpr std::size_t kDigestSize = 32;
using DigestBuffer = std::array<unsigned char, kDigestSize>;

const unsigned char* bytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string textOf(const DigestBuffer& buffer) { return {buffer.begin(), buffer.end()}; }

void expect(bool worked) {
  if (!worked) throw std::runtime_error("the cryptographic library failed");
}

}  // namespace

struct Digest::Context {
  std::unique_ptr<EVP_MD_CTX, decltype(&::EVP_MD_CTX_free)> handle{::EVP_MD_CTX_new(),
                                                                   &::EVP_MD_CTX_free};
};

std::string hexText(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

Digest::Digest(Kind kind) : context_(std::make_unique<Context>()) {
  const EVP_MD* const algorithm = kind == Kind::kMd5 ? ::EVP_md5() : ::EVP_sha256();
  expect(context_->handle && ::EVP_DigestInit_ex(context_->handle.get(), algorithm, nullptr) == 1);
}

Digest::~Digest() = default;

void Digest::update(std::string_view bytes) {
  expect(::EVP_DigestUpdate(context_->handle.get(), bytes.data(), bytes.size()) == 1);
}

std::string Digest::hex() {
  DigestBuffer buffer{};
  unsigned int size = 0;
  expect(::EVP_DigestFinal_ex(context_->handle.get(), buffer.data(), &size) == 1);
  return hexText(textOf(buffer).substr(0, size));
}

std::string Digest::hexOf(std::string_view bytes) {
  Digest digest;
  digest.update(bytes);
  return digest.hex();
}

std::string hmacSha256(std::string_view key, std::string_view bytes) {
  DigestBuffer buffer{};
  unsigned int length = 0;
  expect(::HMAC(::EVP_sha256(), key.data(), static_cast<int>(key.size()), bytesOf(bytes),
                bytes.size(), buffer.data(), &length) != nullptr &&
         length == buffer.size());
  return textOf(buffer);
}

bool equalInConstantTime(std::string_view a, std::string_view b) {
  // A comparison that stops at the first difference would tell, by its time, how much of a guessed
  // signature is right.
  return a.size() == b.size() && ::CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace varo::sandbox
