#include "Sandbox/Storage/RecordDatabase.h"

#include "Sandbox/Storage/KeyOrder.h"
#include "Sandbox/Storage/SqlValues.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>

namespace varo::sandbox {
namespace {

// Losing the last moments in a power cut is fine for a sandbox, a damaged file is not.
constexpr const char* kSchema = R"(
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
CREATE TABLE IF NOT EXISTS files (
  number INTEGER PRIMARY KEY,
  id TEXT NOT NULL UNIQUE,
  metadata TEXT NOT NULL,
  kind TEXT NOT NULL,
  committed INTEGER NOT NULL,
  size INTEGER NOT NULL,
  entity_tag TEXT NOT NULL,
  created TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
  revision INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS properties (
  id TEXT NOT NULL,
  name TEXT NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY (id, name)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS properties_by_value ON properties (name, value, id);
CREATE TABLE IF NOT EXISTS blobs (
  area TEXT NOT NULL,
  key TEXT NOT NULL,
  file_name TEXT NOT NULL,
  size INTEGER NOT NULL,
  chunk_length INTEGER NOT NULL,
  chunks INTEGER NOT NULL,
  entity_tag TEXT NOT NULL,
  modified INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY (area, key)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS objects (
  name TEXT PRIMARY KEY,
  definition TEXT NOT NULL) WITHOUT ROWID;
)";

constexpr std::string_view kStoredColumns =
    "file_name, size, chunk_length, chunks, entity_tag, modified";
constexpr std::string_view kFileColumns =
    "id, metadata, kind, committed, size, entity_tag, created, revision";

FileRecord readFile(SQLite::Statement& row) {
  return {row.getColumn(0).getString(),         row.getColumn(1).getString(),
          row.getColumn(2).getString(),         row.getColumn(3).getInt() != 0,
          fromSql(row.getColumn(4).getInt64()), row.getColumn(5).getString(),
          row.getColumn(6).getString(),         row.getColumn(7).getInt64()};
}

/// From column `first` on.
StoredBytes readStored(SQLite::Statement& row, int first) {
  return {.fileName = row.getColumn(first).getString(),
          .size = fromSql(row.getColumn(first + 1).getInt64()),
          .chunkLength = fromSql(row.getColumn(first + 2).getInt64()),
          .chunks = fromSql(row.getColumn(first + 3).getInt64()),
          .entityTag = row.getColumn(first + 4).getString(),
          .modified =
              std::chrono::sys_seconds(std::chrono::seconds(row.getColumn(first + 5).getInt64()))};
}

/// Directories that an older sandbox made are served on.
void addMissingColumns(SQLite::Database& database) {
  const bool isCurrent =
      database.execAndGet("SELECT COUNT(*) FROM pragma_table_info('blobs') WHERE name = 'modified'")
          .getInt() == 1;
  if (!isCurrent) database.exec("ALTER TABLE blobs ADD COLUMN modified INTEGER NOT NULL DEFAULT 0");
}

}  // namespace

// One connection for all threads, under the lock: statements are short, and a transaction is never
// mixed with another thread's.
RecordDatabase::RecordDatabase(const std::string& path)
    : database_(std::make_unique<SQLite::Database>(
          path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyTimeoutMs)) {
  database_->exec(kSchema);
  addMissingColumns(*database_);
}

RecordDatabase::~RecordDatabase() = default;

void RecordDatabase::insert(const FileRecord& record, const Properties& properties) {
  const platform::MutexLock lock(mutex_);
  SQLite::Transaction transaction(*database_);
  SQLite::Statement statement(*database_,
                              "INSERT INTO files (id, metadata, kind, committed, size, entity_tag) "
                              "VALUES (?, ?, ?, ?, ?, ?)");
  bindText(statement, 1, record.id);
  bindText(statement, 2, record.metadata);
  bindText(statement, 3, record.kind);
  statement.bind(4, record.committed ? 1 : 0);
  statement.bind(5, toSql(record.size));
  bindText(statement, 6, record.entityTag);
  statement.exec();
  writePropertiesLocked(record.id, properties);
  transaction.commit();
}

std::optional<FileRecord> RecordDatabase::find(std::string_view id) const {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_,
                              "SELECT " + std::string(kFileColumns) + " FROM files WHERE id = ?");
  bindText(statement, 1, id);
  if (!statement.executeStep()) return std::nullopt;
  return readFile(statement);
}

bool RecordDatabase::replace(const FileRecord& record, const Properties& properties) {
  const platform::MutexLock lock(mutex_);
  SQLite::Transaction transaction(*database_);
  SQLite::Statement statement(*database_,
                              "UPDATE files SET metadata = ?, committed = ?, size = ?, "
                              "entity_tag = ?, revision = revision + 1 "
                              // Matches no row when somebody else has
                              // written since the record was read.
                              "WHERE id = ? AND revision = ?");
  bindText(statement, 1, record.metadata);
  statement.bind(2, record.committed ? 1 : 0);
  statement.bind(3, toSql(record.size));
  bindText(statement, 4, record.entityTag);
  bindText(statement, 5, record.id);
  statement.bind(6, record.revision);
  if (statement.exec() != 1) return false;
  writePropertiesLocked(record.id, properties);
  transaction.commit();
  return true;
}

void RecordDatabase::remove(std::string_view id) {
  const platform::MutexLock lock(mutex_);
  SQLite::Transaction transaction(*database_);
  SQLite::Statement statement(*database_, "DELETE FROM files WHERE id = ?");
  bindText(statement, 1, id);
  statement.exec();
  writePropertiesLocked(id, {});
  transaction.commit();
}

void RecordDatabase::writePropertiesLocked(std::string_view id, const Properties& properties) {
  SQLite::Statement remove(*database_, "DELETE FROM properties WHERE id = ?");
  bindText(remove, 1, id);
  remove.exec();
  SQLite::Statement add(*database_,
                        // Of two entries with one name the later one
                        // stays, which is the service's own.
                        "INSERT OR REPLACE INTO properties (id, name, value) VALUES (?, ?, ?)");
  for (const auto& [name, value] : properties) {
    add.reset();
    bindText(add, 1, id);
    bindText(add, 2, name);
    bindText(add, 3, value);
    add.exec();
  }
}

std::vector<FileRecord> RecordDatabase::list(const Properties& wanted, Scope scope) const {
  std::string sql = "SELECT " + std::string(kFileColumns) + " FROM files WHERE ";
  sql += scope == Scope::kCommitted ? "committed = 1" : "TRUE";
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    sql += " AND id IN (SELECT id FROM properties WHERE name = ? AND value = ?)";
  }
  // The numbers grow with time, while two records may have been created at the same instant.
  sql += " ORDER BY number";

  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, sql);
  int index = 0;
  for (const auto& [name, value] : wanted) {
    bindText(statement, ++index, name);
    bindText(statement, ++index, value);
  }
  std::vector<FileRecord> records;
  while (statement.executeStep()) records.push_back(readFile(statement));
  return records;
}

