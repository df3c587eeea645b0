#pragma once

#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::platform {
class VRODatabaseAPI;
}

namespace varo::binary {

/// The statements through which the library reads and writes the application's database. Each is
/// one statement, committed by itself. Where-conditions are equality tests on every key, joined by
/// AND. Nothing is thrown: failures show in the result and the log. Thread-safe.
class SQLiteUtil {
 public:
  SQLiteUtil() = delete;

  /// The absolute path of the database of this name, below the user's library directory. Empty,
  /// which no operation opens, for a name that would lead out of that directory.
  [[nodiscard]] static std::string pathOfDatabase(const std::string& databaseName);
  /// The same, and logged.
  [[nodiscard]] static std::string getDBPath(const std::string& databaseName);

  /// The shared handle: the database that the last operation opened, or null where it could not.
  [[nodiscard]] static std::shared_ptr<platform::VRODatabaseAPI> databaseApi();

  /// Opens the database into the shared handle. It must exist.
  static bool checkAndInitializeDatabaseWithDBPath(const std::string& dbPath);

  /// Inserts a row and returns its id; 0 when the database could not be opened or the statement not
  /// be built, -1 when it failed; `error`, which may be null, is set then.
  static std::int64_t insertStatementForDatabase(const std::string& dbPath,
                                                 const std::string& ForTable,
                                                 const platform::Dictionary& withValues,
                                                 platform::ErrorPtr* error = nullptr);

  /// The rows that match, each a `Dictionary` column -> value, SQL NULL as the text "NULL"; none
  /// when they could not be read.
  [[nodiscard]] static std::optional<platform::Array> queryDataForDatabase(
      const std::string& dbPath, const std::string& ForTable,
      const platform::Dictionary& withWhereClause);
  /// The same with why they could not be read, and of these columns only; of all where none is
  /// named. Errors: as `updateRows`.
  [[nodiscard]] static platform::Result<platform::Array> queryRows(
      const std::string& dbPath, const std::string& forTable,
      const platform::Dictionary& withWhereClause, const std::vector<std::string>& columns = {});

  /// True also when no row matched.
  static bool updateStatementForDatabase(const std::string& dbPath, const std::string& forTable,
                                         const platform::Dictionary& withColumnsToBeUpdated,
                                         const platform::Dictionary& withWhereClause);
  /// The same with what a caller may want to know: how many rows matched, or why it failed. None
  /// matches in a view whose trigger changes other tables. Errors: those of `VRODatabaseAPI` and of
  /// `VROPreparedStatementBuilder`.
  [[nodiscard]] static platform::Result<std::int64_t> updateRows(
      const std::string& dbPath, const std::string& forTable,
      const platform::Dictionary& withColumnsToBeUpdated,
      const platform::Dictionary& withWhereClause);
  /// The same for what nobody waits for: see `VRODatabaseAPI::executeLater`. `told` is called once,
  /// also by this call.
  static void updateRowsLater(
      const std::string& dbPath, const std::string& forTable,
      const platform::Dictionary& withColumnsToBeUpdated,
      const platform::Dictionary& withWhereClause,
      std::function<void(const platform::Result<std::int64_t>& changedRows)> told);
  static bool deleteStatementForDatabase(const std::string& dbPath, const std::string& forTable,
                                         const platform::Dictionary& withWhereClause);

  // What these operations log, of statements that were executed in one transaction with others.

  /// Of a query that has succeeded; likewise of an update.
  static void logQuery(const std::string& dbPath, const std::string& forTable,
                       const platform::Dictionary& withWhereClause);
  static void logInsert(const std::string& dbPath, const std::string& forTable,
                        const platform::Dictionary& withValues,
                        const platform::Result<std::int64_t>& id);
  static void logUpdate(const std::string& dbPath, const std::string& forTable,
                        const platform::Dictionary& withColumnsToBeUpdated,
                        const platform::Dictionary& withWhereClause);
};

}  // namespace varo::binary
