#include "Platform/Crypto/OpenSslError.h"

#include "Platform/Crypto/Sha256.h"

#include <fmt/format.h>
#include <openssl/err.h>

#include <array>

namespace varo::platform {

ErrorPtr takeOpenSslError(std::string_view what) {
  const unsigned long code = ::ERR_peek_last_error();
  if (code == 0) return Error::make(kCryptoErrorDomain, 0, fmt::format("{} failed", what));
  std::array<char, 256> text{};
  ::ERR_error_string_n(code, text.data(), text.size());
  // What is left in the thread's queue would be taken for the reason of a later failure.
  ::ERR_clear_error();
  return Error::make(kCryptoErrorDomain, static_cast<std::int64_t>(code),
                     fmt::format("{} failed: {}", what, text.data()));
}

}  // namespace varo::platform
