#pragma once

#include "Cli/Arguments/Command.h"

#include <vector>

namespace varo::cli {

/// All commands, in the order of the list in Cli/CMakeLists.txt, and their groups.
[[nodiscard]] CommandSet commandSet();

/// The commands alone: generated from that list.
[[nodiscard]] std::vector<Command> listedCommands();

}  // namespace varo::cli
