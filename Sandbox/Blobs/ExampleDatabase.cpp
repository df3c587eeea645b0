#include "Sandbox/Blobs/ExampleDatabase.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <fmt/format.h>

#include <array>
#include <exception>
#include <filesystem>

namespace varo::sandbox {
namespace {

using Mode = BlobObject::Mode;

constexpr int kBusyTimeoutMs = 5000;
constexpr std::uint64_t kMebibyte = std::uint64_t{1024} * 1024;

constexpr std::array kEmployees = {
    ExampleEmployee{1, "Ann Archer", {300'000, 1}},
    ExampleEmployee{2, "Ben Baker", {2'500'000, 2}},
    ExampleEmployee{3, "Cleo Carter", {64 * kMebibyte, 3}},
    ExampleEmployee{4, "Dan Dyer", {1'500'000, 4}, Mode::kUnknownTotal},
    ExampleEmployee{5, "Eve Evans", {400'000, 5}, Mode::kWhole},
    ExampleEmployee{6, "Finn Fisher", {20'000, 6}, Mode::kBase64},
    ExampleEmployee{7, "Gus Grant", {0, 7}, Mode::kError},
};

constexpr const char* kSchema = R"(
CREATE TABLE employees (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  blobref_photo TEXT);
CREATE TABLE varosyncBLOBSTOREMANAGER (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  localPath TEXT,
  tableName TEXT,
  columnName TEXT,
  type TEXT,
  state INTEGER,
  status INTEGER,
  retry INTEGER,
  size INTEGER);
)";

// "No blob yet" is either of two things in databases of applications, so both are here.
void insertEmployees(SQLite::Database& database) {
  SQLite::Statement statement(database, "INSERT INTO employees VALUES (?, ?, ?)");
  for (const ExampleEmployee& employee : kEmployees) {
    statement.reset();
    statement.bind(1, employee.id);
    statement.bind(2, std::string(employee.name));
    if (employee.id % 2 == 0) {
      statement.bind(3, "NULL");
    } else {
      statement.bind(3);
    }
    statement.exec();
  }
}

}  // namespace

std::span<const ExampleEmployee> ExampleDatabase::employees() { return kEmployees; }

BlobKey ExampleDatabase::keyOf(const ExampleEmployee& employee) {
  return {kScope, kTable, {{kKeyColumn, std::to_string(employee.id)}}};
}

std::optional<std::string> ExampleDatabase::make(const std::string& path) {
  try {
    // SQLite gives some relative names a meaning of its own.
    const auto file = std::filesystem::absolute(path);
    std::filesystem::create_directories(file.parent_path());
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                              kBusyTimeoutMs);
    // All or nothing, also between two who make it at once.
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    const bool isEmpty = database.execAndGet("SELECT count(*) FROM sqlite_schema").getInt() == 0;
    if (!isEmpty && !(database.tableExists(kTable) && database.tableExists(kBlobTable))) {
      return fmt::format("{} is another database", path);
    }
    if (!isEmpty) return std::nullopt;
    database.exec(kSchema);
    insertEmployees(database);
    transaction.commit();
    return std::nullopt;
  } catch (const std::exception& exception) {
    return fmt::format("cannot make the example database {}: {}", path, exception.what());
  }
}

}  // namespace varo::sandbox
