#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "varo/outcome.h"
#include "varo/source.h"

#include <filesystem>
#include <memory>
#include <optional>

namespace varo::detail {

/// Where a download goes, from `Destination` and `IfExists`.
struct PreparedDestination {
  binary::OperationSettings::Destination destination;
  /// Set where there is nothing to fetch: the file is there and is kept.
  std::optional<std::filesystem::path> kept;
};

/// Looks at what is there. `Kind::kConflict` for a file that must not be, `kLocalFile` for a
/// directory that is not there, `kInvalidArgument` for a path that names no file or an empty sink.
[[nodiscard]] Outcome<PreparedDestination> prepare(Destination to, IfExists ifExists);

}  // namespace varo::detail
