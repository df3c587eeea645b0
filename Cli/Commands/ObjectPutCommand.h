#pragma once

#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>

namespace varo::cli {

class Session;

struct ObjectPutOptions {
  /// The configuration as the library takes it.
  platform::Dictionary config;
  /// Stands in for the configuration's "FilePath".
  std::optional<std::string> file;
  /// The options dictionary, before the entries of the command line.
  platform::Dictionary options;
};

/// Uploads one object as a template says that it is asked for. Returns the exit status.
[[nodiscard]] int run(Session& session, const ObjectPutOptions& options);

}  // namespace varo::cli
