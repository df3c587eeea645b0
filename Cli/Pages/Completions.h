#pragma once

#include "Cli/Pages/CommandPage.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace varo::cli {

enum class Shell { kBash, kZsh, kFish };

/// In the order of the enumeration.
inline constexpr std::array<std::string_view, 3> kShellNames{"bash", "zsh", "fish"};

/// What the shell completes behind "varobinary": commands, options, choices, files and directories.
/// The script needs nothing but its shell.
[[nodiscard]] std::string completion(Shell shell, const std::vector<CommandPage>& pages);

}  // namespace varo::cli
