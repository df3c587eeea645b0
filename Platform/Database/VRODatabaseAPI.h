#pragma once

#include "Platform/Database/StatementGroup.h"
#include "Platform/Database/VROPreparedStatement.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

/// What SQL's NULL is read as.
inline constexpr std::string_view kSqlNullText = "NULL";

/// Option of `initWithPath`: milliseconds that a statement waits for other connections' locks, an
/// integer from 0 to 3,600,000. 5,000 by default.
inline constexpr std::string_view kBusyTimeoutOption = "busyTimeoutMs";

/// An SQLite database that the application owns: statements on it, each committed by itself or with
/// its group.
///
/// The database is used as it is: it must exist, its schema and journal mode stay, and SQLite's
/// settings of a connection are its defaults (synchronous is FULL).
///
/// Connections stay open for a second or two after their last statement, so statements that follow
/// each other don't pay for opening one. Every `initWithPath` looks whether the path still shows
/// the file that is open; one that was replaced is opened anew, one that is gone is an error. As
/// for any connection, a file should be replaced in one step (renamed over), and a write-ahead log
/// must not stay behind for the new file: in that mode wait until the "-wal" file is gone.
///
/// Errors: domain "SQLite" (`kSqliteErrorDomain`), "Database" or "POSIX". Error parameters may be
/// null and are set on failure only. Thread-safe; statements on one path run one at a time.
class VRODatabaseAPI {
 public:
  /// Opens the database, or fails: nothing at the path, no regular file, no database. None on
  /// failure. One that is locked opens; the statement waits then.
  [[nodiscard]] static std::shared_ptr<VRODatabaseAPI> initWithPath(const std::string& path,
                                                                    const Dictionary& options,
                                                                    ErrorPtr* error);

  /// The id of the new row; -1 on failure.
  [[nodiscard]] std::int64_t executeSingleInsertStatement(const VROPreparedStatement& statement,
                                                          ErrorPtr* error) const;
  /// The rows, each a `Dictionary` column -> value: NULL as the text "NULL", a BLOB as `Data`, an
  /// integer, a real number or a text as such. None on failure.
  [[nodiscard]] std::optional<Array> executeSelectPreparedStatement(
      const VROPreparedStatement& statement, ErrorPtr* error) const;
  /// Whether it succeeded.
  bool executePreparedStatement(const VROPreparedStatement& statement, ErrorPtr* error) const;
  /// How many rows an insert, update or delete has changed, also to what they were; none of a view
  /// whose trigger changes those of other tables.
  [[nodiscard]] Result<std::int64_t> executeAndCountChanges(
      const VROPreparedStatement& statement) const;
  /// The same for what nobody waits for: returns at once, and the next commit of this process takes
  /// it along, within a moment. Until then a read does not show it; what is written after it comes
  /// after it. `told` is called once, on some thread, without a lock. After the runtime's shutdown,
  /// or where there is no timer to be had, this call commits it and calls `told` itself.
  void executeLater(VROPreparedStatement statement,
                    std::function<void(const Result<std::int64_t>& changedRows)> told) const;
  /// The outcome of each group, in their order. They share a commit where they can; one that cannot
  /// be executed keeps no other from it.
  [[nodiscard]] std::vector<GroupOutcome> executeGroups(
      const std::vector<StatementGroup>& groups) const;

 private:
  struct Badge {};

 public:
  VRODatabaseAPI(Badge, std::string path, std::chrono::milliseconds busyTimeout);

 private:
  const std::string path_;
  const std::chrono::milliseconds busyTimeout_;
};

}  // namespace varo::platform
