#pragma once

#include "Cli/Arguments/Command.h"

#include <string>
#include <string_view>

namespace varo::cli {

/// The help of a command or of a group of commands, or the overview for the empty name.
/// Precondition: there is such a command or group.
[[nodiscard]] std::string helpText(const CommandSet& commands, std::string_view name);

/// The same without its last line, which leads to the overview.
[[nodiscard]] std::string helpBody(const CommandSet& commands, std::string_view name);

/// One line: name and version.
[[nodiscard]] std::string versionText();

}  // namespace varo::cli
