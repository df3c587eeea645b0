#pragma once

#include "Cli/Failures/FailureText.h"

#include <string>

namespace varo::cli {

/// Says why a download could not be stored, and what to check.
/// - `failure` is what its error context has under "PersistenceError": a text and, where known, the
///   "path"; without one the file is taken to be below `directory`.
/// - A folder that is missing because it cannot be made is told as the cause: the failure itself
///   only says that there is no such file.
void describeStorageFailure(const platform::Dictionary& failure, const std::string& directory,
                            FailureText& text);

}  // namespace varo::cli
