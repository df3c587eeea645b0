#pragma once

#include "Cli/Arguments/BlobRecord.h"
#include "Cli/Failures/FailureText.h"
#include "Platform/Foundation/Value.h"

namespace varo::cli {

/// A failure of an operation on `record` as people read it. The library's errors do not say in
/// which database it looked and what is missing there, so this function looks again and says it. A
/// record without keys stands for the whole table.
[[nodiscard]] FailureText describeBlobFailure(const BlobRecord& record,
                                              const platform::Value& failure);

}  // namespace varo::cli
