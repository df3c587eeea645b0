#pragma once

#include <cstddef>

namespace varo::platform::system {

/// How many files and sockets this process may have open at once, as the system has it now.
/// Thread-safe.
[[nodiscard]] std::size_t openFileLimit() noexcept;

/// How many at once of what needs a descriptor each: a quarter of the limit, since transfers have a
/// socket each, uploads a file besides, large responses one, and the application its own. At least
/// 8, at most `most`.
[[nodiscard]] std::size_t shareOfOpenFiles(std::size_t most) noexcept;

}  // namespace varo::platform::system
