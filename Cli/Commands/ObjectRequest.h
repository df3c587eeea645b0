#pragma once

#include "Platform/Foundation/Value.h"

#include <memory>

namespace varo::binary {
class OperationSettings;
}

namespace varo::cli {

struct GlobalOptions;
class Session;

/// The configuration of an object command with the headers of the command line, which win over
/// those in the file. A token that was not given as a header is none of them.
[[nodiscard]] platform::Dictionary objectConfiguration(const GlobalOptions& global,
                                                       platform::Dictionary config);

/// The options dictionary of an object command: `fromFile`, over it the entries of the command
/// line with these settings, over these the token.
[[nodiscard]] platform::Dictionary objectOptions(
    const Session& session, platform::Dictionary fromFile,
    const std::shared_ptr<binary::OperationSettings>& settings);

}  // namespace varo::cli
