#include "Platform/Crypto/Md5.h"

#include "Platform/Crypto/OpenSslError.h"
#include "Platform/Crypto/Sha256.h"

#include <array>
#include <cstddef>

namespace varo::platform {

Result<std::string> Md5::hex() {
  constexpr std::size_t kSize = 16;
  std::array<unsigned char, kSize> digest{};
  if (!digest_.finish(digest.data())) return takeOpenSslError("MD5");
  return hexEncode({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace varo::platform
