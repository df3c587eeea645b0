#pragma once

#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>

namespace varo::cli {

class Session;

struct DeleteOptions {
  std::string url;
  /// Either this, or what the metadata of the files must hold.
  std::optional<std::string> fileId;
  platform::Dictionary where;
};

struct AbortOptions {
  std::string url;
  std::string fileId;
};

/// Deletes one file, or those whose metadata match. Returns the exit status.
[[nodiscard]] int run(Session& session, const DeleteOptions& options);

/// Gives up an upload that was not committed. Returns the exit status.
[[nodiscard]] int run(Session& session, const AbortOptions& options);

}  // namespace varo::cli
