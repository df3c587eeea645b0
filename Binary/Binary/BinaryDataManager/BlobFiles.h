#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varo::binary {

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

/// The files of blobs: where they are, how far they have come, and their end. Stateless,
/// thread-safe.
class BlobFiles {
 public:
  BlobFiles() = delete;

  /// Where the file of the record's binary column is, as its row says: under
  /// `TransferPolicy::kSafe` an absolute path, else any text but "" and "NULL". Errors: domain
  /// `kDownloadTaskErrorDomain`, code 5004 for no such record, 5001 for no usable file.
  [[nodiscard]] static platform::Result<std::string> filePath(const BlobColumn& column,
                                                              TransferPolicy policy);

  /// Records the deletion of the record's binary column for the sync engine; `removeNow` also
  /// deletes the file, without which nothing is recorded then. A file that is gone already, as
  /// after a deletion that was broken off, counts as removed.
  ///
  /// Under `TransferPolicy::kSafe` the deletion is recorded before the file is removed, and taken
  /// back when the file cannot be removed; else the file goes first, so that it may be gone when
  /// the row cannot be written.
  ///
  /// Errors: domain `kDeleteBinaryErrorDomain`, code 5004 for no such record, 7001 for what the
  /// database refused; under `TransferPolicy::kSafe` 5001 for a file that was to be removed and is
  /// still there. The cause is under `platform::kUnderlyingError`.
  [[nodiscard]] static BlobDeletion recordDeletion(const BlobColumn& column, bool removeNow,
                                                   TransferPolicy policy);

  /// Deletes the regular file at this path. Whether there is none any more; symbolic links,
  /// directories and special files stay, and a path that is not absolute is none.
  static platform::Result<void> removeFileAt(const std::string& path);

  /// Bytes of the regular file that the row names; none where there is no such file.
  [[nodiscard]] static std::optional<std::int64_t> bytesOnDisk(const platform::Dictionary& row);
};

}  // namespace varo::binary
