#pragma once

#include "Cli/FailureText.h"

#include <string>

namespace varo::cli {

/// Says of a download that could not be stored at `path` (empty where that is not known, below
/// `directory` then) what to look at. Where the folder is missing since it cannot be made, that is
/// the cause: the failure itself only says that there is no such file.
void describeStorageFailure(const std::string& path, const std::string& directory,
                            FailureText& text);

}  // namespace varo::cli
