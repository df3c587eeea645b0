#pragma once

#include "Platform/Foundation/Array.h"

#include <cstdint>

namespace varo::platform {

/// What a statement has left behind.
struct StatementOutcome {
  /// A select's rows, a `Dictionary` each.
  Array rows;
  /// An insert's row id; 0 where it has none (a table without row ids, a view).
  std::int64_t insertedRow = 0;
  /// Rows that an insert, update or delete has changed, also to what they were; those that a view's
  /// trigger changes in other tables do not count.
  std::int64_t changedRows = 0;
};

}  // namespace varo::platform
