#pragma once

#include <openssl/evp.h>

#include <string>
#include <string_view>

namespace varo::test {

/// What a back end makes of `bytes` (RFC 4648, section 4).
[[nodiscard]] inline std::string base64Of(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                   reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

}  // namespace varo::test
