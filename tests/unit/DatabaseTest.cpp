#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Platform/Database/DatabaseConnection.h"
#include "Platform/Database/DatabaseError.h"
#include "Platform/Database/VRODatabaseAPI.h"
#include "Platform/Database/VROPreparedStatementBuilderFactory.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/Await.h"
#include "tests/support/Files.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryDirectory.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

#include <array>
#include <cmath>
#include <fstream>
#include <future>

namespace varo::binary {
namespace {

using namespace std::string_literals;
using namespace varo::platform;
using namespace test;
namespace fs = std::filesystem;

constexpr char kRecords[] = "CREATE TABLE records(id INTEGER PRIMARY KEY, a, b)";
constexpr int kSqliteBusy = 5;

/// What an operation of each kind makes of the same database: the insert's result, and 1 for each
/// of the query, the update and the deletion that succeeds.
std::string outcomesOf(const std::string& path, const std::string& table, const std::string& column,
                       const Value& value) {
  const Dictionary entry{{column, value}};
  std::string text = std::to_string(SQLiteUtil::insertStatementForDatabase(path, table, entry));
  text += SQLiteUtil::queryDataForDatabase(path, table, entry) ? " 1" : " 0";
  text += SQLiteUtil::updateStatementForDatabase(path, table, {{"a", 2}}, entry) ? "1" : "0";
  text += SQLiteUtil::deleteStatementForDatabase(path, table, entry) ? "1" : "0";
  return text;
}

std::string quoted(const std::string& name) {
  std::string result = "\"";
  for (const char character : name) result.append(character == '"' ? 2 : 1, character);
  return result + '"';
}

/// Overwrites bytes of a file that SQLite does not have open.
void patch(const std::string& path, std::streamoff offset, const std::string& bytes) {
  std::fstream(path, std::ios::binary | std::ios::in | std::ios::out).seekp(offset) << bytes;
}

class DatabaseTest : public testing::Test {
 protected:
  /// A database made by the application, which has closed it.
  std::string create(const std::string& name, const std::string& sql = kRecords) const {
    SQLite::Database(directory_ / name, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(sql);
    return directory_ / name;
  }
  /// What the application reads.
  static std::string read(const std::string& path, const std::string& sql) {
    return SQLite::Database(path).execAndGet(sql).getString();
  }

  const TemporaryDirectory directory_;
};

TEST_F(DatabaseTest, TextHostileToSqlIsOnlyAValueOrAName) {
  const std::string path = create("app.db");
  const auto schema = [&] { return read(path, "SELECT group_concat(sql) FROM sqlite_master"); };
  for (const std::string& text :
       {"'"s, "\""s, "]"s, "`"s, "; --"s, "select"s, "1 OR 1"s, "?"s, "NULL"s, "a b"s,
        "\"); DROP TABLE records; --"s, "' OR ''='"s, "id\" = \"id"s, "\xC3\xA9"s}) {
    SCOPED_TRACE(text);
    const std::int64_t kept =
        SQLiteUtil::insertStatementForDatabase(path, "records", {{"a", text}, {"b", text}});
    ASSERT_GT(kept, 0);
    const auto rows = SQLiteUtil::queryDataForDatabase(path, "records", {{"a", text}});
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 1U);
    EXPECT_EQ((*rows)[0], Value(Dictionary{{"id", kept}, {"a", text}, {"b", text}}));

    // As a name that nothing has; the value is the name, which makes `"name" = 'name'` true in
    // SQLite where it takes the one for the other.
    const std::string before = schema();
    EXPECT_EQ(outcomesOf(path, "records", text, text), "-1 000");
    EXPECT_EQ(outcomesOf(path, text, "a", text), "-1 000");
    EXPECT_EQ(schema(), before);
    EXPECT_EQ(read(path, "SELECT count(*) FROM records"), "1");

    // As a name that there is.
    create("app.db", "CREATE TABLE " + quoted(text) + "(a, " + quoted(text) + ")");
    EXPECT_EQ(outcomesOf(path, text, text, 7), "1 111");
    create("app.db", "DROP TABLE " + quoted(text));
    EXPECT_TRUE(SQLiteUtil::deleteStatementForDatabase(path, "records", {{"b", text}}));
    EXPECT_EQ(read(path, "SELECT count(*) FROM records"), "0");
  }
}

TEST_F(DatabaseTest, WhatIsNoStatementOrWouldHitEveryRowIsRefusedBeforeTheDatabaseSeesIt) {
  const std::string path = create("app.db", kRecords + "; INSERT INTO records DEFAULT VALUES"s);
  const auto file = File::createUnnamed(directory_.path()).value();
  const Value tooLarge(Data::fromFileRegion(file, 0, (16U << 20U) + 1));
  for (const Value& value : {Value(Array{}), Value(Dictionary{}), Value(std::nan("")), tooLarge,
                             Value(Data::fromFileRegion(file, 0, 1)),  // beyond the file's end
                             Value(makeDatabaseError(DatabaseError::kInvalidValue, "x"))}) {
    EXPECT_EQ(outcomesOf(path, "records", "a", value), "0 000");
  }
  for (const auto& [table, column] :
       {std::pair("records"s, ""s), {"records"s, "a\0b"s}, {""s, "a"s}, {"records\0x"s, "a"s}}) {
    EXPECT_EQ(outcomesOf(path, table, column, 1), "0 000");
  }
  EXPECT_FALSE(SQLiteUtil::updateStatementForDatabase(path, "records", {{"a", 1}}, {}));
  EXPECT_FALSE(SQLiteUtil::updateStatementForDatabase(path, "records", {}, {{"id", 1}}));
  EXPECT_FALSE(SQLiteUtil::deleteStatementForDatabase(path, "records", {}));
  ErrorPtr error;
  EXPECT_FALSE(VROPreparedStatementBuilderFactory::getPreparedStatementForTableName(
      "records", StatementBuilderType{3}, &error));
  EXPECT_FALSE(VROPreparedStatementBuilder("records", StatementBuilderType::kSelect)
                   .addUpdateColumnsMap({{"a", 1}})
                   .build(nullptr));
  EXPECT_EQ(read(path, "SELECT count(*) || max(a IS NULL) FROM records"), "11");
}

TEST_F(DatabaseTest, ValuesComeBackAsTheyWentInAndNullAsText) {
  const std::string path = create("app.db");
  const auto file = File::createUnnamed(directory_.path()).value();
  ASSERT_TRUE(file->writeAt(0, "0123").ok());
  const struct {
    Value in, out;
    const char* type;
  } cases[] = {
      {nullptr, "NULL", "null"},
      {true, 1, "integer"},
      {false, 0, "integer"},
      {INT64_MIN, INT64_MIN, "integer"},
      {0.5, 0.5, "real"},
      {"", "", "text"},
      {"a\0b"s, "a\0b"s, "text"},
      {"50", "50", "text"},
      {Data(), Data(), "blob"},
      {Data::fromBytes("\0\xFF"s), Data::fromBytes("\0\xFF"s), "blob"},
      {Data::fromFileRegion(file, 1, 2), Data::fromBytes("12"), "blob"},
  };
  for (const auto& each : cases) {
    const std::string id =
        std::to_string(SQLiteUtil::insertStatementForDatabase(path, "records", {}));
    ASSERT_TRUE(
        SQLiteUtil::updateStatementForDatabase(path, "records", {{"a", each.in}}, {{"id", id}}));
    const auto rows = SQLiteUtil::queryDataForDatabase(path, "records", {{"id", id}});
    ASSERT_TRUE(rows);
    EXPECT_EQ((*rows)[0].dictionaryValue()["a"], each.out);
    EXPECT_EQ(read(path, "SELECT typeof(a) FROM records WHERE id = " + id), each.type);
  }
  // Nothing equals NULL, and a row without an id does not have that of another.
  EXPECT_TRUE(SQLiteUtil::queryDataForDatabase(path, "records", {{"a", nullptr}})->empty());
  create("app.db", "CREATE TABLE other(a PRIMARY KEY) WITHOUT ROWID");
  EXPECT_EQ(SQLiteUtil::insertStatementForDatabase(path, "other", {{"a", 1}}), 0);
}

TEST_F(DatabaseTest, EachKindOfUnusableDatabaseHasItsOutcome) {
  const std::string cannotOpen = "0 000", fails = "-1 000";
  const struct {
    const char* name;
    std::function<void(const std::string&)> spoil;
    std::string expected;
  } cases[] = {
      {"missing", [](const auto& path) { fs::remove(path); }, cannotOpen},
      {"directory", [](const auto& path) { fs::remove(path), fs::create_directory(path); },
       cannotOpen},
      {"no database", [](const auto& path) { patch(path, 0, std::string(100, 'x')); }, cannotOpen},
      {"damaged", [](const auto& path) { patch(path, 4096, std::string(4096, 'x')); }, fails},
      {"no such table", [this](const auto&) { create("app.db", "DROP TABLE records"); }, fails},
      // A format that this version may read but not write.
      {"read-only", [](const auto& path) { patch(path, 18, "\3"); }, "-1 100"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    fs::remove_all(directory_ / "app.db");
    const std::string path = create("app.db");
    each.spoil(path);
    EXPECT_EQ(outcomesOf(path, "records", "a", 1), each.expected);
    EXPECT_EQ(SQLiteUtil::databaseApi() == nullptr, each.expected == cannotOpen);
  }
  patch(directory_ / "app.db", 18, "\1");
  EXPECT_EQ(outcomesOf(directory_ / "app.db", "records", "a", 1), "1 111");
}

TEST_F(DatabaseTest, WriteThatFailsSaysWhyAndOneThatChangesNothingSaysThat) {
  const std::string trigger = std::string(kRecords) +
                              "; INSERT INTO records(a, b) VALUES(1, 1);"
                              "CREATE TRIGGER t BEFORE UPDATE ON records BEGIN SELECT RAISE(";
  const struct {
    const char* name;
    std::string sql;
    rlim_t sizeLimit;   // of the file, in bytes; 0: none
    std::int64_t code;  // 0: success
    std::string_view text;
    std::int64_t changedRows;
  } cases[] = {
      {"row", std::string(kRecords) + "; INSERT INTO records(a) VALUES(1)", 0, 0, "", 1},
      {"no row", kRecords, 0, 0, "", 0},
      {"trigger that ignores", trigger + "IGNORE); END", 0, 0, "", 0},
      {"trigger that aborts", trigger + "ABORT, 'not now'); END", 0, 1811, "not now", 0},
      {"trigger that rolls back", trigger + "ROLLBACK, 'no'); END", 0, 1811, "no", 0},
      {"no table", "CREATE TABLE other(a)", 0, 1, "no such table: records", 0},
      {"no column", "CREATE TABLE records(a)", 0, 1, "no such column: b", 0},
      {"disk", std::string(kRecords) + "; INSERT INTO records(a) VALUES(1)", 4096, 778, "I/O", 0},
  };
  const auto update = VROPreparedStatementBuilder("records", StatementBuilderType::kUpdate)
                          .addUpdateColumnsMap({{"b", std::string(100000, 'x')}})
                          .addWhereConditionMap({{"a", 1}})
                          .build(nullptr);
  ASSERT_TRUE(update);
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const std::string path = create(std::string(each.name) + ".db", each.sql);
    const auto database = VRODatabaseAPI::initWithPath(path, {}, nullptr);
    ASSERT_NE(database, nullptr);
    Result<std::int64_t> changedRows(0);
    {
      std::optional<FileSizeLimit> limit;
      if (each.sizeLimit != 0) limit.emplace(each.sizeLimit);
      changedRows = database->executeAndCountChanges(*update);
    }
    EXPECT_EQ(changedRows.ok(), each.code == 0);
    if (changedRows) {
      EXPECT_EQ(*changedRows, each.changedRows);
    } else {
      EXPECT_EQ(changedRows.error()->domain(), kSqliteErrorDomain);
      EXPECT_EQ(changedRows.error()->code(), each.code);
      EXPECT_THAT(changedRows.error()->localizedDescription(), testing::HasSubstr(each.text));
    }
  }
}

/// What a statement that calls the SQL function gate() waits for, in connections opened meanwhile.
struct Gate {
  Gate() {
    current = this;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(&addTo));
  }
  ~Gate() { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(&addTo)); }
  static int addTo(sqlite3* database, char**, const void*) {
    return sqlite3_create_function(database, "gate", 0, SQLITE_UTF8 | SQLITE_INNOCUOUS, nullptr,
                                   &pass, nullptr, nullptr);
  }
  static void pass(sqlite3_context*, int, sqlite3_value**) {
    current->entered.set_value();
    current->opened.get_future().wait();
  }
  static inline Gate* current = nullptr;
  std::promise<void> entered, opened;
};

