#pragma once

#include "Platform/Foundation/Value.h"

namespace varo::cli {

class Session;

struct ObjectGetOptions {
  /// The configuration as the library takes it.
  platform::Dictionary config;
  /// The file parameters.
  platform::Dictionary params;
  /// The options dictionary, before the entries of the command line.
  platform::Dictionary options;
  /// Write the bytes to standard output instead of a file.
  bool stream = false;
};

/// Downloads one object, into a file or to standard output. Returns the exit status.
[[nodiscard]] int run(Session& session, const ObjectGetOptions& options);

}  // namespace varo::cli
