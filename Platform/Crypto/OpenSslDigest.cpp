#include "Platform/Crypto/OpenSslDigest.h"

#include "Platform/Crypto/OpenSslLibrary.h"

#include <openssl/evp.h>

#include <utility>

namespace varo::platform {
namespace {

EVP_MD* fetched(const char* name) noexcept {
  initializeOpenSsl();
  return ::EVP_MD_fetch(nullptr, name, nullptr);
}

/// Fetched once, since that is a search among the library's providers; never freed, so that it can
/// be used until the last thread ends. Null where no provider has it.
const EVP_MD* fetchedOnce(OpenSslDigest::Algorithm algorithm) noexcept {
  if (algorithm == OpenSslDigest::Algorithm::kMd5) {
    static const EVP_MD* const md5 = fetched("MD5");
    return md5;
  }
  static const EVP_MD* const sha256 = fetched("SHA256");
  return sha256;
}

}  // namespace

// Looked for first: that sets the library up.
OpenSslDigest::OpenSslDigest(Algorithm algorithm)
    : context_(fetchedOnce(algorithm) != nullptr ? ::EVP_MD_CTX_new() : nullptr),
      ok_(context_ != nullptr &&
          ::EVP_DigestInit_ex2(context_.get(), fetchedOnce(algorithm), nullptr) == 1) {}

void OpenSslDigest::update(std::string_view bytes) noexcept {
  ok_ = ok_ && ::EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1;
}

bool OpenSslDigest::finish(unsigned char* digest) noexcept {
  return std::exchange(ok_, false) && ::EVP_DigestFinal_ex(context_.get(), digest, nullptr) == 1;
}

void OpenSslDigest::Deleter::operator()(evp_md_ctx_st* context) const noexcept {
  ::EVP_MD_CTX_free(context);
}

}  // namespace varo::platform
