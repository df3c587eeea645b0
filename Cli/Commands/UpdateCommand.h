#pragma once

#include "Platform/Foundation/Value.h"

#include <string>

namespace varo::cli {

class Session;

struct UpdateOptions {
  std::string url;
  std::string fileId;
  platform::Dictionary meta;
};

/// Changes the metadata of one file. Returns the exit status.
[[nodiscard]] int run(Session& session, const UpdateOptions& options);

}  // namespace varo::cli
