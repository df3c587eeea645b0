#include "Platform/Crypto/HmacSha256.h"

#include "Platform/Crypto/OpenSslError.h"
#include "Platform/Crypto/OpenSslLibrary.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <array>
#include <utility>

namespace varo::platform {
namespace {

/// Made once, with the digest found among the library's providers, which is most of the work of a
/// short code; each use starts with a copy. Never freed. Null where no provider has it.
const EVP_MAC_CTX* prepared() noexcept {
  static const EVP_MAC_CTX* const context = []() -> EVP_MAC_CTX* {
    initializeOpenSsl();
    EVP_MAC_CTX* made = ::EVP_MAC_CTX_new(::EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    std::array<char, 7> digest = {"SHA256"};
    const std::array<OSSL_PARAM, 2> parameters = {
        ::OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest.data(), 0),
        ::OSSL_PARAM_construct_end()};
    // A context without a key cannot be copied.
    const unsigned char noKey = 0;
    if (made != nullptr && ::EVP_MAC_init(made, &noKey, 0, parameters.data()) == 1) return made;
    ::EVP_MAC_CTX_free(made);
    return nullptr;
  }();
  return context;
}

const unsigned char* unsignedBytes(std::string_view bytes) noexcept {
  // A null key would mean "the one set before", also where its length is 0.
  return reinterpret_cast<const unsigned char*>(bytes.empty() ? "" : bytes.data());
}

}  // namespace

// Wipes the key as well.
void HmacSha256::Free::operator()(evp_mac_ctx_st* context) const noexcept {
  ::EVP_MAC_CTX_free(context);
}

Result<HmacSha256> HmacSha256::withKey(std::string_view key) {
  Context keyed(prepared() != nullptr ? ::EVP_MAC_CTX_dup(prepared()) : nullptr);
  const bool done =
      keyed != nullptr && ::EVP_MAC_init(keyed.get(), unsignedBytes(key), key.size(), nullptr) == 1;
  if (!done) return takeOpenSslError("HMAC-SHA256");
  return HmacSha256(std::move(keyed));
}

Result<Sha256Digest> HmacSha256::of(std::string_view bytes) const {
  const Context context(::EVP_MAC_CTX_dup(keyed_.get()));
  Sha256Digest digest;
  std::size_t length = 0;
  const bool done =
      context != nullptr &&
      ::EVP_MAC_update(context.get(), unsignedBytes(bytes), bytes.size()) == 1 &&
      ::EVP_MAC_final(context.get(), digest.buffer(), &length, Sha256Digest::kSize) == 1;
  if (!done) return takeOpenSslError("HMAC-SHA256");
  return digest;
}

Result<Sha256Digest> HmacSha256::of(std::string_view key, std::string_view bytes) {
  const Result<HmacSha256> code = withKey(key);
  if (!code) return code.error();
  return code->of(bytes);
}

}  // namespace varo::platform
