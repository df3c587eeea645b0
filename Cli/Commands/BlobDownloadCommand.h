#pragma once

#include "Cli/Arguments/BlobRecord.h"
#include "Platform/Foundation/Value.h"

namespace varo::cli {

class Session;

struct BlobDownloadOptions {
  BlobRecord record;
  /// The configuration as the library takes it.
  platform::Dictionary config;
};

/// Downloads the binary column of a record into its file, from where an earlier run stopped. An
/// interrupt pauses the download. Returns the exit status.
[[nodiscard]] int run(Session& session, const BlobDownloadOptions& options);

}  // namespace varo::cli
