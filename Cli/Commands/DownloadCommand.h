#pragma once

#include <optional>
#include <string>

namespace varo::cli {

class Session;

struct DownloadOptions {
  std::string url;
  std::string fileId;
  std::optional<std::string> nameSpace;
  std::optional<std::string> securityKey;
};

/// Downloads one file into the downloads directory. Returns the exit status.
[[nodiscard]] int run(Session& session, const DownloadOptions& options);

}  // namespace varo::cli