TEST_F(DatabaseTest, WritesThatWaitForTheDiskShareACommitAndFailAlone) {
  const std::string schema = std::string(kRecords) +
                             ";CREATE TRIGGER g BEFORE INSERT ON records WHEN new.a = 0 BEGIN"
                             " SELECT gate(); END;"
                             "CREATE TRIGGER o BEFORE INSERT ON records WHEN new.a = 3 AND NOT"
                             " EXISTS(SELECT 1 FROM records WHERE a = 1) BEGIN"
                             " SELECT RAISE(ABORT, 'before what was asked for earlier'); END;";
  const std::string second =
      "CREATE TRIGGER t BEFORE INSERT ON records WHEN new.a = 2 BEGIN SELECT ";
  const struct {
    const char* name;
    std::string sql;
    bool isRead;  // by the application meanwhile, so that nothing can be committed
    std::string outcomes, rows;
    int commits;
  } cases[] = {
      {"all well", "", false, "0 0 0 0", "0123", 2},
      {"one fails", second + "RAISE(ABORT, 'no'); END", false, "0 0 1811 0", "013", 3},
      {"one rolls back", second + "RAISE(ROLLBACK, 'no'); END", false, "0 0 1811 0", "013", 3},
      {"locked", "", true, "5 5 5 5", "", 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const std::string path = create(std::string(each.name) + ".db", schema + each.sql);
    // A number that each commit counts up (https://www.sqlite.org/fileformat.html, 1.3.7).
    const auto commits = [&] { return static_cast<int>(contentOf(path).at(27)); };
    const int before = commits();
    SQLite::Database application(path);
    SQLite::Statement reading(application, "SELECT * FROM sqlite_master");
    ASSERT_TRUE(!each.isRead || reading.executeStep());

    Gate gate;
    DatabaseConnection connection(path);
    std::array<std::int64_t, 4> outcomes{};
    std::vector<std::thread> threads;
    for (std::int64_t a = 0; a < 4; ++a) {
      threads.emplace_back([&connection, &outcomes, a] {
        const auto insert = VROPreparedStatementBuilder("records", StatementBuilderType::kInsert)
                                .addInsertValuesMap({{"a", a}})
                                .build(nullptr);
        const auto note = [&outcomes, a](const auto& outcome) {
          outcomes.at(static_cast<std::size_t>(a)) = outcome ? 0 : outcome.error()->code();
        };
        constexpr std::chrono::milliseconds kBusyTimeout(1);
        if (a != 1) return note(connection.write(*insert, kBusyTimeout));
        // Nobody waits for this one, but for its outcome below.
        EXPECT_TRUE(connection.writeLater(*insert, kBusyTimeout, note));
      });
      // The first one is in the middle of its statement when the others line up.
      if (a == 0) gate.entered.get_future().wait();
      ASSERT_TRUE(
          eventually([&] { return connection.waitingWrites() == static_cast<std::size_t>(a); }));
    }
    gate.opened.set_value();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(fmt::format("{}", fmt::join(outcomes, " ")), each.outcomes);
    reading.reset();
    EXPECT_EQ(
        read(path,
             "SELECT ifnull(group_concat(a, ''), '') FROM (SELECT a FROM records ORDER BY a)"),
        each.rows);
    EXPECT_EQ(commits() - before, each.commits);
  }
}

TEST_F(DatabaseTest, LateWriteIsCommittedWhereNoOtherWriteComes) {
  const std::string path = create("app.db");
  const auto database = VRODatabaseAPI::initWithPath(path, {}, nullptr);
  ASSERT_NE(database, nullptr);
  for (const std::int64_t a : {1, 2}) {
    const auto insert = VROPreparedStatementBuilder("records", StatementBuilderType::kInsert)
                            .addInsertValuesMap({{"a", a}})
                            .build(nullptr);
    auto told = std::make_shared<std::promise<std::int64_t>>();
    auto rows = told->get_future();
    database->executeLater(
        *insert, [told](const auto& changed) { told->set_value(changed.ok() ? *changed : -1); });
    EXPECT_EQ(rows.get(), 1);
    EXPECT_EQ(read(path, "SELECT count(*) FROM records"), std::to_string(a));
  }
}

TEST_F(DatabaseTest, LockOfAnotherConnectionIsAnErrorOnlyAfterTheTimeout) {
  const std::string path = create("app.db");
  const auto insert = VROPreparedStatementBuilder("records", StatementBuilderType::kInsert);
  SQLite::Database application(path, SQLite::OPEN_READWRITE);
  application.exec("BEGIN EXCLUSIVE");
  ErrorPtr error;
  const auto impatient = VRODatabaseAPI::initWithPath(path, {{"busyTimeoutMs", 1}}, &error);
  ASSERT_NE(impatient, nullptr);
  EXPECT_EQ(impatient->executeSingleInsertStatement(*insert.build(nullptr), &error), -1);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), kSqliteErrorDomain);
  EXPECT_EQ(error->code(), kSqliteBusy);
  std::thread patient([&] {
    EXPECT_EQ(SQLiteUtil::insertStatementForDatabase(path, "records", {{"a", 1}}), 1);
  });
  application.exec("COMMIT");
  patient.join();
  EXPECT_EQ(VRODatabaseAPI::initWithPath(path, {{"busyTimeoutMs", "1"}}, &error), nullptr);
  EXPECT_EQ(error->domain(), kDatabaseErrorDomain);
}

