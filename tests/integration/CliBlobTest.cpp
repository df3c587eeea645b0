#include "Sandbox/ExampleDatabase.h"
#include "Sandbox/GeneratedBytes.h"
#include "tests/support/Await.h"
#include "tests/support/CliFixture.h"

#include <SQLiteCpp/Database.h>

#include <random>

namespace varo::test {
namespace {

using namespace platform;
using sandbox::ExampleDatabase;

constexpr std::size_t kRange = 1 << 20;
constexpr int kBusyMs = 5000;  // that the program may hold its database

/// The built program on an application's database.
class CliBlobTest : public CliFixture {
 protected:
  void SetUp() override {
    CliFixture::SetUp();
    prepare();
  }

  void prepare(std::size_t chunkSize = kRange) {
    const auto error = ExampleDatabase::make(database(), sandbox());
    ASSERT_FALSE(error) << error->message;
    std::ofstream(config()) << R"({"ScopeName":"HR","ObjectName":"employees","ChunkSize":)"
                            << chunkSize << R"(,"Headers":{"X-From":"file","X-Kept":"file"},)"
                            << R"("URL":")" << sandbox().blobUrl() << "\"}";
  }

  [[nodiscard]] std::string database() const {
    return home() + "/Library/WEBSQLDIRECTORY/staff.db";
  }
  [[nodiscard]] std::string config() const { return home() + "/config.json"; }

