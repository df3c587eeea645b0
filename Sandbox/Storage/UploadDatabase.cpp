#include "Sandbox/Storage/UploadDatabase.h"

#include "Sandbox/Storage/KeyOrder.h"
#include "Sandbox/Storage/SqlValues.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Transaction.h>

namespace varo::sandbox {
namespace {

constexpr const char* kSchema = R"(
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
CREATE TABLE IF NOT EXISTS uploads (
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  id TEXT NOT NULL UNIQUE,
  key TEXT NOT NULL,
  begun INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS uploads_by_key ON uploads (key, number);
CREATE TABLE IF NOT EXISTS parts (
  upload TEXT NOT NULL,
  number INTEGER NOT NULL,
  bytes TEXT NOT NULL,
  size INTEGER NOT NULL,
  entity_tag TEXT NOT NULL,
  modified INTEGER NOT NULL,
  PRIMARY KEY (upload, number)) WITHOUT ROWID;
)";

}  // namespace

// One connection for all threads, under the lock, as that of the records.
UploadDatabase::UploadDatabase(const std::string& path)
    : database_(std::make_unique<SQLite::Database>(
          path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyTimeoutMs)) {
  database_->exec(kSchema);
}

UploadDatabase::~UploadDatabase() = default;

void UploadDatabase::insert(const UploadRecord& upload) {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, "INSERT INTO uploads (id, key, begun) VALUES (?, ?, ?)");
  bindText(statement, 1, upload.id);
  bindText(statement, 2, upload.key);
  statement.bind(3, toSql(upload.begun));
  statement.exec();
}

bool UploadDatabase::contains(std::string_view id, std::string_view key) const {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, "SELECT 1 FROM uploads WHERE id = ? AND key = ?");
  bindText(statement, 1, id);
  bindText(statement, 2, key);
  return statement.executeStep();
}

bool UploadDatabase::hasLocked(std::string_view id) const {
  SQLite::Statement statement(*database_, "SELECT 1 FROM uploads WHERE id = ?");
  bindText(statement, 1, id);
  return statement.executeStep();
}

std::vector<UploadRecord> UploadDatabase::list(std::string_view prefix, std::string_view afterKey,
                                               std::string_view afterId, std::size_t limit) const {
  const auto end = firstBehindPrefix(prefix);
  std::string sql =
      "SELECT id, key, begun FROM uploads WHERE key >= ?1 "
      // Without an upload to go on behind, all of the key are passed over: the number is none's.
      "AND (key, number) > (?2, COALESCE((SELECT number FROM uploads WHERE id = ?3), "
      "9223372036854775807)) ";
  if (end) sql += "AND key < ?5 ";
  sql += "ORDER BY key, number LIMIT ?4";

  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_, sql);
  bindText(statement, 1, prefix);
  bindText(statement, 2, afterKey);
  bindText(statement, 3, afterId);
  statement.bind(4, toSql(limit));
  if (end) bindText(statement, 5, *end);
  std::vector<UploadRecord> list;
  while (statement.executeStep()) {
    list.push_back({statement.getColumn(0).getString(), statement.getColumn(1).getString(),
                    timeFromSql(statement.getColumn(2).getInt64())});
  }
  return list;
}

std::optional<UploadDatabase::Replaced> UploadDatabase::putPart(std::string_view id,
                                                                const PartRecord& part) {
  const platform::MutexLock lock(mutex_);
  SQLite::Transaction transaction(*database_);
  // It may have ended while the part was on its way, and nobody would remove the part any more.
  if (!hasLocked(id)) return std::nullopt;
  Replaced replaced;
  SQLite::Statement old(*database_, "SELECT bytes FROM parts WHERE upload = ? AND number = ?");
  bindText(old, 1, id);
  old.bind(2, toSql(part.number));
  if (old.executeStep()) replaced.bytes = old.getColumn(0).getString();
  SQLite::Statement statement(*database_,
                              "INSERT OR REPLACE INTO parts (upload, number, bytes, size, "
                              "entity_tag, modified) VALUES (?, ?, ?, ?, ?, ?)");
  bindText(statement, 1, id);
  statement.bind(2, toSql(part.number));
  bindText(statement, 3, part.bytes);
  statement.bind(4, toSql(part.size));
  bindText(statement, 5, part.entityTag);
  statement.bind(6, toSql(part.modified));
  statement.exec();
  transaction.commit();
  return replaced;
}

std::vector<PartRecord> UploadDatabase::parts(std::string_view id, std::uint64_t after,
                                              std::size_t limit) const {
  const platform::MutexLock lock(mutex_);
  SQLite::Statement statement(*database_,
                              "SELECT number, bytes, size, entity_tag, modified FROM parts "
                              "WHERE upload = ? AND number > ? ORDER BY number LIMIT ?");
  bindText(statement, 1, id);
  statement.bind(2, toSql(after));
  statement.bind(3, toSql(limit));
  std::vector<PartRecord> list;
  while (statement.executeStep()) {
    list.push_back({fromSql(statement.getColumn(0).getInt64()), statement.getColumn(1).getString(),
                    fromSql(statement.getColumn(2).getInt64()), statement.getColumn(3).getString(),
                    timeFromSql(statement.getColumn(4).getInt64())});
  }
  return list;
}

std::optional<std::vector<std::string>> UploadDatabase::remove(std::string_view id) {
  const platform::MutexLock lock(mutex_);
  SQLite::Transaction transaction(*database_);
  SQLite::Statement upload(*database_, "DELETE FROM uploads WHERE id = ?");
  bindText(upload, 1, id);
  if (upload.exec() == 0) return std::nullopt;
  SQLite::Statement parts(*database_, "DELETE FROM parts WHERE upload = ? RETURNING bytes");
  bindText(parts, 1, id);
  std::vector<std::string> bytes;
  while (parts.executeStep()) bytes.push_back(parts.getColumn(0).getString());
  transaction.commit();
  return bytes;
}

}  // namespace varo::sandbox
