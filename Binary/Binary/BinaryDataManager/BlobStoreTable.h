#pragma once

#include "Binary/Binary/BinaryDataManager/LinkedInserts.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::binary {

// The table of blobs: its schema, what stands in it, and every statement on it. To add a column,
// name it in `blobs`, add it to `blobs::kCreateTable`, write it in the statement that knows its
// value, and add its row to docs/schema.md.

/// The table that holds one row for each blob of the application's database. The application's sync
/// engine owns its schema; this library never creates or alters it.
inline constexpr char kVaroSyncBlobStoreMangager[] = "varosyncBLOBSTOREMANAGER";

/// Begins the name of the column that links a record to the blob of its binary column; "_" and that
/// column's name follow.
inline constexpr std::string_view kBlobRef = "blobref";

/// States of a blob; docs/schema.md says who writes which, and when.
inline constexpr std::int32_t kFileAvailable = 50;
inline constexpr std::int32_t kUploadAccepted = 71;
inline constexpr std::int32_t kUploadInProgress = 74;
inline constexpr std::int32_t kDownloadNotStarted = 101;
inline constexpr std::int32_t kDownloadStarted = 102;
inline constexpr std::int32_t kDownloadErrored = 103;
inline constexpr std::int32_t kDownloadPaused = 104;
inline constexpr std::int32_t kDeleteAccepted = 201;
inline constexpr std::int32_t kDeleteInProgress = 202;

namespace blobs {

/// The table as a sync engine makes it; the library needs these names, and "id" as the row id.
inline constexpr char kCreateTable[] = R"(CREATE TABLE varosyncBLOBSTOREMANAGER (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  localPath TEXT,
  tableName TEXT,
  columnName TEXT,
  type TEXT,
  state INTEGER,
  status INTEGER,
  retry INTEGER,
  size INTEGER
))";

// The columns. They are arrays because a dictionary takes its keys as `std::string`.

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

/// Whether the file that a row in this state names is valid.
[[nodiscard]] constexpr bool hasFile(std::int64_t state) noexcept {
  return state == kFileAvailable || state == kUploadAccepted || state == kUploadInProgress;
}
[[nodiscard]] constexpr bool isDeletion(std::int64_t state) noexcept {
  return state == kDeleteAccepted || state == kDeleteInProgress;
}

// What an update sets. A value that is missing leaves its column as it is.

/// Of a download, but for its success. The path counts unless the state is `kDownloadStarted`.
[[nodiscard]] platform::Dictionary downloadState(std::int32_t state, const platform::Value& path);
[[nodiscard]] platform::Dictionary completeFile(const platform::Value& path,
                                                const platform::Value& size);
/// Of a complete file that has vanished since: the next download begins anew.
[[nodiscard]] platform::Dictionary lostFile();
/// The file of a download that is still running.
[[nodiscard]] platform::Dictionary fileAt(const platform::Value& path);
[[nodiscard]] platform::Dictionary deletion();
[[nodiscard]] platform::Dictionary deletionWithFile();
[[nodiscard]] platform::Dictionary fileRemoved();
/// Takes a deletion back; `former` is the state as `BlobStoreTable::row` has read it.
[[nodiscard]] platform::Dictionary noDeletion(const platform::Value& former);

}  // namespace blobs

/// The record's binary column whose blob id is asked for, for a download.
struct WantedBlob {
  std::string tableName;
  std::string columnName;
  platform::Dictionary primaryKeys;
  /// Of a new row.
  platform::Value responseType;
};

/// The rows of blobs in one database, and the records that refer to them. A record does so through
/// its link column ("blobref_" and the name of the binary column), which holds the blob id in
/// decimal, or "NULL" for none.
///
/// Nothing is kept in memory, and every call is one statement after the other, each committed by
/// itself but for those of a new row and its link. Failures are logged by `SQLiteUtil`; those of a
/// change are also returned: the errors of `SQLiteUtil::updateRows`, and of domain
/// "DownloadTaskErrorDomain" 5, for a row that is not there. Thread-safe.
class BlobStoreTable {
 public:
  /// The database of this name; see `SQLiteUtil::pathOfDatabase`.
  BlobStoreTable(const std::string& databaseName, TransferPolicy policy);
  /// The database that the settings name, or else this one.
  BlobStoreTable(const std::string& databaseName, const OperationSettings& settings);
  /// Its path, which is not logged.
  [[nodiscard]] static std::string pathOf(const std::string& databaseName,
                                          const OperationSettings& settings);

