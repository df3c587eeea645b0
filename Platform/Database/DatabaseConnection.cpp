#include "Platform/Database/DatabaseConnection.h"

#include "Platform/Database/DatabaseError.h"
#include "Platform/Database/DatabaseTuning.h"
#include "Platform/Database/StatementValues.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/ThreadPool.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <limits>
#include <sys/stat.h>
#include <utility>

namespace varo::platform {
namespace {

/// Whether a connection is as good as new after this failure. After others (of the disk, of memory,
/// of a file that was read-only) a new connection may be better off.
bool survives(std::int64_t code) {
  switch (code & 0xff) {
    case SQLITE_ERROR:
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_TOOBIG:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_RANGE:
      return true;
    default:
      return false;
  }
}

/// The path as SQLite takes it literally. It may read "file:..." as a URI and ":memory:" or nothing
/// as a database without a file; a path that starts with a dot or a slash is always one.
std::string literalPath(const std::string& path) {
  return path.starts_with('/') ? path : "./" + path;
}

/// Gives back a statement, whatever became of it: its locks, and the values it was bound to.
class ResetAtEnd {
 public:
  explicit ResetAtEnd(sqlite3_stmt* statement) : statement_(statement) {}
  ~ResetAtEnd() {
    (void)sqlite3_reset(statement_);  // repeats the error of the last step
    (void)sqlite3_clear_bindings(statement_);
  }
  ResetAtEnd(const ResetAtEnd&) = delete;
  ResetAtEnd& operator=(const ResetAtEnd&) = delete;

 private:
  sqlite3_stmt* const statement_;
};

}  // namespace

void DatabaseConnection::Close::operator()(sqlite3* database) const noexcept {
  (void)sqlite3_close_v2(database);  // always frees it; what was committed stays committed
}

void DatabaseConnection::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
  (void)sqlite3_finalize(statement);  // repeats the error of the last step
}

DatabaseConnection::LateWrites::~LateWrites() {
  for (const LateWrite& each : writes) {
    const JobContext::Scope scope(each.context);
    ThreadPool::runHere([&each] { each.told(each.outcome); });
  }
}

DatabaseConnection::DatabaseConnection(std::string path)
    : path_(std::move(path)),
      noMemory_(makeSqliteError(SQLITE_NOMEM, sqlite3_errstr(SQLITE_NOMEM), path_)) {}

DatabaseConnection::~DatabaseConnection() = default;

Result<void> DatabaseConnection::open() {
  if (const Result<FileIdentity> file = identityOf(path_)) {
    const MutexLock lock(briefMutex_);
    lastUse_ = Clock::now();
    if (identity_ == *file) return {};
  }
  const MutexLock lock(mutex_);
  return openLocked();
}

Result<StatementOutcome> DatabaseConnection::read(const VROPreparedStatement& statement,
                                                  std::chrono::milliseconds busyTimeout) {
  const MutexLock lock(mutex_);
  return executeAloneLocked(statement, busyTimeout);
}

Result<StatementOutcome> DatabaseConnection::write(const VROPreparedStatement& statement,
                                                   std::chrono::milliseconds busyTimeout) {
  Write own{{&statement, 1}, nullptr, busyTimeout, {}};
  {
    const MutexLock lock(briefMutex_);
    writes_.push_back(&own);
  }
  LateWrites late;
  const MutexLock lock(mutex_);
  // Whoever had the turn before may have done it, too.
  if (!own.outcome) writeWaitingLocked(late);
  if (!own.outcome) return executeAloneLocked(statement, busyTimeout);
  if (!*own.outcome) return own.outcome->error();
  return std::move(own.outcome->value().front());
}

bool DatabaseConnection::writeLater(VROPreparedStatement statement,
                                    std::chrono::milliseconds busyTimeout, Told told) {
  // In the list before it is lined up, so that it stays where it is.
  std::list<LateWrite> own;
  own.push_back({std::move(statement),
                 std::move(told),
                 JobContext::current(),
                 Clock::now(),
                 {{}, nullptr, busyTimeout, {}},
                 noMemory_});
  LateWrite& late = own.front();
  late.write.statements = {&late.statement, 1};
  const MutexLock lock(briefMutex_);
  writes_.push_back(&late.write);
  late_.splice(late_.end(), own);
  return late_.size() == 1;
}

