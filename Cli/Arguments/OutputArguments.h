#pragma once

#include "Cli/Arguments/CommandArguments.h"
#include "varo/source.h"

#include <optional>
#include <string>
#include <string_view>

namespace varo::cli {

/// Standard output, where a file is asked for.
inline constexpr std::string_view kStandardOutput = "-";

/// Declares `-o` and `--if-exists` of `command`.
void declareOutput(CommandArguments& arguments, std::optional<std::string>& output,
                   std::optional<IfExists>& ifExists);

/// Refuses bytes on standard output beside events, and `--if-exists` where no file is made. To be
/// called when the arguments have their values.
void checkOutput(const GlobalOptions& global, const std::string& command,
                 const std::optional<std::string>& output, const std::optional<IfExists>& ifExists);

}  // namespace varo::cli