std::optional<StoredBytes> RecordDatabase::findStored(std::string_view area,
                                                      std::string_view key) const {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, "SELECT " + std::string(kStoredColumns) +
                                              " FROM blobs WHERE area = ? AND key = ?");
  bindText(statement, 1, area);
  bindText(statement, 2, key);
  if (!statement.executeStep()) return std::nullopt;
  return readStored(statement, 0);
}

std::vector<KeyedBytes> RecordDatabase::listStored(std::string_view area, std::string_view prefix,
                                                   std::string_view from, std::size_t limit) const {
  const auto end = firstBehindPrefix(prefix);
  std::string sql = "SELECT key, " + std::string(kStoredColumns) +
                    " FROM blobs WHERE area = ?1 AND key >= ?2 AND key >= ?3 ";
  // The comparison of texts is one of bytes, whatever they are.
  if (end) sql += "AND key < ?5 ";
  sql += "ORDER BY key LIMIT ?4";

  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, sql);
  bindText(statement, 1, area);
  bindText(statement, 2, prefix);
  bindText(statement, 3, from);
  statement.bind(4, toSql(limit));
  if (end) bindText(statement, 5, *end);
  std::vector<KeyedBytes> list;
  while (statement.executeStep()) {
    list.push_back({statement.getColumn(0).getString(), readStored(statement, 1)});
  }
  return list;
}

void RecordDatabase::putStored(std::string_view area, std::string_view key,
                               const StoredBytes& state) {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_,
                              "INSERT OR REPLACE INTO blobs (area, key, file_name, size, "
                              "chunk_length, chunks, entity_tag, modified) "
                              "VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
  bindText(statement, 1, area);
  bindText(statement, 2, key);
  bindText(statement, 3, state.fileName);
  statement.bind(4, toSql(state.size));
  statement.bind(5, toSql(state.chunkLength));
  statement.bind(6, toSql(state.chunks));
  bindText(statement, 7, state.entityTag);
  statement.bind(8, toSql(state.modified));
  statement.exec();
}

void RecordDatabase::removeStored(std::string_view area, std::string_view key) {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, "DELETE FROM blobs WHERE area = ? AND key = ?");
  bindText(statement, 1, area);
  bindText(statement, 2, key);
  statement.exec();
}

std::optional<std::string> RecordDatabase::findObject(std::string_view name) const {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, "SELECT definition FROM objects WHERE name = ?");
  bindText(statement, 1, name);
  if (!statement.executeStep()) return std::nullopt;
  return statement.getColumn(0).getString();
}

void RecordDatabase::putObject(std::string_view name, std::string_view definition) {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_,
                              "INSERT OR REPLACE INTO objects (name, definition) VALUES (?, ?)");
  bindText(statement, 1, name);
  bindText(statement, 2, definition);
  statement.exec();
}

std::vector<std::string> RecordDatabase::removeObjects() {
  const platform::MutexLock lock(mutex_);
  SQLite::Transaction transaction(*database_);
  SQLite::Statement select(*database_, "SELECT name FROM objects");
  std::vector<std::string> names;
  while (select.executeStep()) names.push_back(select.getColumn(0).getString());
  select.reset();
  database_->exec("DELETE FROM objects");
  transaction.commit();
  return names;
}

}  // namespace varo::sandbox
