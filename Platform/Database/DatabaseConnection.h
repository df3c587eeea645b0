#pragma once

#include "Platform/Database/VROPreparedStatement.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace varo::platform {

/// What a statement has left behind.
struct StatementOutcome {
  /// A select's rows, a `Dictionary` each.
  Array rows;
  /// An insert's row id; 0 where it has none (a table without row ids, a view).
  std::int64_t insertedRow = 0;
  /// Rows inserted, updated or deleted; those that triggers have changed are not counted.
  std::int64_t changedRows = 0;
};

/// A connection to the database under one path, open only while it is used, with its prepared
/// statements. Thread-safe: one statement at a time.
///
/// Never opens, reads or closes the file itself: closing any descriptor of a file drops the locks
/// that the process holds on it, SQLite's among them.
class DatabaseConnection {
 public:
  using Clock = std::chrono::steady_clock;

  explicit DatabaseConnection(std::string path);
  ~DatabaseConnection();
  DatabaseConnection(const DatabaseConnection&) = delete;
  DatabaseConnection& operator=(const DatabaseConnection&) = delete;

  /// Opens the file that is under the path now, unless it is open. Errors: domain "POSIX" where
  /// there is none or no regular file, else "SQLite". A file that is locked is no error yet.
  [[nodiscard]] Result<void> open();

  /// Waits up to `busyTimeout` for locks of other connections. Errors: domain "SQLite", and those
  /// of `open`.
  [[nodiscard]] Result<StatementOutcome> execute(const VROPreparedStatement& statement,
                                                 std::chrono::milliseconds busyTimeout);

  /// Closes what has not been used since then. Whether nothing is open now.
  bool closeIfUnusedSince(Clock::time_point time);

 private:
  struct Close {
    void operator()(sqlite3* database) const noexcept;
  };
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  struct Prepared {
    std::string sql;
    std::unique_ptr<sqlite3_stmt, Finalize> handle;
  };
  struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
  };

  static Result<FileIdentity> identityOf(const std::string& path);
  Result<void> openLocked() VARO_REQUIRES(mutex_);
  Result<void> openFileLocked() VARO_REQUIRES(mutex_);
  void closeLocked() noexcept VARO_REQUIRES(mutex_);
  Result<sqlite3_stmt*> prepareLocked(const std::string& sql) VARO_REQUIRES(mutex_);
  Result<StatementOutcome> executeLocked(const VROPreparedStatement& statement)
      VARO_REQUIRES(mutex_);
  /// The error that SQLite has just returned.
  [[nodiscard]] ErrorPtr errorLocked(int code) const VARO_REQUIRES(mutex_);

  const std::string path_;

  Mutex mutex_;
  std::unique_ptr<sqlite3, Close> database_ VARO_GUARDED_BY(mutex_);
  /// The last used first. After the database, so that they go before it does.
  std::vector<Prepared> prepared_ VARO_GUARDED_BY(mutex_);
  /// Of the open file.
  FileIdentity identity_ VARO_GUARDED_BY(mutex_);
  Clock::time_point lastUse_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::platform
