#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varo::binary {

class BlobStoreTable;

/// The record's binary column that an operation is about.
struct BlobColumn {
  std::string databaseName;
  std::string tableName;
  std::string columnName;
  platform::Dictionary primaryKeys;
};

/// What became of a deletion.
struct BlobDeletion {
  std::optional<std::string> blobId;
  /// Whether the sync engine will hear of it.
  bool recorded = false;
  bool fileRemoved = false;
  platform::ErrorPtr error;
};

/// The files of blobs: finds, measures and deletes them. Stateless, thread-safe.
class BlobFiles {
 public:
  BlobFiles() = delete;

  /// The path of the file of the record's binary column, as its row has it: under
  /// `TransferPolicy::kSafe` only an absolute path, otherwise any text but "" and "NULL". Errors:
  /// domain `kDownloadTaskErrorDomain`, code 5004 for no such record, 5001 for no usable file.
  [[nodiscard]] static platform::Result<std::string> filePath(const BlobColumn& column,
                                                              TransferPolicy policy);

  /// Records the deletion of the record's binary column for the sync engine. With `removeNow` it
  /// also deletes the file, and records nothing if that fails. A file that is gone already, as
  /// after an interrupted deletion, counts as removed.
  ///
  /// The order with `removeNow`:
  /// - under `TransferPolicy::kSafe` the deletion is recorded first, and taken back if the file
  ///   cannot be removed;
  /// - otherwise the file is removed first, and may be gone although the row cannot be written.
  ///
  /// Errors: domain `kDeleteBinaryErrorDomain`, code 5004 for no such record, 7001 for what the
  /// database refused; under `TransferPolicy::kSafe` 5001 for a file that was to be removed and is
  /// still there. The cause is under `platform::kUnderlyingError`.
  [[nodiscard]] static BlobDeletion recordDeletion(const BlobColumn& column, bool removeNow,
                                                   TransferPolicy policy);
  /// The same in this table, whatever database the column names.
  [[nodiscard]] static BlobDeletion recordDeletion(const BlobStoreTable& table,
                                                   const BlobColumn& column, bool removeNow,
                                                   TransferPolicy policy);

  /// Deletes the regular file at this absolute path. Succeeds if there is none afterwards. Symbolic
  /// links, directories and special files are not deleted, and a relative path is an error.
  static platform::Result<void> removeFileAt(const std::string& path);

  /// Bytes of the regular file that the row names; none where there is no such file.
  [[nodiscard]] static std::optional<std::int64_t> bytesOnDisk(const platform::Dictionary& row);
};

}  // namespace varo::binary
