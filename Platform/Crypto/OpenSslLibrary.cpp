#include "Platform/Crypto/OpenSslLibrary.h"

#include <openssl/crypto.h>

namespace varo::platform {

void initializeOpenSsl() noexcept {
  // A failure shows in the first digest or connection, which says so.
  static_cast<void>(::OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr));
}

}  // namespace varo::platform
