#pragma once

#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Result.h"

#include <cstdint>
#include <string_view>

namespace varo::binary {

/// Which hash a keyed code is made with; a 32-bit code of the interface.
enum class HmacAlgorithm : std::uint32_t { kSha256 = 2 };

/// The keyed code that request signers build on. Stateless, thread-safe.
class BaseHMACGenerator {
 public:
  /// The 32 bytes of the HMAC (RFC 2104) of `data`. Any other number than those of `HmacAlgorithm`
  /// is an error (domain "Crypto"), and on purpose: a code made with another hash than was asked
  /// for would only be refused by the peer, who cannot say why.
  [[nodiscard]] static platform::Result<platform::Sha256Digest> HmacSHA256(
      std::string_view data, std::string_view withKey, HmacAlgorithm withAlgorithm);

 protected:
  BaseHMACGenerator() = default;
  ~BaseHMACGenerator() = default;
};

}  // namespace varo::binary
