#pragma once

#include "Cli/Arguments/BlobRecord.h"

namespace varo::cli {

class Session;

struct BlobPathOptions {
  BlobRecord record;
};

/// Prints where the file of a record's binary column is. Returns the exit status.
[[nodiscard]] int run(Session& session, const BlobPathOptions& options);

}  // namespace varo::cli