  /// The path that `SQLiteUtil::pathOfDatabase` gives, logged in this class's own words.
  [[nodiscard]] static std::string getDBPath(const std::string& databaseName);
  /// Whether this is what an insert answers where there is no new row. Under
  /// `TransferPolicy::kCompatible`, a database that could not be opened gives the blob id 0.
  [[nodiscard]] bool isFailedInsert(std::int64_t id) const;

  // `unreadable`, which may be null, is set where there is no answer since the database has failed.

  /// The record with these primary keys, the first of several; none when there is none, it cannot
  /// be read, or no key is given.
  [[nodiscard]] std::optional<platform::Dictionary> record(
      const std::string& tableName, const platform::Dictionary& primaryKeys,
      platform::ErrorPtr* unreadable = nullptr) const;
  /// These columns of the rows of a table; all columns where none is named, all rows without a
  /// condition.
  [[nodiscard]] platform::Result<platform::Array> records(
      const std::string& tableName, const std::vector<std::string>& columns,
      const platform::Dictionary& where = {}) const;
  /// The name of the record's column that refers to the blob of this binary column.
  [[nodiscard]] static std::string linkColumn(const std::string& columnName);
  /// What stands in the record's link column: a blob id or "NULL"; none where there is no such
  /// column.
  [[nodiscard]] static std::optional<std::string> linkIn(const platform::Dictionary& record,
                                                         const std::string& columnName);
  /// Links the record to the blob, each of several with these keys.
  [[nodiscard]] platform::Result<void> setLink(const std::string& tableName,
                                               const std::string& columnName,
                                               const platform::Dictionary& primaryKeys,
                                               std::int64_t blobId) const;

  /// The blob id of the record's binary column. A record that is linked to no blob yet gets a row
  /// and its link, in one transaction; where that cannot be, the row alone. None, after a log
  /// entry, where there is no such record or no row could be made. `ahead` is what `makeRows` has
  /// made.
  [[nodiscard]] std::optional<std::string> obtainBlobId(
      const WantedBlob& blob, const LinkedRow& ahead = {},
      platform::ErrorPtr* unreadable = nullptr) const;
  /// Makes the rows and links that several calls of `obtainBlobId` would make, in one transaction,
  /// for these to go on with. See `insertLinked`.
  [[nodiscard]] static std::vector<LinkedRow> makeRows(const std::string& databasePath,
                                                       const std::vector<WantedBlob>& blobs);

  /// The row of this blob.
  [[nodiscard]] std::optional<platform::Dictionary> row(
      const std::string& blobId, platform::ErrorPtr* unreadable = nullptr) const;
  /// Inserts a row that says nothing but that the column's blob is deleted; see `isFailedInsert`.
  [[nodiscard]] std::int64_t insertDeletion(const std::string& tableName,
                                            const std::string& columnName,
                                            platform::ErrorPtr* error = nullptr) const;
  /// Changes the row of this blob.
  [[nodiscard]] platform::Result<void> update(const std::string& blobId,
                                              const platform::Dictionary& values) const;
  /// The same for what nobody waits for: see `VRODatabaseAPI::executeLater`. `told` is called once,
  /// also by this call.
  void updateLater(const std::string& blobId, const platform::Dictionary& values,
                   std::function<void(const platform::Result<void>& updated)> told) const;
  /// Changes the row of this blob while it is in this state. In another state it changes nothing,
  /// which is a success too.
  [[nodiscard]] platform::Result<void> updateInState(const std::string& blobId,
                                                     const platform::Value& state,
                                                     const platform::Dictionary& values) const;
  /// Changes the row of this blob unless its deletion is recorded, be it during the call. A row
  /// whose deletion is recorded only gets the path of `values`, where it has none.
  [[nodiscard]] platform::Result<void> updateUnlessDeleted(
      const std::string& blobId, const platform::Dictionary& values) const;

 private:
  /// See `SQLiteUtil::insertStatementForDatabase`.
  [[nodiscard]] std::int64_t insert(const platform::Dictionary& values,
                                    platform::ErrorPtr* error) const;
  [[nodiscard]] std::optional<platform::Dictionary> firstRow(
      const std::string& tableName, const platform::Dictionary& where,
      platform::ErrorPtr* unreadable = nullptr) const;
  // `insert` and `setLink` of what `insertLinked` has done.
  [[nodiscard]] std::int64_t noteInsert(const platform::Dictionary& values,
                                        const platform::Result<std::int64_t>& id,
                                        platform::ErrorPtr* error) const;
  [[nodiscard]] platform::Result<void> noteLink(const WantedBlob& blob, std::int64_t blobId,
                                                std::int64_t changedRows) const;

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