void DatabaseConnection::flush(Clock::time_point time) {
  {
    const MutexLock lock(briefMutex_);
    if (late_.empty() || late_.front().since > time) return;
  }
  LateWrites late;
  const MutexLock lock(mutex_);
  writeWaitingLocked(late);
}

std::vector<GroupOutcome> DatabaseConnection::writeGroups(const std::vector<StatementGroup>& groups,
                                                          std::chrono::milliseconds busyTimeout) {
  // All memory first: once something is committed, nothing may keep the caller from hearing of it.
  std::vector<GroupOutcome> outcomes(groups.size(), std::vector<StatementOutcome>());
  std::vector<Write> own;
  own.reserve(groups.size());
  for (const StatementGroup& group : groups) {
    own.push_back({group.statements, &group, busyTimeout, {}});
  }
  std::vector<Write*> lined;
  lined.reserve(own.size());
  for (Write& write : own) lined.push_back(&write);
  {
    const MutexLock lock(briefMutex_);
    writes_.insert(writes_.end(), lined.begin(), lined.end());
  }
  LateWrites late;
  const MutexLock lock(mutex_);
  // Whoever had the turn before may have done them, too.
  if (!own.empty() && !own.front().outcome) writeWaitingLocked(late);
  for (std::size_t i = 0; i < own.size(); ++i) {
    // What has failed may have closed the database.
    if (!own[i].outcome && database_ != nullptr) writeTogetherLocked({&lined[i], 1});
    if (own[i].outcome) outcomes[i] = *std::move(own[i].outcome);
  }
  return outcomes;
}

std::size_t DatabaseConnection::waitingWrites() const {
  const MutexLock lock(briefMutex_);
  return writes_.size();
}

bool DatabaseConnection::closeIfUnusedSince(Clock::time_point time) {
  const MutexLock lock(mutex_);
  const bool isUnused = [&] {
    const MutexLock brief(briefMutex_);
    return lastUse_ <= time;
  }();
  if (isUnused) closeLocked();
  return database_ == nullptr;
}

Result<DatabaseConnection::FileIdentity> DatabaseConnection::identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return Error::fromErrno(errno, "open", path);
  if (S_ISDIR(status.st_mode)) return Error::fromErrno(EISDIR, "open", path);
  if (!S_ISREG(status.st_mode)) return Error::fromErrno(EINVAL, "open", path);
  return FileIdentity{status.st_dev, status.st_ino};
}

Result<void> DatabaseConnection::openLocked() {
  // While the file is open, its inode is not given to another. So if the path shows the same one
  // after opening, that is what was opened.
  for (int attempt = 0; attempt <= tuning::kMaxOpenAttempts; ++attempt) {
    const Result<FileIdentity> file = identityOf(path_);
    if (!file) {
      closeLocked();
      return file.error();
    }
    {
      const MutexLock lock(briefMutex_);
      if (identity_ == *file) return {};
    }
    closeLocked();
    if (Result<void> opened = openFileLocked(); !opened) {
      closeLocked();
      return opened;
    }
    const MutexLock lock(briefMutex_);
    identity_ = *file;
  }
  closeLocked();
  return makeSqliteError(SQLITE_CANTOPEN, "The file is replaced all the time", path_);
}

Result<void> DatabaseConnection::openFileLocked() {
  // Falls back to reading alone where the file is read-only. Without a mutex of SQLite's, since
  // ours is held for every call.
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  sqlite3* database = nullptr;
  const int opened = sqlite3_open_v2(literalPath(path_).c_str(), &database, kFlags, nullptr);
  database_.reset(database);
  if (opened != SQLITE_OK) return errorLocked(opened);
  // Opening reads nothing; this reads the schema, and shows whether it is a database. Without
  // waiting: one that is locked now may not be when the statement comes.
  sqlite3_stmt* probe = nullptr;
  const int read =
      sqlite3_prepare_v2(database_.get(), "SELECT 1 FROM sqlite_master", -1, &probe, nullptr);
  (void)sqlite3_finalize(probe);
  if (read != SQLITE_OK && (read & 0xff) != SQLITE_BUSY) return errorLocked(read);
  return {};
}

