#pragma once

#include "Cli/Failures/FailureText.h"

#include <string>

namespace varo::cli {

/// Says of a download that could not be stored why, and what to look at. `failure` is what its
/// error context has under "PersistenceError": a text, and the "path", below `directory` where it
/// has none. Where the folder is missing since it cannot be made, that is the cause: the failure
/// itself only says that there is no such file.
void describeStorageFailure(const platform::Dictionary& failure, const std::string& directory,
                            FailureText& text);

}  // namespace varo::cli
