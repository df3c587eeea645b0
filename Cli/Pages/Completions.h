#pragma once

#include "Cli/Pages/CommandPage.h"

#include <string>
#include <vector>

namespace varo::cli {

// What the shells complete behind "varobinary": commands, options, choices, files and directories.
// A script needs nothing but its shell.

[[nodiscard]] std::string bashCompletion(const std::vector<CommandPage>& pages);
[[nodiscard]] std::string zshCompletion(const std::vector<CommandPage>& pages);
[[nodiscard]] std::string fishCompletion(const std::vector<CommandPage>& pages);

}  // namespace varo::cli
