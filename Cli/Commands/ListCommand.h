#pragma once

#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <optional>
#include <string>

namespace varo::cli {

class Session;

struct ListOptions {
  std::string url;
  /// A "$filter" expression; empty for all files.
  std::string criteria;
};

/// Lists the files of an object service. Returns the exit status.
[[nodiscard]] int run(Session& session, const ListOptions& options);

/// The records of a list result as a table with a total below; `width` limits its columns.
[[nodiscard]] std::string describeFiles(const platform::Dictionary& result,
                                        std::optional<std::size_t> width);

}  // namespace varo::cli
