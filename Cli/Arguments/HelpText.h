#pragma once

#include <string>
#include <string_view>

namespace varo::cli {

/// The help of a command, or the overview for the empty name. Precondition: there is such a
/// command.
[[nodiscard]] std::string helpText(std::string_view command);

/// One line: name and version.
[[nodiscard]] std::string versionText();

}  // namespace varo::cli
