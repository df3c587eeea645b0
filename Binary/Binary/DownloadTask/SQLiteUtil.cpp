#include "Binary/Binary/DownloadTask/SQLiteUtil.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Database/VRODatabaseAPI.h"
#include "Platform/Database/VROPreparedStatementBuilderFactory.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/UserDirectories.h"

#include <memory>
#include <vector>

namespace varo::binary {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::Mutex;
using platform::MutexLock;
using platform::Result;
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

constexpr char kDbPathMessage[] = "\n DB PATH : %@";
constexpr char kUnableToOpen[] = "Unable to intitilaize the give dbPath %@ with error: %@";

/// What a kind of statement logs: when it starts, when no builder is made, when no statement is
/// built, when it fails, and when it has succeeded.
struct Messages {
  const char* entry;
  const char* builderError;
  const char* buildError;
  const char* executeError;
  const char* success;
};

constexpr Messages kInsertMessages{
    "\n Inside insert statement for DB : %@ \n for table : %@ \n with values : %@",
    "\n Error in insertStatementForDatabaseForTable while creating prepared statement,error: %@",
    "\nError in insertStatementForDatabaseForTable while creating prepared statement,error: %@",
    "Error while inserting record in Database with error: %@",
    "\n Record inserted successfully with id %ld"};

constexpr Messages kQueryMessages{
    "\n Inside query for DB. \n DB Name : %@ \n Table Name : %@ \n Where Clause : %@",
    "\n Error in queryDataForDatabaseForTablewithWhereClause while creating prepared "
    "statement,error: %@",
    "\nError in queryDataForDatabaseForTablewithWhereClause while creating prepared "
    "statement,error : %@",
    "Error while reading record from Database with error: %@", "\n Record retrieved successfully."};

constexpr Messages kUpdateMessages{
    "\n Inside update query for DB. \n DB Name : %@ \n Table Name : %@ Column Names : %@ \n Where "
    "Clause : %@",
    "\n Error in updateStatementForDatabaseforTablewithColumnsToBeUpdatedwithWhereClause while "
    "creating prepared statement,error: %@",
    "\nError in updateStatementForDatabaseforTablewithColumnsToBeUpdatedwithWhereClause while "
    "creating prepared statement,error : %@",
    "Error while updating record in Database with error: %@", "\n Record updated successfully."};

constexpr Messages kDeleteMessages{
    "\n Inside delete query for DB. \n DB Name : %@ \n Table Name : %@ \n Where Clause : %@",
    "\n Error in deleteStatementForDatabaseforTablewithWhereClause while creating prepared "
    "statement,error: %@",
    "\nError in deleteStatementForDatabaseforTablewithWhereClause while creating prepared "
    "statement,error : %@",
    "Error while deleting record in Database with error: %@", "\n Record deleted successfully."};

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
    BinaryLogger::sharedInstance().logError(kUnableToOpen, dbPath, error);
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
    BinaryLogger::sharedInstance().logError(messages.builderError, error);
    return error;
  }
  fill(*builder);
  std::optional<VROPreparedStatement> statement = builder->build(&error);
  if (!statement) {
    BinaryLogger::sharedInstance().logError(messages.buildError, error);
    return error;
  }
  return *std::move(statement);
}

std::vector<platform::DictionaryEntry> orderedPairs(const Dictionary& dictionary) {
  return VROCommonUtility::convertToOrderedKeyValuePairs(dictionary);
}

/// Executes what returns no rows: how many it has changed.
Result<std::int64_t> execute(const VRODatabaseAPI& database, const VROPreparedStatement& statement,
                             const Messages& messages) {
  Result<std::int64_t> changed = database.executeAndCountChanges(statement);
  if (changed) {
    BinaryLogger::sharedInstance().logDebug(messages.success);
  } else {
    BinaryLogger::sharedInstance().logError(messages.executeError, changed.error());
  }
  return changed;
}

}  // namespace

std::string SQLiteUtil::pathOfDatabase(const std::string& databaseName) {
  const std::string directory = UserDirectories::current()->library() + '/' + kDatabaseDirectory;
  if (!platform::staysInDirectory(directory, databaseName)) return {};
  return directory + '/' + databaseName;
}