  [[nodiscard]] static Words blob(const std::string& command, int employee,
                                  const Words& more = {}) {
    Words words = {"--json", "blob", command, "--db", "staff.db", "--table", "employees"};
    words.insert(words.end(), {"--column", "photo", "--key", "id=" + std::to_string(employee)});
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  [[nodiscard]] Words download(int employee, const Words& more = {}) const {
    Words words = blob("download", employee, more);
    words.insert(words.end(), {"--config", config()});
    return words;
  }
  static Dictionary resultOf(const std::string& outcome, const Run& run) {
    return eventsEndingIn(outcome, run).back()["result"].dictionaryValue();
  }
  static std::string photoOf(int employee) {
    const auto& photo = ExampleDatabase::employees()[static_cast<std::size_t>(employee - 1)].photo;
    std::string bytes(photo.size, '\0');
    (void)sandbox::GeneratedBytes(photo.seed, photo.size).readAt(0, bytes);
    return bytes;
  }
  [[nodiscard]] int numberOf(const std::string& expression, const std::string& condition) const {
    return SQLite::Database(database(), SQLite::OPEN_READWRITE, kBusyMs)
        .execAndGet("SELECT " + expression + " FROM varosyncBLOBSTOREMANAGER WHERE " + condition)
        .getInt();
  }
  [[nodiscard]] int stateOf(const std::string& id) const { return numberOf("state", "id = " + id); }
  /// Starts the download of employee 2 and returns when `ranges` of it are in the file and it asks
  /// for the next, which never comes.
  [[nodiscard]] std::unique_ptr<ChildProcess> stalled(std::uint64_t ranges) {
    sandbox().clearFaults();
    sandbox().addFault({{.path = "/binary", .skip = ranges},
                        {.stallAfter = 1000, .stallFor = std::chrono::milliseconds(-1)}});
    sandbox().clearStats();
    auto child = std::make_unique<ChildProcess>(settingsFor(download(2)));
    EXPECT_TRUE(eventually([&] {
      const std::string output = child->output();
      const auto lines = std::count(output.begin(), output.end(), '\n');
      return static_cast<std::uint64_t>(lines) == ranges &&
             sandbox().serviceStats().requests > ranges;
    })) << child->output()
        << child->errors();
    return child;
  }
};

TEST_F(CliBlobTest, DownloadReportsItsChunksAndItsFile) {
  const Run run = CliFixture::run(download(2));
  EXPECT_EQ(run.status, 0) << run.errors;
  auto events = eventsEndingIn("success", run);
  const Dictionary result = events.back()["result"].dictionaryValue();
  const std::string path = home() + "/Documents/blobs/1";
  EXPECT_EQ(
      result,
      (Dictionary{{"id", "1"}, {"BlobID", "1"}, {"FilePath", path}, {"TotalFileSize", 2'500'000}}));
  events.pop_back();
  std::vector<Dictionary> chunks;
  for (const std::size_t written : {kRange, 2 * kRange, std::size_t{2'500'000}}) {
    chunks.push_back(Dictionary{
        {"event", "chunk"}, {"id", "1"}, {"bytesWritten", written}, {"totalSize", 2'500'000}});
  }
  EXPECT_EQ(events, chunks);
  EXPECT_TRUE(contentOf(path) == photoOf(2));

  // There already: nothing is fetched, and the file is named as before.
  sandbox().clearStats();
  const Dictionary there{{"id", "1"}, {"FilePath", path}};
  EXPECT_EQ(resultOf("success", CliFixture::run(download(2))), there);
  EXPECT_EQ(sandbox().serviceStats().requests, 0U);
  EXPECT_EQ(resultOf("success", CliFixture::run(blob("path", 2))), there);
}

TEST_F(CliBlobTest, TokenAndHeadersGoToTheService) {
  startSandbox("s3cr3t-marker");
  prepare();
  EXPECT_EQ(CliFixture::run(download(1)).status, 1);
  ChildProcess::Settings settings =
      settingsFor(download(1, {"--header", "x-from: option", "--log-level", "trace"}));
  settings.environment.back().second = "s3cr3t-marker";
  const Run run = CliFixture::run(settings);
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ((run.output + run.errors).find("s3cr3t-marker"), std::string::npos);
  const auto request = sandbox().requests().back();
  EXPECT_EQ(*request.header("X-From"), "option");
  EXPECT_EQ(*request.header("X-Kept"), "file");
}

TEST_F(CliBlobTest, InterruptPausesAndTheSameCommandGoesOn) {
  const std::uint64_t half = 2 * kRange;
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto child = stalled(signal == SIGINT ? 2 : 0);
    const auto paused = interrupt(*child, "paused", signal).back();
    EXPECT_EQ(paused["id"], Value("1"));
    const std::string path = paused["result"].dictionaryValue()["FilePath"].textValue();
    EXPECT_EQ(std::filesystem::file_size(path), half);
    EXPECT_EQ(stateOf("1"), 104);
  }
  sandbox().clearFaults();
  sandbox().clearStats();
  const Dictionary result = resultOf("success", CliFixture::run(download(2)));
  EXPECT_TRUE(contentOf(result["FilePath"].textValue()) == photoOf(2));
  EXPECT_EQ(stateOf("1"), 50);
  ASSERT_FALSE(sandbox().requests().empty());
  EXPECT_EQ(*sandbox().requests().front().header("Range"), "bytes=2097152-2499999");
}

TEST_F(CliBlobTest, InterruptBeforeThereIsADownloadEndsPromptly) {
  // Somebody else's transaction keeps the row from being made.
  SQLite::Database other(database(), SQLite::OPEN_READWRITE);
  other.exec("BEGIN EXCLUSIVE");
  ChildProcess child(settingsFor(download(2, {"--log-level", "trace"})));
  ASSERT_TRUE(eventually([&] { return !child.errors().empty(); }));
  child.signal(SIGINT);
  EXPECT_TRUE(eventually([&] { return !child.output().empty(); }, std::chrono::seconds(2)));
  other.exec("ROLLBACK");
  EXPECT_EQ(child.wait(std::chrono::seconds(10)), 130);
  eventsEndingIn("failure", {130, child.output(), child.errors()});
  EXPECT_EQ(sandbox().serviceStats().requests, 0U);
}

TEST_F(CliBlobTest, KillsAndInterruptsAtAnyMomentLeaveWhatTheNextDownloadCompletes) {
  prepare(20'000);  // more than a hundred ranges
  const std::string expected = photoOf(2);
  const std::string path = home() + "/Documents/blobs/1";
  const auto startOver = [this] {
    SQLite::Database(database(), SQLite::OPEN_READWRITE, kBusyMs)
        .exec("UPDATE varosyncBLOBSTOREMANAGER SET state = 101, localPath = ''");
  };
  const auto began = std::chrono::steady_clock::now();
  ASSERT_EQ(CliFixture::run(download(2)).status, 0);
  const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - began);
  startOver();
  constexpr int kRounds = 60;
  std::mt19937 random(3);
  std::uniform_int_distribution<std::chrono::microseconds::rep> moment(0, whole.count());
  int inTheMiddle = 0;
  std::size_t kept = 0;  // bytes that the next download has to go on from
  for (int round = 0; round < kRounds; ++round) {
    {
      ChildProcess child(settingsFor(download(2)));
      std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
      child.signal(round % 3 == 0 ? SIGINT : SIGKILL);
      (void)child.wait();
    }
    const bool isComplete = numberOf("count(*)", "state = 50") == 1;
    const std::string bytes = contentOf(path);
    ASSERT_TRUE(expected.starts_with(bytes)) << "after round " << round;
    ASSERT_GE(bytes.size(), kept) << "round " << round << " started over";
    kept = isComplete || numberOf("count(*)", "localPath <> ''") == 0 ? 0 : bytes.size();
    if (isComplete) {
      ASSERT_EQ(bytes.size(), expected.size()) << "after round " << round;
      startOver();
    }
    inTheMiddle += !isComplete && !bytes.empty() ? 1 : 0;
  }
  EXPECT_GE(inTheMiddle, kRounds / 10) << "the moments were not spread";
  EXPECT_EQ(CliFixture::run(download(2)).status, 0);
  EXPECT_EQ(stateOf("1"), 50);
  EXPECT_TRUE(contentOf(path) == expected);
}

TEST_F(CliBlobTest, DeleteRecordsAndRemovesWhenTold) {
  ASSERT_EQ(CliFixture::run(download(1)).status, 0);
  ASSERT_EQ(CliFixture::run(download(2)).status, 0);
  EXPECT_EQ(resultOf("success", CliFixture::run(blob("delete", 1))),
            (Dictionary{{"id", "1"}, {"recorded", true}, {"fileRemoved", false}}));
  EXPECT_EQ(resultOf("success", CliFixture::run(blob("delete", 2, {"--before-sync"}))),
            (Dictionary{{"id", "2"}, {"recorded", true}, {"fileRemoved", true}}));
  EXPECT_TRUE(std::filesystem::exists(home() + "/Documents/blobs/1"));
  EXPECT_FALSE(std::filesystem::exists(home() + "/Documents/blobs/2"));
  EXPECT_EQ(stateOf("1"), 201);
  EXPECT_EQ(stateOf("2"), 201);
}

TEST_F(CliBlobTest, FailuresSayWhatToLookAt) {
  const std::string ofPhoto = " --column photo --db ";
  const std::string fetch = "download --config config.json --db staff.db --table employees ";
  const std::pair<std::string, std::string> cases[] = {
      {"path" + ofPhoto + "none.db --table t --key k=1",
       "there is no database " + home() + "/Library/WEBSQLDIRECTORY/none.db"},
      {"delete" + ofPhoto + "../x --table t --key k=1", "'../x' leads out of " + home()},
      {"path" + ofPhoto + "staff.db --table t --key k=1", "the table 't' of " + database()},
      {"path" + ofPhoto + "staff.db --table employees --key id=7",
       "'varobinary blob download' brings it"},
      {fetch + "--column photo --key id=8", "has id=8"},
      {fetch + "--column face --key id=1", "no column 'blobref_face'"},
      {fetch + "--column photo --key id=7", "error: the object cannot be read"},
  };
  for (const auto& [command, message] : cases) {
    const Run run = runInShell("cd '" + home() + "' && \"$0\" \"$@\" blob " + command, {});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_NE(run.errors.find(message), std::string::npos) << run.errors;
  }
}

TEST_F(CliBlobTest, FolderThatCannotBeWrittenIsNamedWithItsCause) {
  // Nobody may create a file there, not even who may do everything.
  const std::string documents = home() + "/Documents";
  const std::string blobs = documents + "/blobs";
  Words people = download(2);
  people.erase(people.begin());  // --json
  for (const bool isThere : {true, false}) {
    std::filesystem::remove_all(documents);
    if (isThere) std::filesystem::create_directories(documents);
    std::filesystem::create_directory_symlink("/sys/kernel", isThere ? blobs : documents);
    const Run run = CliFixture::run(people);
    EXPECT_EQ(run.status, 1);
    const std::string what =
        isThere ? "Creating " + blobs + "/" : "cannot make the folder " + blobs;
    const std::string why = isThere ? ": Permission denied" : ": Operation not permitted";
    EXPECT_THAT(run.errors,
                testing::AllOf(testing::HasSubstr("error: " + what), testing::HasSubstr(why),
                               testing::HasSubstr("permissions of " + blobs + ".")));
  }
}

}  // namespace
}  // namespace varo::test
