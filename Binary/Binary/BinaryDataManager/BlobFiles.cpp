#include "Binary/Binary/BinaryDataManager/BlobFiles.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/File.h"

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace varo::binary {

using platform::Dictionary;
using platform::Error;
using platform::Result;

namespace {

constexpr std::string_view kNoPrimaryKey = "Primary key doesn't exist..";
constexpr std::string_view kNotDownloadedYet =
    "There is no blob id for the given primary key, the file hasn't been downloaded yet.";
constexpr std::string_view kBlobIdIs = "Blob id for the given primary keys is %@";
constexpr std::string_view kStateIs = "State of the for the given primary key is %d";
constexpr std::string_view kDownloadInterrupted =
    "File download was intermintently stopped due to error or paused.";
constexpr std::string_view kPathRetrieved = "File path retrieved inside get binary file path : %@";
constexpr std::string_view kPathNotRetrieved = "File path couldn't be retrived.";

constexpr std::string_view kRowExists = "Row exists.";
constexpr std::string_view kNeverDownloaded =
    "Blob hasn't been downloaded to the device. Creating a column in blob store manager";
constexpr std::string_view kRowCreated = "Row successfully created in varosyncBLOBSTOREMANAGER.";
constexpr std::string_view kInsertedBlobId = "Inserted blob ID = %ld";
constexpr std::string_view kLinked = "Updated the values in the parent table for blob ID : %ld";
constexpr std::string_view kNotLinked = "Error in updating parent table for blob ID : %ld";
constexpr std::string_view kBlobIdExists = "Blob ID exists : %@";
constexpr std::string_view kNoRow = "No row with blob ID %@ exists in varosyncBLOBSTOREMANAGER.";
constexpr std::string_view kUpdated = "Updated the values in the parent table for blob ID : %@";
constexpr std::string_view kNotUpdated = "Error in updating parent table for blob ID : %@";

constexpr std::string_view kFileRemoved = "File successfully removed..";
constexpr std::string_view kCouldNotDelete = "Could not delete file :%@ ";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

/// Whether the file that a row in this state names is valid.
bool isUsable(std::int64_t state) {
  return state == kFileAvailable || state == kUploadAccepted || state == kUploadInProgress;
}

/// The path of the file of a record that exists, where it has a usable one.
std::optional<std::string> usablePath(const BlobStoreTable& table, const Dictionary& record,
                                      const std::string& columnName) {
  const auto blobId = BlobStoreTable::linkIn(record, columnName);
  if (!blobId || *blobId == blobs::kNull) {
    logger().logDebug(kNotDownloadedYet);
    return std::nullopt;
  }
  logger().logDebug(kBlobIdIs, *blobId);
  const Dictionary row = table.row(*blobId).value_or(Dictionary());
  const std::int64_t state = row[blobs::kState].integerValue();
  logger().logDebug(kStateIs, state);
  if (isUsable(state)) return localPathIn(row);
  logger().logDebug(kDownloadInterrupted);
  return std::nullopt;
}

/// Of a record that is linked to no blob: makes a row that says nothing but that it is deleted.
BlobDeletion deleteUnlinked(const BlobStoreTable& table, const BlobColumn& column) {
  logger().logDebug(kNeverDownloaded);
  const std::int64_t id = table.insert({{blobs::kState, kDeleteAccepted},
                                        {blobs::kColumnName, column.columnName},
                                        {blobs::kTableName, column.tableName}});
  BlobDeletion deletion;
  if (BlobStoreTable::isFailedInsert(id)) {
    logger().logError(kErrorInsertingRow);
    deletion.error =
        blobError(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, kErrorInsertingRow);
    return deletion;
  }
  logger().logInfo(kRowCreated);
  logger().logDebug(kInsertedBlobId, id);
  deletion.blobId = std::to_string(id);
  if (table.setLink(column.tableName, column.columnName, column.primaryKeys, id)) {
    logger().logDebug(kLinked, id);
    deletion.recorded = true;
  } else {
    logger().logError(kNotLinked, id);
    deletion.error =
        blobError(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, kErrorUpdatingRow);
  }
  return deletion;
}

BlobDeletion deleteLinked(const BlobStoreTable& table, const std::optional<std::string>& blobId,
                          bool removeNow) {
  logger().logDebug(kBlobIdExists, blobId.value_or(std::string()));
  BlobDeletion deletion;
  deletion.blobId = blobId;
  const auto row = blobId ? table.row(*blobId) : std::nullopt;
  if (!row) {
    logger().logError(kNoRow, blobId.value_or(std::string()));
    deletion.error = blobError(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, kRowNotExists);
    return deletion;
  }
  Dictionary values{{blobs::kState, kDeleteAccepted}};
  if (removeNow) {
    deletion.fileRemoved = BlobFiles::removeFileAt((*row)[blobs::kLocalPath].textValue());
    if (!deletion.fileRemoved) {
      if (transferPolicy() == TransferPolicy::kSafe) {
        deletion.error = blobError(kDeleteBinaryErrorDomain, kCodeInvalidStateForBinaryOperation,
                                   kFileNotRemoved);
      }
      return deletion;
    }
    values.set(blobs::kLocalPath, blobs::kNull);
  }
  deletion.recorded = table.update(*blobId, values);
  if (deletion.recorded) {
    logger().logDebug(kUpdated, *blobId);
  } else {
    logger().logError(kNotUpdated, *blobId);
    deletion.error =
        blobError(kDeleteBinaryErrorDomain, kCodeSQLiteExecuteFailed, kErrorUpdatingParentTable);
  }
  return deletion;
}

}  // namespace

Result<std::string> BlobFiles::filePath(const BlobColumn& column) {
  const BlobStoreTable table(column.databaseName);
  const auto record = table.record(column.tableName, column.primaryKeys);
  if (!record) {
    logger().logError(kNoPrimaryKey);
    return blobError(kDownloadTaskErrorDomain, kCodeBinaryRecordDoesNotExist,
                     kRowWithPrimaryKeyNotExists);
  }
  auto path = usablePath(table, *record, column.columnName);
  if (!path) {
    logger().logError(kPathNotRetrieved);
    return blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation,
                     kFilePathNotPresent);
  }
  logger().logDebug(kPathRetrieved, *path);
  return *std::move(path);
}

