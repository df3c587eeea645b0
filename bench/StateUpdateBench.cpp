// Question: how many states of downloads can be written to the application's database a second
// through SQLiteUtil, which checks, opens, prepares and binds for every statement as far as its
// callers can see, beside bare SQLite with one prepared statement on an open connection?
//
//   varo_state_update_bench ours|bare delete|wal|wal-normal DATABASE UPDATES
//
// Makes the database anew in this journal mode and prints the updates a second. Synchronous is
// SQLite's default, FULL; with wal-normal it is NORMAL on every connection of the process. Every
// update changes the values, since one that stores the same ones writes nothing.

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace {

using varo::binary::kVaroSyncBlobStoreMangager;
using varo::binary::SQLiteUtil;
using Clock = std::chrono::steady_clock;
/// Writes state and path of a blob; whether it could.
using Update = std::function<bool(std::int64_t id, std::int64_t state, const std::string& path)>;

constexpr int kRows = 100;
constexpr int kWarmUp = 20;

constexpr char kFill[] =
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100) "
    "INSERT INTO varosyncBLOBSTOREMANAGER(localPath, tableName, columnName, state, status, retry) "
    "SELECT '', 'records', 'image', 101, 0, 3 FROM n";

struct Close {
  void operator()(sqlite3* database) const { (void)sqlite3_close_v2(database); }
  void operator()(sqlite3_stmt* statement) const { (void)sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

bool run(sqlite3* database, const std::string& sql) {
  return sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

Database open(const std::string& path) {
  sqlite3* database = nullptr;
  const int code = sqlite3_open(path.c_str(), &database);
  Database result(database);
  return code == SQLITE_OK ? std::move(result) : nullptr;
}

int setNormal(sqlite3* database, char**, const void*) {
  return run(database, "PRAGMA synchronous = NORMAL") ? SQLITE_OK : SQLITE_ERROR;
}

bool create(const std::string& path, std::string_view mode) {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
    std::filesystem::remove(path + suffix);
  }
  const Database database = open(path);
  return database != nullptr &&
         run(database.get(), mode == "delete" ? "" : "PRAGMA journal_mode = WAL") &&
         run(database.get(), varo::binary::blobs::kCreateTable) && run(database.get(), kFill);
}

Update ours(const std::string& path) {
  return [path](std::int64_t id, std::int64_t state, const std::string& localPath) {
    return SQLiteUtil::updateStatementForDatabase(path, kVaroSyncBlobStoreMangager,
                                                  {{"state", state}, {"localPath", localPath}},
                                                  {{"id", std::to_string(id)}});
  };
}

Update bare(sqlite3* database) {
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(
          database, "UPDATE varosyncBLOBSTOREMANAGER SET state = ?, localPath = ? WHERE id = ?", -1,
          &prepared, nullptr) != SQLITE_OK) {
    return nullptr;
  }
  return [statement = std::shared_ptr<sqlite3_stmt>(prepared, Close())](
             std::int64_t id, std::int64_t state, const std::string& localPath) {
    return sqlite3_bind_int64(statement.get(), 1, state) == SQLITE_OK &&
           sqlite3_bind_text(statement.get(), 2, localPath.data(),
                             static_cast<int>(localPath.size()), SQLITE_STATIC) == SQLITE_OK &&
           sqlite3_bind_int64(statement.get(), 3, id) == SQLITE_OK &&
           sqlite3_step(statement.get()) == SQLITE_DONE &&
           sqlite3_reset(statement.get()) == SQLITE_OK;
  };
}

bool updateAll(const Update& update, int from, int count) {
  for (int number = from; number < from + count; ++number) {
    const std::string localPath = fmt::format("/home/user/Downloads/blobs/{:012}.bin", number);
    if (!update(number % kRows + 1, number, localPath)) return false;
  }
  return true;
}

/// Whether the last update is in the database.
bool isThere(sqlite3* database, int last) {
  sqlite3_stmt* prepared = nullptr;
  (void)sqlite3_prepare_v2(database, "SELECT max(state) FROM varosyncBLOBSTOREMANAGER", -1,
                           &prepared, nullptr);
  const Statement statement(prepared);
  return sqlite3_step(prepared) == SQLITE_ROW && sqlite3_column_int(prepared, 0) == last;
}

int measure(std::string_view side, std::string_view mode, const std::string& path, int updates) {
  if (mode == "wal-normal" &&
      sqlite3_auto_extension(reinterpret_cast<void (*)()>(&setNormal)) != SQLITE_OK) {
    return 1;
  }
  if (!create(path, mode)) return 1;
  // Open all the time on both sides, as the application's own connection is.
  const Database database = open(path);
  if (database == nullptr) return 1;
  const Update update = side == "ours" ? ours(path) : bare(database.get());
  // Starts where the states of new rows end, so that every update changes its row.
  constexpr int kFirst = 1000;
  if (!update || !updateAll(update, kFirst, kWarmUp)) return 1;
  const auto start = Clock::now();
  if (!updateAll(update, kFirst + kWarmUp, updates)) return 1;
  const std::chrono::duration<double> took = Clock::now() - start;
  if (!isThere(database.get(), kFirst + kWarmUp + updates - 1)) return 1;
  fmt::print("{}\n", updates / took.count());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view side = argc > 1 ? argv[1] : "";
  const std::string_view mode = argc > 2 ? argv[2] : "";
  const std::string_view count = argc > 4 ? argv[4] : "";
  int updates = 0;
  std::from_chars(count.begin(), count.end(), updates);
  if (argc != 5 || updates <= 0 || (side != "ours" && side != "bare") ||
      (mode != "delete" && mode != "wal" && mode != "wal-normal")) {
    fmt::print(stderr,
               "usage: varo_state_update_bench ours|bare delete|wal|wal-normal DATABASE UPDATES\n");
    return 2;
  }
  const int status = measure(side, mode, argv[3], updates);
  if (status != 0) fmt::print(stderr, "varo_state_update_bench: an update failed\n");
  return status;
}