void DatabaseConnection::closeLocked() noexcept {
  {
    const MutexLock lock(briefMutex_);
    identity_.reset();
  }
  prepared_.clear();
  database_.reset();
}

Result<sqlite3_stmt*> DatabaseConnection::prepareLocked(const std::string& sql) {
  const auto found = std::find_if(prepared_.begin(), prepared_.end(),
                                  [&](const Prepared& each) { return each.sql == sql; });
  if (found != prepared_.end()) {
    std::rotate(prepared_.begin(), found, std::next(found));
    return prepared_.front().handle.get();
  }
  if (sql.size() >= std::numeric_limits<int>::max()) return errorLocked(SQLITE_TOOBIG);
  sqlite3_stmt* statement = nullptr;
  const int code =
      sqlite3_prepare_v3(database_.get(), sql.c_str(), static_cast<int>(sql.size() + 1),
                         SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  std::unique_ptr<sqlite3_stmt, Finalize> owned(statement);
  if (code != SQLITE_OK) return errorLocked(code);
  if (prepared_.size() == tuning::kMaxPreparedStatements) prepared_.pop_back();
  Prepared prepared{sql, std::move(owned)};
  prepared_.insert(prepared_.begin(), std::move(prepared));
  return statement;
}

Result<StatementOutcome> DatabaseConnection::executeAloneLocked(
    const VROPreparedStatement& statement, std::chrono::milliseconds busyTimeout) {
  {
    const MutexLock lock(briefMutex_);
    lastUse_ = Clock::now();
  }
  if (database_ == nullptr) {
    if (const Result<void> opened = openLocked(); !opened) return opened.error();
  }
  (void)sqlite3_busy_timeout(database_.get(), static_cast<int>(busyTimeout.count()));
  Result<StatementOutcome> outcome = executeLocked(statement);
  if (!outcome && !survives(outcome.error()->code())) closeLocked();
  return outcome;
}

void DatabaseConnection::writeWaitingLocked(LateWrites& late) noexcept {
  std::vector<Write*> writes;
  {
    const MutexLock lock(briefMutex_);
    writes.swap(writes_);
    late.writes.splice(late.writes.end(), late_);
    lastUse_ = Clock::now();
  }
  // None where all were taken by one who could not execute them together.
  if (writes.size() >= 2) {
    // From the first that waits differently long for locks they go alone, to stay in their order.
    writes.erase(std::find_if(writes.begin(), writes.end(),
                              [timeout = writes.front()->busyTimeout](const Write* write) {
                                return write->busyTimeout != timeout;
                              }),
                 writes.end());
    if (writes.size() >= 2) writeTogetherLocked(writes);
  }
  // Before anybody else has a turn: what was asked for later is executed later.
  for (LateWrite& each : late.writes) finishLocked(each);
}

void DatabaseConnection::finishLocked(LateWrite& late) noexcept {
  std::optional<GroupOutcome>& outcome = late.write.outcome;
  try {
    if (!outcome) {
      late.outcome = executeAloneLocked(late.statement, late.write.busyTimeout);
    } else if (*outcome) {
      late.outcome = std::move(outcome->value().front());
    } else {
      late.outcome = outcome->error();
    }
  } catch (const std::exception&) {
    // It stays that there is no memory.
  }
}

void DatabaseConnection::writeTogetherLocked(std::span<Write* const> writes) noexcept {
  try {
    // Where it cannot be opened each of them says so itself.
    if (database_ != nullptr || openLocked()) transactLocked(writes);
  } catch (const std::exception&) {
    // No memory: each of them tries with less.
  }
  if (database_ != nullptr) rollBackLocked();
}

void DatabaseConnection::transactLocked(std::span<Write* const> writes) {
  std::vector<GroupOutcome> outcomes;
  outcomes.reserve(writes.size());
  // Only a lock is the same for each of them, and would have all wait, one after the other.
  const auto failAll = [&](const ErrorPtr& error) {
    if ((error->code() & 0xff) != SQLITE_BUSY) return;
    for (Write* const write : writes) write->outcome = error;
  };
  (void)sqlite3_busy_timeout(database_.get(),
                             static_cast<int>(writes.front()->busyTimeout.count()));
  if (const auto begun = runLocked("BEGIN IMMEDIATE"); !begun) return failAll(begun.error());
  for (const Write* const write : writes) {
    outcomes.push_back(executeLocked(*write));
    // It may fail only because it is not alone (VACUUM), and some failures and some of the
    // application's triggers take back the others' changes, too.
    if (!outcomes.back() || sqlite3_get_autocommit(database_.get()) != 0) return;
  }
  if (const auto committed = runLocked("COMMIT"); !committed) return failAll(committed.error());
  // Nothing from here on may fail, or what is committed would be executed again.
  for (std::size_t i = 0; i < writes.size(); ++i) writes[i]->outcome = std::move(outcomes[i]);
}

Result<void> DatabaseConnection::runLocked(const char* sql) {
  const int code = sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) return errorLocked(code);
  return {};
}