BlobDeletion BlobFiles::recordDeletion(const BlobColumn& column, bool removeNow) {
  const BlobStoreTable table(column.databaseName);
  const auto record = table.record(column.tableName, column.primaryKeys);
  if (!record) {
    logger().logError(kRowWithPrimaryKeyNotExists);
    BlobDeletion deletion;
    deletion.error = blobError(kDeleteBinaryErrorDomain, kCodeBinaryRecordDoesNotExist,
                               kRowWithPrimaryKeyNotExists);
    return deletion;
  }
  logger().logDebug(kRowExists);
  const auto link = BlobStoreTable::linkIn(*record, column.columnName);
  return link == blobs::kNull ? deleteUnlinked(table, column)
                              : deleteLinked(table, link, removeNow);
}

bool BlobFiles::removeFileAt(const std::string& path) {
  const auto failed = [&path](int number) {
    logger().logError(kCouldNotDelete, Error::fromErrno(number, "Deleting", path));
    return false;
  };
  // A row that names no file says "" or "NULL"; neither may be taken for a relative path.
  if (!isAbsolutePath(path)) return failed(EINVAL);
  switch (platform::fileKindAt(path)) {
    case platform::FileKind::kNothing:
      return failed(ENOENT);
    case platform::FileKind::kDirectory:
      return failed(EISDIR);
    case platform::FileKind::kOther:
      return failed(EINVAL);
    case platform::FileKind::kRegular:
      break;
  }
  if (::unlink(path.c_str()) != 0) return failed(errno);
  logger().logDebug(kFileRemoved);
  return true;
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
