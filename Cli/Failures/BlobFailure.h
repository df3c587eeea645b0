#pragma once

#include "Cli/Arguments/BlobRecord.h"
#include "Cli/Failures/FailureText.h"
#include "Platform/Foundation/Value.h"

namespace varo::cli {

/// A failure of an operation on `record` as people read it. The library's errors do not say which
/// database was looked at and what is missing in it; this looks again and does.
[[nodiscard]] FailureText describeBlobFailure(const BlobRecord& record,
                                              const platform::Value& failure);

}  // namespace varo::cli
