#pragma once

#include "Cli/Arguments/BlobRecord.h"

namespace varo::cli {

class Session;

struct BlobDeleteOptions {
  BlobRecord record;
  /// Remove the file now, and not when the sync engine has deleted the blob on the service.
  bool beforeSync = false;
};

/// Records the deletion of a record's binary column for the sync engine. Returns the exit status.
[[nodiscard]] int run(Session& session, const BlobDeleteOptions& options);

}  // namespace varo::cli
