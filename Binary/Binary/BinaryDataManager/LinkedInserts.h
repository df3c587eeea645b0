#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varo::binary {

/// A row to insert, and the column of other rows that is to have its id as decimal text.
struct LinkedInsert {
  std::string table;
  platform::Dictionary values;
  std::string linkedTable;
  std::string linkColumn;
  platform::Dictionary where;
};

/// What became of a `LinkedInsert`.
struct LinkedRow {
  /// The positive id of the new row, or that the database stayed locked. None where nothing has
  /// changed for any other reason.
  std::optional<platform::Result<std::int64_t>> id;
  /// How many rows were linked, as `SQLiteUtil::updateRows` counts them.
  std::int64_t changedRows = 0;
};

/// Carries out those whose link column reads "NULL" in the first row that matches, each as the one
/// before it has left the database: insert and link both or neither, and all of them in one
/// transaction where that succeeds. The outcomes are in the order of `inserts`.
///
/// Logs nothing. Where there is no memory it throws, but never after a change. Thread-safe.
[[nodiscard]] std::vector<LinkedRow> insertLinked(const std::string& databasePath,
                                                  const std::vector<LinkedInsert>& inserts);

}  // namespace varo::binary
