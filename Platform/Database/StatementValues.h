#pragma once

#include "Platform/Foundation/DictionaryBuilder.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <vector>

struct sqlite3_stmt;

namespace varo::platform {

/// Binds the values to the parameters, in order. They must live, unchanged, until the statement is
/// reset and its bindings are cleared. `InsertedRowId` stands for `insertedRow`. Returns SQLite's
/// result code; SQLITE_MISMATCH for a value that a `VROPreparedStatement` must not have.
[[nodiscard]] int bindValues(sqlite3_stmt* statement, const std::vector<Value>& values,
                             std::int64_t insertedRow);

/// The row at which the statement stands, made with `rows` as those before it; none when there is
/// no memory for it.
[[nodiscard]] std::optional<Dictionary> readRow(sqlite3_stmt* statement, DictionaryBuilder& rows);

}  // namespace varo::platform
