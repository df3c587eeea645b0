#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Columns of the table `kVaroSyncBlobStoreMangager`, and the texts in them that have a meaning.
/// They are arrays because a dictionary takes its keys as `std::string`.
namespace blobs {

inline constexpr char kId[] = "id";
inline constexpr char kLocalPath[] = "localPath";
inline constexpr char kTableName[] = "tableName";
inline constexpr char kColumnName[] = "columnName";
inline constexpr char kType[] = "type";
inline constexpr char kState[] = "state";
inline constexpr char kStatus[] = "status";
inline constexpr char kRetry[] = "retry";
inline constexpr char kSize[] = "size";

/// The text that stands for no value.
inline constexpr char kNull[] = "NULL";

}  // namespace blobs

/// The rows of blobs in one database, and the records that refer to them. A record does so through
/// its link column ("blobref_" and the name of the binary column), which holds the blob id in
/// decimal, or "NULL" for none.
///
/// Nothing is kept in memory, and every call is one statement after the other, each committed by
/// itself. Failures are logged by `SQLiteUtil`; those of a change are also returned: the errors of
/// `SQLiteUtil::updateRows`, and of domain "DownloadTaskErrorDomain" 5, for a row that is not
/// there. Thread-safe.
class BlobStoreTable {
 public:
  /// The database of this name; see `SQLiteUtil::pathOfDatabase`.
  BlobStoreTable(const std::string& databaseName, TransferPolicy policy);

  /// The path that `SQLiteUtil::pathOfDatabase` gives, logged in this class's own words.
  [[nodiscard]] static std::string getDBPath(const std::string& databaseName);
  /// Whether this is what `insert` answers where there is no new row. Under
  /// `TransferPolicy::kCompatible`, a database that could not be opened gives the blob id 0.
  [[nodiscard]] bool isFailedInsert(std::int64_t id) const;

  /// The record with these primary keys, the first of several; none when there is none, it cannot
  /// be read, or no key is given.
  [[nodiscard]] std::optional<platform::Dictionary> record(
      const std::string& tableName, const platform::Dictionary& primaryKeys) const;
  /// What stands in the record's link column: a blob id or "NULL"; none where there is no such
  /// column.
  [[nodiscard]] static std::optional<std::string> linkIn(const platform::Dictionary& record,
                                                         const std::string& columnName);
  /// Links the record to the blob, each of several with these keys.
  [[nodiscard]] platform::Result<void> setLink(const std::string& tableName,
                                               const std::string& columnName,
                                               const platform::Dictionary& primaryKeys,
                                               std::int64_t blobId) const;

  /// The blob id of the record's binary column, for a download. A record that is linked to no blob
  /// yet gets a row, of the `responseType`, and its link. None, after a log entry, where there is
  /// no such record or no row could be made.
  [[nodiscard]] std::optional<std::string> obtainBlobId(const std::string& tableName,
                                                        const std::string& columnName,
                                                        const platform::Dictionary& primaryKeys,
                                                        const platform::Value& responseType) const;

  /// The row of this blob.
  [[nodiscard]] std::optional<platform::Dictionary> row(const std::string& blobId) const;
  /// Inserts a row; see `SQLiteUtil::insertStatementForDatabase` and `isFailedInsert`.
  [[nodiscard]] std::int64_t insert(const platform::Dictionary& values) const;
  /// Changes the row of this blob.
  [[nodiscard]] platform::Result<void> update(const std::string& blobId,
                                              const platform::Dictionary& values) const;
  /// The same while the row is in this state, and nothing, a success as well, when it is in
  /// another.
  [[nodiscard]] platform::Result<void> updateInState(const std::string& blobId,
                                                     const platform::Value& state,
                                                     const platform::Dictionary& values) const;

 private:
  [[nodiscard]] std::optional<platform::Dictionary> firstRow(
      const std::string& tableName, const platform::Dictionary& where) const;

  /// Whether what `changed` tells of concerned a row, which is there.
  [[nodiscard]] platform::Result<void> checkRow(const platform::Result<std::int64_t>& changed,
                                                const std::string& tableName,
                                                const platform::Dictionary& where) const;

  const std::string path_;
  const TransferPolicy policy_;
};

/// Whether the system would take all of this for a path, whatever the current directory is.
[[nodiscard]] bool isAbsolutePath(std::string_view path) noexcept;

/// The path in a row's "localPath", none where no absolute path is noted.
[[nodiscard]] std::optional<std::string> localPathIn(const platform::Dictionary& row);

}  // namespace varo::binary
