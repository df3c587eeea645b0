#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Result.h"
#include "varo/outcome.h"
#include "varo/source.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace varo::detail {

/// The file that a download is stored in, from its path and `IfExists`.
struct PreparedFile {
  /// As it was given; the file may get another name, see `IfExists::kNumber`.
  std::filesystem::path path;
  /// Where bytes that are received here get the file's name without a copy.
  std::string directory;
  /// Stores the bytes, and gives the path that they have.
  std::function<platform::Result<std::string>(const platform::Data& bytes)> store;
  /// The same with a file that stands in the directory under another name, and has that no more.
  std::function<platform::Result<std::string>(const platform::File& file)> move;
  /// Set where there is nothing to fetch: the file is there and is kept.
  std::optional<std::filesystem::path> kept;
};

/// Looks at what is there. `Kind::kConflict` for a file that must not be, `kLocalFile` for a
/// directory that is not there, `kInvalidArgument` for a path that names no file.
[[nodiscard]] Outcome<PreparedFile> prepare(std::filesystem::path path, IfExists ifExists);

/// Calls `sink` with the bytes, piece by piece, on this thread. `Kind::kLocalFile` for what it
/// throws, and for bytes that cannot be read; `about` names the transfer.
[[nodiscard]] Outcome<void> handTo(const Sink& sink, const platform::Data& bytes,
                                   const std::string& about);

}  // namespace varo::detail
