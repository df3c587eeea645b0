#pragma once

#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varo::cli {

class Session;

struct UploadOptions {
  std::string url;
  /// A path, or "-" for standard input.
  std::string file;
  /// Empty: the last component of the path, or "stdin".
  std::string name;
  std::optional<std::string> nameSpace;
  std::optional<std::string> securityKey;
  /// Further metadata.
  platform::Dictionary meta;
  /// Bytes; none: the library's default.
  std::optional<std::int64_t> chunkSize;
  /// Give the library the bytes instead of the path.
  bool raw = false;
};

/// Uploads one file. Returns the exit status.
[[nodiscard]] int run(Session& session, const UploadOptions& options);

}  // namespace varo::cli