TEST_F(DatabaseTest, ReplacedOrRemovedFileIsSeenByTheNextStatement) {
  for (const std::string mode : {"DELETE", "WAL"}) {
    SCOPED_TRACE(mode);
    const std::string schema = "PRAGMA journal_mode = " + mode + ";" + kRecords;
    const std::string path = create(mode, schema);
    ASSERT_EQ(SQLiteUtil::insertStatementForDatabase(path, "records", {{"a", "old"}}), 1);
    create("new.db", schema);
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(path + suffix);
    fs::rename(directory_ / "new.db", path);
    SQLite::Database application(path, SQLite::OPEN_READWRITE);
    application.exec("INSERT INTO records(a) VALUES('new')");
    const auto rows = SQLiteUtil::queryDataForDatabase(path, "records", {});
    ASSERT_TRUE(rows);
    EXPECT_EQ(*rows, (Array{Dictionary{{"id", 1}, {"a", "new"}, {"b", "NULL"}}}));
    // The connection to the old file was closed, and has not taken the new one's log away.
    EXPECT_EQ(fs::exists(path + "-wal"), mode == "WAL");
    EXPECT_EQ(SQLiteUtil::insertStatementForDatabase(path, "records", {}), 2);
    EXPECT_EQ(application.execAndGet("SELECT count(*) FROM records").getInt(), 2);

    fs::remove(path);
    EXPECT_FALSE(SQLiteUtil::queryDataForDatabase(path, "records", {}));
    EXPECT_FALSE(fs::exists(path));
  }
}

