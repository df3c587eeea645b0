#pragma once

#include "Platform/Foundation/Result.h"

#include <string_view>

namespace varo::platform {
class Data;
}

namespace varo::cli {

class Interrupts;

/// Writes all bytes of `data` to `descriptor`, piece by piece. Waits for a reader that is slow, but
/// not past an interrupt. Errors: domain "POSIX"; ECANCELED after an interrupt, EPIPE where nobody
/// reads any more.
[[nodiscard]] platform::Result<void> writeBytes(int descriptor, const platform::Data& data,
                                                const Interrupts& interrupts);
[[nodiscard]] platform::Result<void> writeBytes(int descriptor, std::string_view bytes,
                                                const Interrupts& interrupts);

}  // namespace varo::cli
