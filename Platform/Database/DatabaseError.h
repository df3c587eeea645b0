#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace varo::platform {

/// Domain of SQLite's errors; the code is its extended result code, the path of the database is in
/// the user information under "path". 5 (and 5 in the lowest byte): locked by another connection
/// for longer than the busy time-out, worth a retry; 13: disk full; 26: not a database.
inline constexpr std::string_view kSqliteErrorDomain = "SQLite";

/// Domain of what this layer refuses before SQLite sees it. Retrying never helps.
inline constexpr std::string_view kDatabaseErrorDomain = "Database";
enum class DatabaseError : std::int64_t {
  /// A path with a NUL in it.
  kInvalidPath = 1,
  kInvalidOption = 2,
  kInvalidBuilderType = 3,
  /// Empty, or with a NUL in it; likewise the column's.
  kInvalidTableName = 4,
  kInvalidColumnName = 5,
  /// A value without an SQL form, or too many bytes.
  kInvalidValue = 6,
  /// A map that statements of this type don't have.
  kMapNotExpected = 7,
  kNothingToUpdate = 8,
  /// An update or a delete that would hit every row.
  kNoCondition = 9,
};

[[nodiscard]] ErrorPtr makeDatabaseError(DatabaseError code, std::string description);

/// An error of SQLite's about the database at `path`. `code` is the extended result code.
[[nodiscard]] ErrorPtr makeSqliteError(int code, std::string description, const std::string& path);

}  // namespace varo::platform
