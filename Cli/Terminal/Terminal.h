#pragma once

#include <cstddef>
#include <optional>

namespace varo::cli {

/// What the process's standard streams are connected to. Asked anew each time,
/// since a terminal may be resized.
namespace terminal {

enum class Stream { kInput, kOutput, kError };

[[nodiscard]] bool isTerminal(Stream stream);

/// A terminal on which lines can be replaced in place: not one whose TERM is "dumb".
[[nodiscard]] bool canReplaceLines(Stream stream);

/// Columns, when the stream is a terminal that tells.
[[nodiscard]] std::optional<std::size_t> width(Stream stream);

/// Whether to colour: on a terminal that can, unless the variable NO_COLOR is set to anything.
[[nodiscard]] bool mayColour(Stream stream);

/// Puts something where a standard stream was closed, on which reads and writes fail as on a closed
/// one. Else the next file that is opened would be there, and what is printed would go into it.
/// Call before anything is opened.
void occupyClosedStreams();

}  // namespace terminal

}  // namespace varo::cli
