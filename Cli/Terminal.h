#pragma once

#include <cstddef>
#include <optional>

namespace varo::cli {

/// What the process's standard error and standard output are connected to. Asked anew each time,
/// since a terminal may be resized.
namespace terminal {

enum class Stream { kOutput, kError };

[[nodiscard]] bool isTerminal(Stream stream);

/// Columns, when the stream is a terminal that tells.
[[nodiscard]] std::optional<std::size_t> width(Stream stream);

/// Whether to colour: on a terminal that can, unless the variable NO_COLOR is set to anything.
[[nodiscard]] bool mayColour(Stream stream);

}  // namespace terminal

}  // namespace varo::cli
