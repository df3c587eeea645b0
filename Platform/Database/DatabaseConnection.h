#pragma once

#include "Platform/Database/StatementGroup.h"
#include "Platform/Database/StatementOutcome.h"
#include "Platform/Database/VROPreparedStatement.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace varo::platform {

/// A connection to the database under one path, open only while it is used, with its prepared
/// statements. Thread-safe: one statement at a time.
///
/// A commit waits for the disk, which takes far longer than the statement. So writes of several
/// threads that come meanwhile share the next one.
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

  /// Executes what changes nothing. Waits up to `busyTimeout` for locks of other connections.
  /// Errors: domain "SQLite", and those of `open`.
  [[nodiscard]] Result<StatementOutcome> read(const VROPreparedStatement& statement,
                                              std::chrono::milliseconds busyTimeout);
  /// The same for an insert, update or delete; returns when it is on the disk. One that fails does
  /// so alone, unless the database stays locked for all that share its commit.
  [[nodiscard]] Result<StatementOutcome> write(const VROPreparedStatement& statement,
                                               std::chrono::milliseconds busyTimeout);

  /// The outcome of each group, in their order; returns when they are on the disk. They share a
  /// commit, with each other and with the writes of other threads, unless one of them fails: then
  /// each has its own. What cannot be executed is left out.
  [[nodiscard]] std::vector<GroupOutcome> writeGroups(const std::vector<StatementGroup>& groups,
                                                      std::chrono::milliseconds busyTimeout);

  /// Hears of a write that nobody has waited for; called once, with no lock held, in the
  /// `JobContext` of the call.
  using Told = std::function<void(const Result<StatementOutcome>&)>;
  /// Lines up an insert, update or delete, and returns at once. The next commit takes it along,
  /// before whatever is asked for after this call. True where no other one waits like this: then
  /// somebody has to `flush` in a while.
  [[nodiscard]] bool writeLater(VROPreparedStatement statement,
                                std::chrono::milliseconds busyTimeout, Told told);
  /// Commits them, where the first of those that wait has done so since then.
  void flush(Clock::time_point time);

  /// Writes that will share the next commit, as it stands now; a group counts as one.
  [[nodiscard]] std::size_t waitingWrites() const;

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

  /// What a thread waits for, which owns it.
  struct Write {
    std::span<const VROPreparedStatement> statements;
    /// Null for a statement that is in none.
    const StatementGroup* group;
    std::chrono::milliseconds busyTimeout;
    /// Once it is committed, or has failed; used under `mutex_`.
    std::optional<GroupOutcome> outcome;
  };

  /// One that nobody waits for.
  struct LateWrite {
    VROPreparedStatement statement;
    Told told;
    JobContext::Ptr context;
    Clock::time_point since;
    Write write;
    Result<StatementOutcome> outcome;
  };
  /// Tells of them when it goes: after the lock, which is taken after it.
  struct LateWrites {
    LateWrites() = default;
    ~LateWrites();
    LateWrites(const LateWrites&) = delete;
    LateWrites& operator=(const LateWrites&) = delete;
    std::list<LateWrite> writes;
  };

  static Result<FileIdentity> identityOf(const std::string& path);
  Result<void> openLocked() VARO_REQUIRES(mutex_);
  Result<void> openFileLocked() VARO_REQUIRES(mutex_);
  void closeLocked() noexcept VARO_REQUIRES(mutex_);
  Result<sqlite3_stmt*> prepareLocked(const std::string& sql) VARO_REQUIRES(mutex_);
  Result<StatementOutcome> executeAloneLocked(const VROPreparedStatement& statement,
                                              std::chrono::milliseconds busyTimeout)
      VARO_REQUIRES(mutex_);
  /// `insertedRow` is what `InsertedRowId` stands for; 0 for none.
  Result<StatementOutcome> executeLocked(const VROPreparedStatement& statement,
                                         std::int64_t insertedRow = 0) VARO_REQUIRES(mutex_);
  Result<std::vector<StatementOutcome>> executeLocked(const Write& write) VARO_REQUIRES(mutex_);
  /// Gives those that wait an outcome, in one transaction. What it leaves without one has changed
  /// nothing, and has to be executed alone. `late` gets those that nobody
  /// waits for, all with an outcome.
  void writeWaitingLocked(LateWrites& late) noexcept VARO_REQUIRES(mutex_);
  void finishLocked(LateWrite& late) noexcept VARO_REQUIRES(mutex_);
  /// The same for these, which are at least one.
  void writeTogetherLocked(std::span<Write* const> writes) noexcept VARO_REQUIRES(mutex_);
  void transactLocked(std::span<Write* const> writes) VARO_REQUIRES(mutex_);
  /// A statement without values and rows.
  Result<void> runLocked(const char* sql) VARO_REQUIRES(mutex_);
  void rollBackLocked() noexcept VARO_REQUIRES(mutex_);
  /// The error that SQLite has just returned.
  [[nodiscard]] ErrorPtr errorLocked(int code) const VARO_REQUIRES(mutex_);

  const std::string path_;
  /// Made in time: of a write that there was no memory for, and nobody to throw that at.
  const ErrorPtr noMemory_;

  Mutex mutex_;
  std::unique_ptr<sqlite3, Close> database_ VARO_GUARDED_BY(mutex_);
  /// The last used first. After the database, so that they go before it does.
  std::vector<Prepared> prepared_ VARO_GUARDED_BY(mutex_);

  /// Held for moments, inside of `mutex_` too: who looks whether the file is still the same, and
  /// who lines up a write, does not wait for a commit.
  mutable Mutex briefMutex_;
  /// Of the open file; none while none is open.
  std::optional<FileIdentity> identity_ VARO_GUARDED_BY(briefMutex_);
  Clock::time_point lastUse_ VARO_GUARDED_BY(briefMutex_);
  /// Those that nobody has begun with, in the order in which they came.
  std::vector<Write*> writes_ VARO_GUARDED_BY(briefMutex_);
  /// Those of `writes_` that nobody waits for. Whoever takes them from there takes them from here.
  std::list<LateWrite> late_ VARO_GUARDED_BY(briefMutex_);
};

}  // namespace varo::platform