std::string SQLiteUtil::getDBPath(const std::string& databaseName) {
  std::string path = pathOfDatabase(databaseName);
  BinaryLogger::sharedInstance().logDebug(kDbPathMessage, path);
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
                                                    const Dictionary& withValues) {
  BinaryLogger& logger = BinaryLogger::sharedInstance();
  logger.logTrace(kInsertMessages.entry, dbPath, ForTable, withValues);
  const auto database = openShared(dbPath);
  if (!database) return kNotPrepared;
  const Result<VROPreparedStatement> statement =
      makeStatement(ForTable, StatementBuilderType::kInsert, kInsertMessages,
                    [&](VROPreparedStatementBuilder& builder) {
                      builder.addInsertValuesMap(orderedPairs(withValues));
                    });
  if (!statement) return kNotPrepared;
  ErrorPtr error;
  const std::int64_t id = (*database)->executeSingleInsertStatement(*statement, &error);
  if (error != nullptr) {
    logger.logError(kInsertMessages.executeError, error);
    return kInsertFailed;
  }
  logger.logDebug(kInsertMessages.success, id);
  return id;
}

std::optional<Array> SQLiteUtil::queryDataForDatabase(const std::string& dbPath,
                                                      const std::string& ForTable,
                                                      const Dictionary& withWhereClause) {
  BinaryLogger& logger = BinaryLogger::sharedInstance();
  logger.logTrace(kQueryMessages.entry, dbPath, ForTable, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return std::nullopt;
  const Result<VROPreparedStatement> statement =
      makeStatement(ForTable, StatementBuilderType::kSelect, kQueryMessages,
                    [&](VROPreparedStatementBuilder& builder) {
                      builder.addWhereConditionMap(orderedPairs(withWhereClause));
                    });
  if (!statement) return std::nullopt;
  ErrorPtr error;
  std::optional<Array> rows = (*database)->executeSelectPreparedStatement(*statement, &error);
  if (!rows) {
    logger.logError(kQueryMessages.executeError, error);
  } else {
    logger.logDebug(kQueryMessages.success);
  }
  return rows;
}

bool SQLiteUtil::updateStatementForDatabase(const std::string& dbPath, const std::string& forTable,
                                            const Dictionary& withColumnsToBeUpdated,
                                            const Dictionary& withWhereClause) {
  return updateRows(dbPath, forTable, withColumnsToBeUpdated, withWhereClause).ok();
}

Result<std::int64_t> SQLiteUtil::updateRows(const std::string& dbPath, const std::string& forTable,
                                            const Dictionary& withColumnsToBeUpdated,
                                            const Dictionary& withWhereClause) {
  BinaryLogger::sharedInstance().logTrace(kUpdateMessages.entry, dbPath, forTable,
                                          withColumnsToBeUpdated, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return database.error();
  const Result<VROPreparedStatement> statement =
      makeStatement(forTable, StatementBuilderType::kUpdate, kUpdateMessages,
                    [&](VROPreparedStatementBuilder& builder) {
                      builder.addUpdateColumnsMap(orderedPairs(withColumnsToBeUpdated))
                          .addWhereConditionMap(orderedPairs(withWhereClause));
                    });
  if (!statement) return statement.error();
  return execute(**database, *statement, kUpdateMessages);
}

bool SQLiteUtil::deleteStatementForDatabase(const std::string& dbPath, const std::string& forTable,
                                            const Dictionary& withWhereClause) {
  BinaryLogger::sharedInstance().logTrace(kDeleteMessages.entry, dbPath, forTable, withWhereClause);
  const auto database = openShared(dbPath);
  if (!database) return false;
  const Result<VROPreparedStatement> statement =
      makeStatement(forTable, StatementBuilderType::kDelete, kDeleteMessages,
                    [&](VROPreparedStatementBuilder& builder) {
                      builder.addWhereConditionMap(orderedPairs(withWhereClause));
                    });
  return statement && execute(**database, *statement, kDeleteMessages);
}

}  // namespace varo::binary
