#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Platform/Database/DatabaseError.h"
#include "Platform/Database/VRODatabaseAPI.h"
#include "Platform/Database/VROPreparedStatementBuilderFactory.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/Await.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryDirectory.h"

#include <SQLiteCpp/Database.h>

#include <cmath>
#include <fstream>

namespace varo::binary {
namespace {

using namespace std::string_literals;
using namespace varo::platform;
using namespace test;
namespace fs = std::filesystem;

constexpr char kRecords[] = "CREATE TABLE records(id INTEGER PRIMARY KEY, a, b)";
constexpr int kSqliteBusy = 5;

/// What an operation of each kind makes of the same database: the insert's result, and whether the
/// others succeed.
struct Outcomes {
  std::int64_t insert;
  bool query, update, remove;
  friend bool operator==(const Outcomes&, const Outcomes&) = default;
  friend void PrintTo(const Outcomes& outcomes, std::ostream* out) {
    *out << outcomes.insert << ' ' << outcomes.query << outcomes.update << outcomes.remove;
  }
};

Outcomes outcomesOf(const std::string& path, const std::string& table, const std::string& column,
                    const Value& value) {
  return {SQLiteUtil::insertStatementForDatabase(path, table, {{column, value}}),
          SQLiteUtil::queryDataForDatabase(path, table, {{column, value}}).has_value(),
          SQLiteUtil::updateStatementForDatabase(path, table, {{"a", 2}}, {{column, value}}),
          SQLiteUtil::deleteStatementForDatabase(path, table, {{column, value}})};
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
    EXPECT_EQ(outcomesOf(path, "records", text, text), (Outcomes{-1, false, false, false}));
    EXPECT_EQ(outcomesOf(path, text, "a", text), (Outcomes{-1, false, false, false}));
    EXPECT_EQ(schema(), before);
    EXPECT_EQ(read(path, "SELECT count(*) FROM records"), "1");

    // As a name that there is.
    create("app.db", "CREATE TABLE " + quoted(text) + "(a, " + quoted(text) + ")");
    const Outcomes all = outcomesOf(path, text, text, 7);
    EXPECT_EQ(all, (Outcomes{1, true, true, true}));
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
    EXPECT_EQ(outcomesOf(path, "records", "a", value), (Outcomes{0, false, false, false}));
  }
  for (const auto& [table, column] :
       {std::pair("records"s, ""s), {"records"s, "a\0b"s}, {""s, "a"s}, {"records\0x"s, "a"s}}) {
    EXPECT_EQ(outcomesOf(path, table, column, 1), (Outcomes{0, false, false, false}));
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
  const Outcomes cannotOpen{0, false, false, false}, fails{-1, false, false, false};
  const struct {
    const char* name;
    std::function<void(const std::string&)> spoil;
    Outcomes expected;
  } cases[] = {
      {"missing", [](const auto& path) { fs::remove(path); }, cannotOpen},
      {"directory", [](const auto& path) { fs::remove(path), fs::create_directory(path); },
       cannotOpen},
      {"no database", [](const auto& path) { patch(path, 0, std::string(100, 'x')); }, cannotOpen},
      {"damaged", [](const auto& path) { patch(path, 4096, std::string(4096, 'x')); }, fails},
      {"no such table", [this](const auto&) { create("app.db", "DROP TABLE records"); }, fails},
      // A format that this version may read but not write.
      {"read-only", [](const auto& path) { patch(path, 18, "\3"); }, {-1, true, false, false}},
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
  EXPECT_EQ(outcomesOf(directory_ / "app.db", "records", "a", 1), (Outcomes{1, true, true, true}));
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

TEST_F(DatabaseTest, UnusedConnectionClosesByItself) {
  const std::string path = create("app.db", "PRAGMA journal_mode = WAL;"s + kRecords);
  ASSERT_EQ(SQLiteUtil::insertStatementForDatabase(path, "records", {{"a", 1}}), 1);
  EXPECT_TRUE(fs::exists(path + "-wal"));
  EXPECT_TRUE(test::eventually([&] { return !fs::exists(path + "-wal"); }));
  EXPECT_TRUE(SQLiteUtil::databaseApi()->executePreparedStatement(
      *VROPreparedStatementBuilder("records", StatementBuilderType::kInsert).build(nullptr),
      nullptr));
  EXPECT_EQ(read(path, "SELECT count(*) FROM records"), "2");
}

TEST_F(DatabaseTest, ThreadsAndDatabasesDoNotDisturbEachOther) {
  std::vector<std::string> paths;
  for (int number = 0; number < 10; ++number) paths.push_back(create(std::to_string(number)));
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&paths] {
      for (int round = 0; round < 40; ++round) {
        const std::string& path = paths[static_cast<std::size_t>(round % 10)];
        const auto id = SQLiteUtil::insertStatementForDatabase(path, "records", {{"a", 1}});
        EXPECT_TRUE(SQLiteUtil::updateStatementForDatabase(path, "records", {{"a", id}, {"b", 1}},
                                                           {{"id", std::to_string(id)}}));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& path : paths) {
    EXPECT_EQ(read(path, "SELECT count(*) FROM records WHERE a = id"), "16");
  }
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

/// What was logged since the last call, each with its level's number.
std::vector<std::string> takeLines(const RecordingLog& log) {
  std::vector<std::string> result;
  for (const auto& line : log->lines()) {
    result.push_back(std::to_string(static_cast<int>(line.level)) + line.text);
  }
  log->clear();
  return result;
}

TEST_F(DatabaseTest, OperationsLogTheirTextsAtTheirLevels) {
  const std::string path = create("app.db");
  const auto at = [](LogLevel level) { return std::to_string(static_cast<int>(level)); };
  const std::string trace = at(LogLevel::kTrace), debug = at(LogLevel::kDebug),
                    error = at(LogLevel::kError);
  const RecordingLog log;
  EXPECT_EQ(outcomesOf(path, "records", "id", 1), (Outcomes{1, true, true, true}));
  const std::string in = " for DB. \n DB Name : " + path + " \n Table Name : records";
  EXPECT_EQ(takeLines(log),
            (std::vector{trace + "\n Inside insert statement for DB : " + path +
                             " \n for table : records \n with values : {id: 1}",
                         debug + "\n Record inserted successfully with id 1",
                         trace + "\n Inside query" + in + " \n Where Clause : {id: 1}",
                         debug + "\n Record retrieved successfully.",
                         trace + "\n Inside update query" + in +
                             " Column Names : {a: 2} \n Where Clause : {id: 1}",
                         debug + "\n Record updated successfully.",
                         trace + "\n Inside delete query" + in + " \n Where Clause : {id: 1}",
                         debug + "\n Record deleted successfully."}));

  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  const std::string insertError =
      "Error in insertStatementForDatabaseForTable while creating prepared statement,error";
  const std::string queryError =
      "Error in queryDataForDatabaseForTablewithWhereClause while creating prepared "
      "statement,error";
  const std::string updateError =
      "Error in updateStatementForDatabaseforTablewithColumnsToBeUpdatedwithWhereClause while "
      "creating prepared statement,error";
  const std::string deleteError =
      "Error in deleteStatementForDatabaseforTablewithWhereClause while creating prepared "
      "statement,error";
  outcomesOf(path, "", "id", 1);
  const std::string table = ": Database 4: A table's name is empty or has a NUL in it";
  EXPECT_EQ(
      takeLines(log),
      (std::vector{error + "\n " + insertError + table, error + "\n " + queryError + table,
                   error + "\n " + updateError + table, error + "\n " + deleteError + table}));
  outcomesOf(path, "records", "", 1);
  const std::string column = ": Database 5: A column's name is empty or has a NUL in it";
  EXPECT_EQ(takeLines(log), (std::vector{error + "\n" + insertError + column,
                                         error + "\n" + queryError + " " + column,
                                         error + "\n" + updateError + " " + column,
                                         error + "\n" + deleteError + " " + column}));
  outcomesOf(path, "x", "id", 1);
  const std::string failed = " Database with error: SQLite 1: no such table: x";
  EXPECT_EQ(takeLines(log), (std::vector{error + "Error while inserting record in" + failed,
                                         error + "Error while reading record from" + failed,
                                         error + "Error while updating record in" + failed,
                                         error + "Error while deleting record in" + failed}));
  EXPECT_FALSE(SQLiteUtil::checkAndInitializeDatabaseWithDBPath("/none/x"));
  EXPECT_EQ(takeLines(log),
            (std::vector{error + "Unable to intitilaize the give dbPath /none/x with "
                                 "error: POSIX 2: open /none/x: No such file or "
                                 "directory"}));
}

}  // namespace
}  // namespace varo::binary
