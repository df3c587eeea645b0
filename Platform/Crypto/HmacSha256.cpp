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

}  // namespace

class HmacSha256::Context {
 public:
  explicit Context(std::string_view key) {
    if (context_ == nullptr) return;
    // A null key would mean "the one set before", also where its length is 0.
    const char* bytes = key.empty() ? "" : key.data();
    ok_ = ::EVP_MAC_init(context_.get(), reinterpret_cast<const unsigned char*>(bytes), key.size(),
                         nullptr) == 1;
  }

  void update(std::string_view bytes) noexcept {
    ok_ = ok_ &&
          ::EVP_MAC_update(context_.get(), reinterpret_cast<const unsigned char*>(bytes.data()),
                           bytes.size()) == 1;
  }

  bool finish(Sha256Digest& digest) noexcept {
    std::size_t length = 0;
    return std::exchange(ok_, false) &&
           ::EVP_MAC_final(context_.get(), digest.buffer(), &length, Sha256Digest::kSize) == 1;
  }

 private:
  struct Deleter {
    // Wipes the key as well.
    void operator()(EVP_MAC_CTX* context) const noexcept { ::EVP_MAC_CTX_free(context); }
  };
  const std::unique_ptr<EVP_MAC_CTX, Deleter> context_{
      prepared() != nullptr ? ::EVP_MAC_CTX_dup(prepared()) : nullptr};
  bool ok_ = false;
};

HmacSha256::HmacSha256(std::string_view key) : context_(std::make_unique<Context>(key)) {}
HmacSha256::~HmacSha256() = default;

void HmacSha256::update(std::string_view bytes) noexcept { context_->update(bytes); }

Result<Sha256Digest> HmacSha256::finish() {
  Sha256Digest digest;
  if (!context_->finish(digest)) return takeOpenSslError("HMAC-SHA256");
  return digest;
}

Result<Sha256Digest> HmacSha256::of(std::string_view key, std::string_view bytes) {
  HmacSha256 code(key);
  code.update(bytes);
  return code.finish();
}

Result<Sha256Digest> HmacSha256::of(std::string_view key, const Data& data) {
  HmacSha256 code(key);
  const auto read = data.forEachPiece([&code](std::string_view piece) {
    code.update(piece);
    return Result<void>();
  });
  if (!read) return read.error();
  return code.finish();
}

}  // namespace varo::platform
