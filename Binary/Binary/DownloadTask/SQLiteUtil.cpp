#include "Binary/Binary/DownloadTask/SQLiteUtil.h"

#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/SourceNames.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Database/VRODatabaseAPI.h"
#include "Platform/Database/VROPreparedStatementBuilderFactory.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/UserDirectories.h"

#include <memory>
#include <string_view>
#include <vector>

namespace varo::binary {

namespace texts = log_texts::sqlite_util;

namespace {

using platform::Mutex;
using platform::StatementBuilderType;
using platform::UserDirectories;
using platform::VROCommonUtility;
using platform::VRODatabaseAPI;
using platform::VROPreparedStatement;
using platform::VROPreparedStatementBuilder;
using platform::VROPreparedStatementBuilderFactory;

/// What an insert returns where nothing was tried, and where the statement failed.
constexpr std::int64_t kNotPrepared = 0;
constexpr std::int64_t kInsertFailed = -1;

/// The folder of the databases, below the library directory.
constexpr char kDatabaseDirectory[] = "WEBSQLDIRECTORY";

/// What a kind of statement logs.
struct Messages {
  std::string_view builderError;  ///< No builder could be made.
  std::string_view buildError;    ///< The builder could not make a statement.
  std::string_view executeError;
  std::string_view success;
};

constexpr Messages kInsertMessages{texts::kInsertBuilderError, texts::kInsertBuildError,
                                   texts::kInsertFailed, texts::kInserted};
constexpr Messages kQueryMessages{texts::kQueryBuilderError, texts::kQueryBuildError,
                                  texts::kQueryFailed, texts::kQueried};
constexpr Messages kUpdateMessages{texts::kUpdateBuilderError, texts::kUpdateBuildError,
                                   texts::kUpdateFailed, texts::kUpdated};
constexpr Messages kDeleteMessages{texts::kDeleteBuilderError, texts::kDeleteBuildError,
                                   texts::kDeleteFailed, texts::kDeleted};

struct SharedHandle {
  Mutex mutex;
  std::shared_ptr<VRODatabaseAPI> databaseApi VARO_GUARDED_BY(mutex);
};

SharedHandle& sharedHandle() {
  // Never destroyed: tasks may end while static objects already go.
  static SharedHandle& handle = *new SharedHandle();
  return handle;
}

/// Opens the database into the shared handle. The caller works with the handle it gets, which
/// another thread's next statement does not replace.
Result<std::shared_ptr<VRODatabaseAPI>> openShared(const std::string& dbPath) {
  ErrorPtr error;
  std::shared_ptr<VRODatabaseAPI> opened = VRODatabaseAPI::initWithPath(dbPath, {}, &error);
  {
    SharedHandle& handle = sharedHandle();
    const MutexLock lock(handle.mutex);
    handle.databaseApi = opened;
  }
  if (opened == nullptr) {
    logger().logError(texts::kUnableToOpen, dbPath, error);
    return error;
  }
  return opened;
}

using Builder = std::optional<VROPreparedStatementBuilder>;

/// The statement that `fill` makes of a builder for this table. An error is logged.
template <typename Fill>
Result<VROPreparedStatement> makeStatement(const std::string& table, StatementBuilderType type,
                                           const Messages& messages, const Fill& fill) {
  ErrorPtr error;
  Builder builder =
      VROPreparedStatementBuilderFactory::getPreparedStatementForTableName(table, type, &error);
  if (!builder) {
    logger().logError(messages.builderError, error);
    return error;
  }
  fill(*builder);
  std::optional<VROPreparedStatement> statement = builder->build(&error);
  if (!statement) {
    logger().logError(messages.buildError, error);
    return error;
  }
  return *std::move(statement);
}

std::vector<platform::DictionaryEntry> orderedPairs(const Dictionary& dictionary) {
  return VROCommonUtility::convertToOrderedKeyValuePairs(dictionary);
}

void logChange(const Result<std::int64_t>& changed, const Messages& messages) {
  if (changed) {
    logger().logDebug(messages.success);
  } else {
    logger().logError(messages.executeError, changed.error());
  }
}

/// Executes what returns no rows: how many it has changed.
Result<std::int64_t> execute(const VRODatabaseAPI& database, const VROPreparedStatement& statement,
                             const Messages& messages) {
  Result<std::int64_t> changed = database.executeAndCountChanges(statement);
  logChange(changed, messages);
  return changed;
}

Result<VROPreparedStatement> makeUpdate(const std::string& table, const Dictionary& columns,
                                        const Dictionary& where) {
  return makeStatement(table, StatementBuilderType::kUpdate, kUpdateMessages,
                       [&](VROPreparedStatementBuilder& builder) {
                         builder.addUpdateColumnsMap(orderedPairs(columns))
                             .addWhereConditionMap(orderedPairs(where));
                       });
}

}  // namespace

std::string SQLiteUtil::pathOfDatabase(const std::string& databaseName) {
  const std::string directory = UserDirectories::current()->library() + '/' + kDatabaseDirectory;
  if (!platform::staysInDirectory(directory, databaseName)) return {};
  return directory + '/' + databaseName;
}

std::string SQLiteUtil::getDBPath(const std::string& databaseName) {
  std::string path = pathOfDatabase(databaseName);
  logger().logDebug(texts::kDbPath, path);
  return path;
}

std::shared_ptr<VRODatabaseAPI> SQLiteUtil::databaseApi() {
  SharedHandle& handle = sharedHandle();
  const MutexLock lock(handle.mutex);
  return handle.databaseApi;
}

bool SQLiteUtil::checkAndInitializeDatabaseWithDBPath(const std::string& dbPath) {
  return openShared(dbPath).ok();
}

std::int64_t SQLiteUtil::insertStatementForDatabase(const std::string& dbPath,
                                                    const std::string& ForTable,
                                                    const Dictionary& withValues, ErrorPtr* error) {
  ErrorPtr ignored;
  ErrorPtr& failure = error != nullptr ? *error : ignored;
  logger().logTrace(texts::kInserting, dbPath, ForTable, withValues);
  const auto database = openShared(dbPath);
  failure = database.error();
  if (!database) return kNotPrepared;
  const Result<VROPreparedStatement> statement =
      makeStatement(ForTable, StatementBuilderType::kInsert, kInsertMessages,
                    [&](VROPreparedStatementBuilder& builder) {
                      builder.addInsertValuesMap(orderedPairs(withValues));
                    });
  failure = statement.error();
  if (!statement) return kNotPrepared;
  const std::int64_t id = (*database)->executeSingleInsertStatement(*statement, &failure);
  if (failure != nullptr) {
    logger().logError(kInsertMessages.executeError, failure);
    return kInsertFailed;
  }
  logger().logDebug(kInsertMessages.success, id);
  return id;
}

std::optional<Array> SQLiteUtil::queryDataForDatabase(const std::string& dbPath,
                                                      const std::string& ForTable,
                                                      const Dictionary& withWhereClause) {
  auto rows = queryRows(dbPath, ForTable, withWhereClause);
  if (!rows) return std::nullopt;
  return std::move(rows).value();
}

Result<Array> SQLiteUtil::queryRows(const std::string& dbPath, const std::string& forTable,
                                    const Dictionary& withWhereClause,
                                    const std::vector<std::string>& columns) {
  logger().logTrace(texts::kQuerying, dbPath, forTable, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return database.error();
  const Result<VROPreparedStatement> statement = makeStatement(
      forTable, StatementBuilderType::kSelect, kQueryMessages,
      [&](VROPreparedStatementBuilder& builder) {
        builder.addSelectColumns(columns).addWhereConditionMap(orderedPairs(withWhereClause));
      });
  if (!statement) return statement.error();
  ErrorPtr error;
  std::optional<Array> rows = (*database)->executeSelectPreparedStatement(*statement, &error);
  if (!rows) {
    logger().logError(kQueryMessages.executeError, error);
    return error;
  }
  logger().logDebug(kQueryMessages.success);
  return *std::move(rows);
}

bool SQLiteUtil::updateStatementForDatabase(const std::string& dbPath, const std::string& forTable,
                                            const Dictionary& withColumnsToBeUpdated,
                                            const Dictionary& withWhereClause) {
  return updateRows(dbPath, forTable, withColumnsToBeUpdated, withWhereClause).ok();
}

Result<std::int64_t> SQLiteUtil::updateRows(const std::string& dbPath, const std::string& forTable,
                                            const Dictionary& withColumnsToBeUpdated,
                                            const Dictionary& withWhereClause) {
  logger().logTrace(texts::kUpdating, dbPath, forTable, withColumnsToBeUpdated, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return database.error();
  const auto statement = makeUpdate(forTable, withColumnsToBeUpdated, withWhereClause);
  if (!statement) return statement.error();
  return execute(**database, *statement, kUpdateMessages);
}

void SQLiteUtil::updateRowsLater(
    const std::string& dbPath, const std::string& forTable,
    const Dictionary& withColumnsToBeUpdated, const Dictionary& withWhereClause,
    std::function<void(const Result<std::int64_t>& changedRows)> told) {
  logger().logTrace(texts::kUpdating, dbPath, forTable, withColumnsToBeUpdated, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return told(database.error());
  auto statement = makeUpdate(forTable, withColumnsToBeUpdated, withWhereClause);
  if (!statement) return told(statement.error());
  (*database)->executeLater(std::move(statement).value(),
                            [told = std::move(told)](const Result<std::int64_t>& changed) {
                              logChange(changed, kUpdateMessages);
                              told(changed);
                            });
}

bool SQLiteUtil::deleteStatementForDatabase(const std::string& dbPath, const std::string& forTable,
                                            const Dictionary& withWhereClause) {
  logger().logTrace(texts::kDeleting, dbPath, forTable, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return false;
  const Result<VROPreparedStatement> statement =
      makeStatement(forTable, StatementBuilderType::kDelete, kDeleteMessages,
                    [&](VROPreparedStatementBuilder& builder) {
                      builder.addWhereConditionMap(orderedPairs(withWhereClause));
                    });
  return statement && execute(**database, *statement, kDeleteMessages);
}

void SQLiteUtil::logQuery(const std::string& dbPath, const std::string& forTable,
                          const Dictionary& withWhereClause) {
  logger().logTrace(texts::kQuerying, dbPath, forTable, withWhereClause);
  logger().logDebug(kQueryMessages.success);
}

void SQLiteUtil::logInsert(const std::string& dbPath, const std::string& forTable,
                           const Dictionary& withValues, const Result<std::int64_t>& id) {
  logger().logTrace(texts::kInserting, dbPath, forTable, withValues);
  if (id) {
    logger().logDebug(kInsertMessages.success, *id);
  } else {
    logger().logError(kInsertMessages.executeError, id.error());
  }
}

void SQLiteUtil::logUpdate(const std::string& dbPath, const std::string& forTable,
                           const Dictionary& withColumnsToBeUpdated,
                           const Dictionary& withWhereClause) {
  logger().logTrace(texts::kUpdating, dbPath, forTable, withColumnsToBeUpdated, withWhereClause);
  logger().logDebug(kUpdateMessages.success);
}

}  // namespace varo::binary
