#pragma once

#include "Cli/Run/Session.h"
#include "varo/files.h"

#include <string>
#include <vector>

namespace varo::cli {

/// Uploads the files side by side, each under its own name and otherwise with these options.
/// Returns the exit status, which is that of a failure where one of them failed.
[[nodiscard]] int uploadSeveral(Session& session, const std::string& url,
                                const std::vector<std::string>& files,
                                const varo::UploadOptions& options);

}  // namespace varo::cli
