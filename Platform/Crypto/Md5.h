#pragma once

#include "Platform/Crypto/OpenSslDigest.h"
#include "Platform/Foundation/Result.h"

#include <string>
#include <string_view>

namespace varo::platform {

/// The MD5 digest (RFC 1321) of bytes that come piece by piece: what many stores name the parts of
/// an upload by. Not for what somebody could want to forge. Not thread-safe.
class Md5 {
 public:
  /// A failure shows up in `hex`.
  void update(std::string_view bytes) noexcept { digest_.update(bytes); }
  /// The digest of all that was passed to `update`, in lower-case hexadecimal. Once. An error of
  /// `kCryptoErrorDomain` also where the system's rules allow no MD5.
  [[nodiscard]] Result<std::string> hex();

 private:
  OpenSslDigest digest_{OpenSslDigest::Algorithm::kMd5};
};

}  // namespace varo::platform
