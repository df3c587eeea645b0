#pragma once

#include "Cli/Pages/CommandPage.h"

#include <string>
#include <vector>

namespace varo::cli {

/// "varobinary-blob-path" for "blob path".
[[nodiscard]] std::string manPageName(const CommandPage& page);

/// The page in the macros of man(7), section 1. `date` is shown as it is.
[[nodiscard]] std::string manPage(const CommandPage& page, const std::vector<CommandPage>& all,
                                  const std::string& date);

}  // namespace varo::cli
