#pragma once

#include "varo/outcome.h"

#include <chrono>
#include <string>
#include <vector>

namespace varo::detail {

/// What a command writes to its standard output; see `credentialsFromCommand`. Waits for its end.
/// Of more than 64 KiB the beginning alone. Precondition: there is a program. Thread-safe.
[[nodiscard]] Outcome<std::string> outputOf(const std::vector<std::string>& command,
                                            std::chrono::milliseconds timeout);

}  // namespace varo::detail
