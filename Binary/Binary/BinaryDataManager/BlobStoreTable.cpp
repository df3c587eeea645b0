#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <string_view>
#include <utility>

namespace varo::binary {

namespace {

namespace texts = log_texts::blob_store_table;

constexpr std::int64_t kInsertFailed = -1;
constexpr std::int64_t kDatabaseNotOpened = 0;
/// What the sync engine expects in a new row.
constexpr std::int64_t kNewRowStatus = 0;
constexpr std::int64_t kNewRowRetries = 3;

LinkedInsert newRow(const WantedBlob& blob) {
  return {kVaroSyncBlobStoreMangager,
          {{blobs::kLocalPath, ""},
           {blobs::kTableName, blob.tableName},
           {blobs::kColumnName, blob.columnName},
           {blobs::kType, blob.responseType},
           {blobs::kState, kDownloadNotStarted},
           {blobs::kStatus, kNewRowStatus},
           {blobs::kRetry, kNewRowRetries}},
          blob.tableName,
          BlobStoreTable::linkColumn(blob.columnName),
          blob.primaryKeys};
}

}  // namespace

Dictionary blobs::downloadState(std::int32_t state, const Value& path) {
  return {{kState, state}, {kLocalPath, state == kDownloadStarted ? Value() : path}};
}

Dictionary blobs::completeFile(const Value& path, const Value& size) {
  return {{kLocalPath, path}, {kState, kFileAvailable}, {kSize, size}};
}

Dictionary blobs::lostFile() { return {{kState, kDownloadNotStarted}, {kLocalPath, ""}}; }

Dictionary blobs::fileAt(const Value& path) { return {{kLocalPath, path}}; }

Dictionary blobs::deletion() { return {{kState, kDeleteAccepted}}; }

Dictionary blobs::deletionWithFile() { return {{kLocalPath, kNull}, {kState, kDeleteAccepted}}; }

Dictionary blobs::fileRemoved() { return {{kLocalPath, kNull}}; }

Dictionary blobs::noDeletion(const Value& former) {
  return {{kState, former == Value(kNull) ? Value(nullptr) : former}};
}

BlobStoreTable::BlobStoreTable(const std::string& databaseName, TransferPolicy policy)
    : path_(getDBPath(databaseName)), policy_(policy) {}

BlobStoreTable::BlobStoreTable(const std::string& databaseName, const OperationSettings& settings)
    : path_(settings.blobPlaces ? settings.blobPlaces->database : getDBPath(databaseName)),
      policy_(settings.policy) {}

std::string BlobStoreTable::pathOf(const std::string& databaseName,
                                   const OperationSettings& settings) {
  return settings.blobPlaces ? settings.blobPlaces->database
                             : SQLiteUtil::pathOfDatabase(databaseName);
}

std::string BlobStoreTable::getDBPath(const std::string& databaseName) {
  std::string path = SQLiteUtil::pathOfDatabase(databaseName);
  logger().logDebug(texts::kDatabasePath, path);
  return path;
}

bool BlobStoreTable::isFailedInsert(std::int64_t id) const {
  return id == kInsertFailed || (id == kDatabaseNotOpened && policy_ == TransferPolicy::kSafe);
}

std::optional<Dictionary> BlobStoreTable::firstRow(const std::string& tableName,
                                                   const Dictionary& where,
                                                   ErrorPtr* unreadable) const {
  const auto rows = SQLiteUtil::queryRows(path_, tableName, where);
  if (!rows && unreadable != nullptr) *unreadable = rows.error();
  if (!rows || rows->empty()) return std::nullopt;
  return (*rows)[0].dictionaryValue();
}

std::optional<Dictionary> BlobStoreTable::record(const std::string& tableName,
                                                 const Dictionary& primaryKeys,
                                                 ErrorPtr* unreadable) const {
  // Without a condition the query would give the first record that there is.
  if (primaryKeys.empty()) return std::nullopt;
  return firstRow(tableName, primaryKeys, unreadable);
}

Result<platform::Array> BlobStoreTable::records(const std::string& tableName,
                                                const std::vector<std::string>& columns,
                                                const Dictionary& where) const {
  return SQLiteUtil::queryRows(path_, tableName, where, columns);
}

std::string BlobStoreTable::linkColumn(const std::string& columnName) {
  return std::string(kBlobRef) + '_' + columnName;
}

std::optional<std::string> BlobStoreTable::linkIn(const Dictionary& record,
                                                  const std::string& columnName) {
  const Value* link = record.find(linkColumn(columnName));
  if (link == nullptr) return std::nullopt;
  return link->textValue();
}

/// A view's trigger may have changed a row that the database does not count.
Result<void> BlobStoreTable::checkRow(const Result<std::int64_t>& changed,
                                      const std::string& tableName, const Dictionary& where) const {
  if (!changed) return changed.error();
  if (*changed > 0 || firstRow(tableName, where)) return {};
  return blobError(kDownloadTaskErrorDomain, kCodeBlobRowNotFound, kRowBlobId);
}

Result<void> BlobStoreTable::setLink(const std::string& tableName, const std::string& columnName,
                                     const Dictionary& primaryKeys, std::int64_t blobId) const {
  const auto changed = SQLiteUtil::updateRows(
      path_, tableName, {{linkColumn(columnName), std::to_string(blobId)}}, primaryKeys);
  return checkRow(changed, tableName, primaryKeys);
}

std::optional<std::string> BlobStoreTable::obtainBlobId(const WantedBlob& blob,
                                                        const LinkedRow& ahead,
                                                        ErrorPtr* unreadable) const {
  if (ahead.id) {
    SQLiteUtil::logQuery(path_, blob.tableName, blob.primaryKeys);
  } else {
    const auto parent = record(blob.tableName, blob.primaryKeys, unreadable);
    if (!parent) {
      logger().logError(texts::kNoRecord);
      return std::nullopt;
    }
    auto link = linkIn(*parent, blob.columnName);
    if (link != blobs::kNull) return link;
  }

  logger().logTrace(texts::kNoBlobYet);
  const LinkedInsert row = newRow(blob);
  const LinkedRow made = ahead.id ? ahead : insertLinked(path_, {row}).front();
  // What cannot be done together is done one by one, each as far as it goes.
  const std::int64_t id =
      made.id ? noteInsert(row.values, *made.id, unreadable) : insert(row.values, unreadable);
  if (isFailedInsert(id)) {
    logger().logError(texts::kRowNotCreated, blob.primaryKeys);
    return std::nullopt;
  }
  logger().logInfo(log_texts::kRowCreated);
  logger().logDebug(log_texts::kInsertedBlobId, id);
  // Without its link the blob can still be downloaded: the record gets another one next time.
  if (made.id ? noteLink(blob, id, made.changedRows)
              : setLink(blob.tableName, blob.columnName, blob.primaryKeys, id)) {
    logger().logDebug(texts::kLinked, id);
  } else {
    logger().logWarning(texts::kNotLinked, blob.tableName);
  }
  std::string blobId = std::to_string(id);
  logger().logDebug(texts::kBlobIdObtained, blobId, blob.primaryKeys);
  return blobId;
}

std::vector<LinkedRow> BlobStoreTable::makeRows(const std::string& databasePath,
                                                const std::vector<WantedBlob>& blobs) {
  std::vector<LinkedInsert> rows;
  rows.reserve(blobs.size());
  for (const WantedBlob& blob : blobs) rows.push_back(newRow(blob));
  return insertLinked(databasePath, rows);
}

std::optional<Dictionary> BlobStoreTable::row(const std::string& blobId,
                                              ErrorPtr* unreadable) const {
  return firstRow(kVaroSyncBlobStoreMangager, {{blobs::kId, blobId}}, unreadable);
}

std::int64_t BlobStoreTable::insertDeletion(const std::string& tableName,
                                            const std::string& columnName, ErrorPtr* error) const {
  return insert({{blobs::kState, kDeleteAccepted},
                 {blobs::kColumnName, columnName},
                 {blobs::kTableName, tableName}},
                error);
}

std::int64_t BlobStoreTable::insert(const Dictionary& values, ErrorPtr* error) const {
  return SQLiteUtil::insertStatementForDatabase(path_, kVaroSyncBlobStoreMangager, values, error);
}

std::int64_t BlobStoreTable::noteInsert(const Dictionary& values, const Result<std::int64_t>& id,
                                        ErrorPtr* error) const {
  SQLiteUtil::logInsert(path_, kVaroSyncBlobStoreMangager, values, id);
  if (id) return *id;
  if (error != nullptr) *error = id.error();
  return kInsertFailed;
}

Result<void> BlobStoreTable::noteLink(const WantedBlob& blob, std::int64_t blobId,
                                      std::int64_t changedRows) const {
  SQLiteUtil::logUpdate(path_, blob.tableName,
                        {{linkColumn(blob.columnName), std::to_string(blobId)}}, blob.primaryKeys);
  return checkRow(changedRows, blob.tableName, blob.primaryKeys);
}

Result<void> BlobStoreTable::update(const std::string& blobId, const Dictionary& values) const {
  const Dictionary where{{blobs::kId, blobId}};
  const auto changed = SQLiteUtil::updateRows(path_, kVaroSyncBlobStoreMangager, values, where);
  return checkRow(changed, kVaroSyncBlobStoreMangager, where);
}

void BlobStoreTable::updateLater(const std::string& blobId, const Dictionary& values,
                                 std::function<void(const Result<void>& updated)> told) const {
  const Dictionary where{{blobs::kId, blobId}};
  SQLiteUtil::updateRowsLater(
      path_, kVaroSyncBlobStoreMangager, values, where,
      [table = *this, where, told = std::move(told)](const Result<std::int64_t>& changed) {
        told(table.checkRow(changed, kVaroSyncBlobStoreMangager, where));
      });
}

Result<void> BlobStoreTable::updateInState(const std::string& blobId, const Value& state,
                                           const Dictionary& values) const {
  const auto changed = SQLiteUtil::updateRows(path_, kVaroSyncBlobStoreMangager, values,
                                              {{blobs::kId, blobId}, {blobs::kState, state}});
  return checkRow(changed, kVaroSyncBlobStoreMangager, {{blobs::kId, blobId}});
}

/// Changes the row in the state in which it was read, so that a deletion that is recorded between
/// the two statements stands.
Result<void> BlobStoreTable::updateUnlessDeleted(const std::string& blobId,
                                                 const Dictionary& values) const {
  const auto present = row(blobId);
  if (!present) return update(blobId, values);
  const Value& state = (*present)[blobs::kState];
  if (state == Value(blobs::kNull)) return update(blobId, values);
  if (!blobs::isDeletion(state.integerValue())) return updateInState(blobId, state, values);
  // The sync engine is to find the file that has come since.
  const Value& path = values[blobs::kLocalPath];
  if (path.isMissing() || !(*present)[blobs::kLocalPath].textValue().empty()) return {};
  return update(blobId, blobs::fileAt(path));
}

bool isAbsolutePath(std::string_view path) noexcept {
  return path.starts_with('/') && path.find('\0') == std::string_view::npos;
}

std::optional<std::string> localPathIn(const Dictionary& row) {
  std::string path = row[blobs::kLocalPath].textValue();
  if (!isAbsolutePath(path)) return std::nullopt;
  return path;
}

}  // namespace varo::binary