TEST_F(DatabaseTest, SchemaThatChangesBetweenStatementsIsFollowed) {
  const std::string path = create("app.db");
  const auto query = [&](const Dictionary& where) {
    return SQLiteUtil::queryDataForDatabase(path, "records", where);
  };
  ASSERT_EQ(SQLiteUtil::insertStatementForDatabase(path, "records", {{"a", 1}, {"b", 2}}), 1);
  ASSERT_TRUE(query({{"a", 1}}));
  create("app.db", "ALTER TABLE records ADD COLUMN c DEFAULT 3");
  EXPECT_EQ((*query({{"a", 1}}))[0], Value(Dictionary{{"id", 1}, {"a", 1}, {"b", 2}, {"c", 3}}));
  create("app.db", "ALTER TABLE records DROP COLUMN b; ALTER TABLE records DROP COLUMN c");
  EXPECT_EQ((*query({{"a", 1}}))[0], Value(Dictionary{{"id", 1}, {"a", 1}}));
  create("app.db", "ALTER TABLE records DROP COLUMN a");
  EXPECT_FALSE(query({{"a", 1}}));
}

TEST_F(DatabaseTest, PathsStayInTheLibraryAndAreNoUrisNorTemporaryDatabases) {
  UserDirectories::install(UserDirectories::below(directory_.path()));
  const std::string folder = UserDirectories::current()->library() + "/WEBSQLDIRECTORY/";
  const RecordingLog log;
  EXPECT_EQ(SQLiteUtil::getDBPath("app.db"), folder + "app.db");
  EXPECT_EQ(log->count(LogLevel::kDebug, "\n DB PATH : " + folder + "app.db"), 1);
  for (const std::string& name : {""s, ".."s, "../app.db"s, "a/../../x"s, "/x"s, "a\0b"s}) {
    EXPECT_EQ(SQLiteUtil::getDBPath(name), "");
  }
  UserDirectories::install(nullptr);
  for (const std::string& path : {""s, ":memory:"s, "file::memory:"s, "file:x?mode=memory"s,
                                  "file:" + create("app.db"), directory_ / "app.db\0"s}) {
    ErrorPtr error;
    EXPECT_EQ(VRODatabaseAPI::initWithPath(path, {}, &error), nullptr) << path;
    EXPECT_NE(error, nullptr);
  }
}

}  // namespace
}  // namespace varo::binary
