#pragma once

#include "Platform/Foundation/Error.h"

#include <string_view>

namespace varo::platform {

/// What OpenSSL's error queue of this thread says; empties the queue.
[[nodiscard]] ErrorPtr takeOpenSslError(std::string_view what);

}  // namespace varo::platform