/// What is left of a transaction that was not committed.
void DatabaseConnection::rollBackLocked() noexcept {
  if (sqlite3_get_autocommit(database_.get()) != 0) return;
  // Without an error to make: there may be no memory for it.
  (void)sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  // With the connection goes whatever is still open.
  if (sqlite3_get_autocommit(database_.get()) == 0) closeLocked();
}

Result<std::vector<StatementOutcome>> DatabaseConnection::executeLocked(const Write& write) {
  std::vector<StatementOutcome> outcomes;
  if (write.group != nullptr) {
    const auto found = executeLocked(write.group->condition);
    if (!found) return found.error();
    const bool holds = !found->rows.empty() && found->rows[0] == Value(write.group->firstRow);
    if (!holds) return outcomes;
  }
  outcomes.reserve(write.statements.size());
  std::int64_t insertedRow = 0;
  for (const VROPreparedStatement& statement : write.statements) {
    Result<StatementOutcome> outcome = executeLocked(statement, insertedRow);
    if (!outcome) return outcome.error();
    // What inserts nothing has left 0.
    if (outcome->insertedRow != 0) insertedRow = outcome->insertedRow;
    outcomes.push_back(std::move(outcome).value());
  }
  return outcomes;
}

Result<StatementOutcome> DatabaseConnection::executeLocked(const VROPreparedStatement& statement,
                                                           std::int64_t insertedRow) {
  const Result<sqlite3_stmt*> prepared = prepareLocked(statement.sql());
  if (!prepared) return prepared.error();
  const ResetAtEnd resetAtEnd(*prepared);
  const int bound = bindValues(*prepared, statement.values(), insertedRow);
  if (bound != SQLITE_OK) return errorLocked(bound);
  // An insert that makes no row id would leave that of an earlier one.
  sqlite3_set_last_insert_rowid(database_.get(), 0);
  StatementOutcome outcome;
  std::vector<Value> rows;
  DictionaryBuilder builder;
  int code = sqlite3_step(*prepared);
  for (; code == SQLITE_ROW; code = sqlite3_step(*prepared)) {
    std::optional<Dictionary> row = readRow(*prepared, builder);
    if (!row) return errorLocked(SQLITE_NOMEM);
    rows.push_back(*std::move(row));
  }
  if (code != SQLITE_DONE) return errorLocked(code);
  outcome.rows = Array(std::move(rows));
  // A select leaves the number of the statement before it.
  outcome.changedRows =
      sqlite3_stmt_readonly(*prepared) != 0 ? 0 : sqlite3_changes64(database_.get());
  outcome.insertedRow = sqlite3_last_insert_rowid(database_.get());
  return outcome;
}

ErrorPtr DatabaseConnection::errorLocked(int code) const {
  // The connection's own text says more ("no such column: x"), where it is about this error.
  const bool about = database_ != nullptr && sqlite3_extended_errcode(database_.get()) == code;
  const char* const text = about ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(code);
  return makeSqliteError(code, text, path_);
}

}  // namespace varo::platform
