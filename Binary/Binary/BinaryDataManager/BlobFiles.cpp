#include "Binary/Binary/BinaryDataManager/BlobFiles.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/File.h"

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace varo::binary {
namespace {

namespace texts = log_texts::blob_files;

/// The path that a row notes, where the policy has it handed out.
std::optional<std::string> notedPath(const Dictionary& row, TransferPolicy policy) {
  if (policy == TransferPolicy::kSafe) return localPathIn(row);
  std::string path = row[blobs::kLocalPath].textValue();
  if (path.empty() || path == blobs::kNull) return std::nullopt;
  return path;
}

/// The path of the file of a record that exists, where it has a usable one.
std::optional<std::string> usablePath(const BlobStoreTable& table, const Dictionary& record,
                                      const std::string& columnName, TransferPolicy policy) {
  const auto blobId = BlobStoreTable::linkIn(record, columnName);
  if (!blobId || *blobId == blobs::kNull) {
    logger().logDebug(texts::kNotDownloadedYet);
    return std::nullopt;
  }
  logger().logDebug(texts::kBlobIdIs, *blobId);
  const Dictionary row = table.row(*blobId).value_or(Dictionary());
  const std::int64_t state = row[blobs::kState].integerValue();
  logger().logDebug(texts::kStateIs, state);
  if (blobs::hasFile(state)) return notedPath(row, policy);
  logger().logDebug(texts::kDownloadInterrupted);
  return std::nullopt;
}

ErrorPtr databaseError(std::string_view message, const ErrorPtr& cause) {
  return blobError(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, message, cause);
}

/// Of a record that is linked to no blob: makes a row that says nothing but that it is deleted.
BlobDeletion deleteUnlinked(const BlobStoreTable& table, const BlobColumn& column) {
  logger().logDebug(texts::kNeverDownloaded);
  ErrorPtr refused;
  const std::int64_t id = table.insertDeletion(column.tableName, column.columnName, &refused);
  BlobDeletion deletion;
  if (table.isFailedInsert(id)) {
    logger().logError(kErrorInsertingRow);
    deletion.error = databaseError(kErrorInsertingRow, refused);
    return deletion;
  }
  logger().logInfo(log_texts::kRowCreated);
  logger().logDebug(log_texts::kInsertedBlobId, id);
  deletion.blobId = std::to_string(id);
  // After the row, so that a link never names a row that is not there.
  const auto linked = table.setLink(column.tableName, column.columnName, column.primaryKeys, id);
  if (linked) {
    logger().logDebug(texts::kLinked, id);
    deletion.recorded = true;
  } else {
    logger().logError(texts::kNotLinked, id);
    deletion.error = databaseError(kErrorUpdatingRow, linked.error());
  }
  return deletion;
}

/// Changes the row of the deletion's blob. Whether it did; else the error is that of the deletion.
bool update(const BlobStoreTable& table, const Dictionary& values, BlobDeletion& deletion) {
  const auto updated = table.update(*deletion.blobId, values);
  if (updated) {
    logger().logDebug(texts::kUpdated, *deletion.blobId);
  } else {
    logger().logError(texts::kNotUpdated, *deletion.blobId);
    deletion.error = databaseError(kErrorUpdatingParentTable, updated.error());
  }
  return updated.ok();
}

/// 0 for a regular file, ENOENT for none; another number for what stays where it is.
int whyNotRemovable(const std::string& path) {
  // A row that names no file says "" or "NULL"; neither may be taken for a relative path.
  if (!isAbsolutePath(path)) return EINVAL;
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

ErrorPtr notRemoved(const ErrorPtr& cause) {
  return blobError(kDeleteBinaryErrorDomain, kCodeInvalidStateForBinaryOperation, kFileNotRemoved,
                   cause);
}

/// The file, then the row: what the database refuses leaves a row without its file.
void removeThenRecord(const BlobStoreTable& table, const Dictionary& row, BlobDeletion& deletion) {
  deletion.fileRemoved = BlobFiles::removeFileAt(row[blobs::kLocalPath].textValue()).ok();
  if (!deletion.fileRemoved) return;
  deletion.recorded = update(table, blobs::deletionWithFile(), deletion);
}

/// The row keeps the path until the file is gone, so that whatever breaks this off can be repeated.
void recordThenRemove(const BlobStoreTable& table, const Dictionary& row, BlobDeletion& deletion) {
  const std::string path = row[blobs::kLocalPath].textValue();
  // Asked before the row changes: a deletion that cannot be carried out is not recorded.
  if (const int failure = whyNotRemovable(path); failure != 0 && failure != ENOENT) {
    deletion.error = notRemoved(Error::fromErrno(failure, "Deleting", path));
    return logger().logError(texts::kCouldNotDelete, deletion.error);
  }
  deletion.recorded = update(table, blobs::deletion(), deletion);
  if (!deletion.recorded) return;
  const auto removed = BlobFiles::removeFileAt(path);
  deletion.fileRemoved = removed.ok();
  if (removed) {
    (void)update(table, blobs::fileRemoved(), deletion);
    return;
  }
  deletion.error = notRemoved(removed.error());
  // Where this fails as well, the deletion stays recorded, and is told to be.
  deletion.recorded = !table.update(*deletion.blobId, blobs::noDeletion(row[blobs::kState])).ok();
}

BlobDeletion deleteLinked(const BlobStoreTable& table, const std::optional<std::string>& blobId,
                          bool removeNow, TransferPolicy policy) {
  logger().logDebug(texts::kBlobIdExists, blobId.value_or(std::string()));
  BlobDeletion deletion;
  deletion.blobId = blobId;
  const auto row = blobId ? table.row(*blobId) : std::nullopt;
  if (!row) {
    logger().logError(texts::kNoRow, blobId.value_or(std::string()));
    deletion.error = databaseError(kRowNotExists, nullptr);
  } else if (!removeNow) {
    deletion.recorded = update(table, blobs::deletion(), deletion);
  } else if (policy == TransferPolicy::kSafe) {
    recordThenRemove(table, *row, deletion);
  } else {
    removeThenRecord(table, *row, deletion);
  }
  return deletion;
}

}  // namespace

Result<std::string> BlobFiles::filePath(const BlobColumn& column, TransferPolicy policy) {
  const BlobStoreTable table(column.databaseName, policy);
  const auto record = table.record(column.tableName, column.primaryKeys);
  if (!record) {
    logger().logError(texts::kNoPrimaryKey);
    return blobError(kDownloadTaskErrorDomain, kCodeBinaryRecordDoesNotExist,
                     kRowWithPrimaryKeyNotExists);
  }
  auto path = usablePath(table, *record, column.columnName, policy);
  if (!path) {
    logger().logError(texts::kPathNotRetrieved);
    return blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation,
                     kFilePathNotPresent);
  }
  logger().logDebug(texts::kPathRetrieved, *path);
  return *std::move(path);
}

BlobDeletion BlobFiles::recordDeletion(const BlobColumn& column, bool removeNow,
                                       TransferPolicy policy) {
  return recordDeletion(BlobStoreTable(column.databaseName, policy), column, removeNow, policy);
}

BlobDeletion BlobFiles::recordDeletion(const BlobStoreTable& table, const BlobColumn& column,
                                       bool removeNow, TransferPolicy policy) {
  const auto record = table.record(column.tableName, column.primaryKeys);
  if (!record) {
    logger().logError(kRowWithPrimaryKeyNotExists);
    BlobDeletion deletion;
    deletion.error = blobError(kDeleteBinaryErrorDomain, kCodeBinaryRecordDoesNotExist,
                               kRowWithPrimaryKeyNotExists);
    return deletion;
  }
  logger().logDebug(texts::kRowExists);
  const auto link = BlobStoreTable::linkIn(*record, column.columnName);
  return link == blobs::kNull ? deleteUnlinked(table, column)
                              : deleteLinked(table, link, removeNow, policy);
}

Result<void> BlobFiles::removeFileAt(const std::string& path) {
  int failure = whyNotRemovable(path);
  // What is gone meanwhile is removed.
  if (failure == 0 && ::unlink(path.c_str()) != 0 && errno != ENOENT) failure = errno;
  if (failure != 0 && failure != ENOENT) {
    auto error = Error::fromErrno(failure, "Deleting", path);
    logger().logError(texts::kCouldNotDelete, error);
    return error;
  }
  logger().logDebug(texts::kFileRemoved);
  return {};
}

std::optional<std::int64_t> BlobFiles::bytesOnDisk(const Dictionary& row) {
  const auto path = localPathIn(row);
  if (!path || platform::fileKindAt(*path) != platform::FileKind::kRegular) return std::nullopt;
  std::error_code failed;
  const std::uintmax_t size = std::filesystem::file_size(*path, failed);
  if (failed) return std::nullopt;
  return static_cast<std::int64_t>(size);
}

}  // namespace varo::binary
