#include "Binary/Binary/Utils/BaseHMACGenerator.h"

#include "Platform/Crypto/HmacSha256.h"
#include "Platform/Foundation/Error.h"

namespace varo::binary {

platform::Result<platform::Sha256Digest> BaseHMACGenerator::HmacSHA256(
    std::string_view data, std::string_view withKey, HmacAlgorithm withAlgorithm) {
  if (withAlgorithm != HmacAlgorithm::kSha256) {
    return platform::Error::make(platform::kCryptoErrorDomain, 0, "No such HMAC algorithm");
  }
  return platform::HmacSha256::of(withKey, data);
}

}  // namespace varo::binary
