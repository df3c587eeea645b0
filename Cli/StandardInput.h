#pragma once

#include "Platform/Foundation/Result.h"

#include <string>

namespace varo::cli {

class Interrupts;

/// Copies everything that `descriptor` has into a new file at `path`, piece by piece: an upload
/// needs to know the size and to read at any place. Errors: domain "POSIX"; ECANCELED after an
/// interrupt.
[[nodiscard]] platform::Result<void> spool(int descriptor, const std::string& path,
                                           const Interrupts& interrupts);

}  // namespace varo::cli
