#pragma once

#include "Platform/Foundation/Value.h"

namespace varo::cli {

struct GlobalOptions;

/// The configuration of an object command with the headers of the command line, which win over
/// those in the file. A token that was not given as a header is none of them.
[[nodiscard]] platform::Dictionary objectConfiguration(const GlobalOptions& global,
                                                       platform::Dictionary config);

/// The options dictionary of an object command: `fromFile`, over it the entries of the command
/// line, over these the token.
[[nodiscard]] platform::Dictionary objectOptions(const GlobalOptions& global,
                                                 platform::Dictionary fromFile);

}  // namespace varo::cli
