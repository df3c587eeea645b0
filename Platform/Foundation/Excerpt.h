#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Dictionary.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace varo::platform {

/// How much of a response stands in logs and errors, in bytes.
inline constexpr std::size_t kExcerptLimit = 4096;

/// The start of a response for logs and errors: at most `kExcerptLimit` bytes of it, as UTF-8, with
/// secrets redacted (`redactSecrets`), those also that `sent`, the request's headers or parameters,
/// has under secret keys. Of bytes that cannot be read the reason. Thread-safe.
[[nodiscard]] std::string excerptOf(std::string_view bytes, const Dictionary& sent = {});
[[nodiscard]] std::string excerptOf(const Data& data, const Dictionary& sent = {});

}  // namespace varo::platform
