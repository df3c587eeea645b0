#include "Sandbox/Blobs/ExampleDatabase.h"
#include "Sandbox/Blobs/GeneratedBytes.h"
#include "tests/support/Await.h"
#include "tests/support/CliFixture.h"

#include <SQLiteCpp/Database.h>

// The built program on blobs of an application's database, and on objects of a signed store.

namespace varo::test {
namespace {

using namespace platform;
using sandbox::ExampleDatabase;
using testing::HasSubstr;

constexpr std::size_t kRange = 1 << 20;
constexpr std::size_t kPhotoSize = 2'500'000;  // of employee 2
constexpr char kWrongKey[] = "wr0ng-marker";

class CliDownloadTest : public CliFixture {
 protected:
  void SetUp() override {
    CliFixture::SetUp();
    const auto error = sandbox().makeExampleDatabase(database());
    ASSERT_FALSE(error) << error->message;
    writeFile(config(), R"({"ScopeName":"HR","ObjectName":"employees","ChunkSize":1048576,)"
                        R"("Headers":{"X-From":"file","X-Kept":"file"},"URL":")" +
                            sandbox().blobUrl() + "\"}");
  }

  [[nodiscard]] std::string database() const {
    return home() + "/Library/WEBSQLDIRECTORY/staff.db";
  }
  [[nodiscard]] std::string config() const { return home() + "/config.json"; }
  [[nodiscard]] static Words blob(const std::string& command, int employee,
                                  const Words& more = {}) {
    return joined({"--json", "blob", command, "--db", "staff.db", "--table", "employees",
                   "--column", "photo", "--key", "id=" + std::to_string(employee)},
                  more);
  }
  [[nodiscard]] Words download(int employee, const Words& more = {}) const {
    return blob("download", employee, joined(more, {"--config", config()}));
  }
  static std::string photo() {
    const auto& photo = ExampleDatabase::employees()[1].photo;
    std::string bytes(photo.size, '\0');
    (void)sandbox::GeneratedBytes(photo.seed, photo.size).readAt(0, bytes);
    return bytes;
  }
  [[nodiscard]] int stateOf(const std::string& id) const {
    return SQLite::Database(database())
        .execAndGet("SELECT state FROM varosyncBLOBSTOREMANAGER WHERE id = " + id)
        .getInt();
  }
  /// The address ends here once `skip` requests have been answered.
  void stall(const std::string& path, std::uint64_t skip) {
    sandbox().clearFaults();
    sandbox().addFault({{.path = path, .skip = skip},
                        {.stallAfter = 1000, .stallFor = std::chrono::milliseconds(-1)}});
  }

  static std::string secret() { return sandbox::SignedStoreOptions().secretKey; }
  /// The command that gets an object, with the secret among its parameters.
  Words get(const std::string& object, const std::string& key, const Words& more = {}) {
    const std::string store = sandbox().storeUrl();
    const std::string path = home() + "/get.json";
    writeFile(path, R"({"method":"GET","ChunkSize":1048576,"Auth":"HMACDigest",)"
                    R"("AuthParameters":{"objectName":"${fileId}","serviceName":"s3",)"
                    R"("regionName":"us-east-1","accessKeyID":"sandbox",)"
                    R"("secretAccessKey":"${secret}"},"endpointUrl":")" +
                        store + R"(/${fileId}","Host":")" + store.substr(store.find("//") + 2) +
                        "\"}");
    return joined({"object", "get", "--config", path, "--param", "fileId=" + object, "--param",
                   "secret=" + key},
                  more);
  }
  Words put(const std::string& object, const std::string& key, const std::string& file) {
    const std::string path = home() + "/put-" + key + ".json";
    writeFile(path, R"({"FilePath":"/replaced by --file","uploadParams":{"accessKeyID":"sandbox",)"
                    R"("regionName":"us-east-1","objectName":")" +
                        object + R"(","secretAccessKey":")" + key + R"("},"URL":")" +
                        sandbox().templateUrl() + "\"}");
    return {"object", "put", "--config", path, "--file", file};
  }
  /// Runs the program with all that it can log, in which no secret may be.
  Run traced(const Words& words) {
    const Run run = CliFixture::run(joined(words, {"--log-level", "trace"}));
    EXPECT_THAT(run.output + run.errors, Not(HasSubstr(secret())));
    EXPECT_THAT(run.output + run.errors, Not(HasSubstr(kWrongKey)));
    return run;
  }
  /// The files in the documents directory.
  [[nodiscard]] std::size_t documents() const {
    std::error_code none;
    const std::filesystem::recursive_directory_iterator all(home() + "/Documents", none);
    return static_cast<std::size_t>(std::count_if(
        begin(all), end(all), [](const auto& entry) { return !entry.is_directory(); }));
  }
};

TEST_F(CliDownloadTest, BlobReportsItsChunksAndItsFile) {
  auto events = eventsEndingIn("success", run(download(2, {"--header", "x-from: option"})));
  const std::string path = home() + "/Documents/blobs/1";
  EXPECT_EQ(events.back()["result"],
            Value(Dictionary{
                {"id", "1"}, {"BlobID", "1"}, {"FilePath", path}, {"TotalFileSize", kPhotoSize}}));
  events.pop_back();
  std::vector<Dictionary> chunks;
  for (const std::size_t written : {kRange, 2 * kRange, kPhotoSize}) {
    chunks.push_back(Dictionary{
        {"event", "chunk"}, {"id", "1"}, {"bytesWritten", written}, {"totalSize", kPhotoSize}});
  }
  EXPECT_EQ(events, chunks);
  EXPECT_TRUE(contentOf(path) == photo());
  const auto request = sandbox().requests().back();
  EXPECT_EQ(*request.header("X-From") + *request.header("X-Kept"), "optionfile");

  // There already: nothing is fetched, and the file is named as before.
  sandbox().clearStats();
  const Dictionary there{{"id", "1"}, {"FilePath", path}};
  EXPECT_EQ(resultOf(run(download(2))), there);
  EXPECT_EQ(sandbox().serviceStats().requests, 0U);
  EXPECT_EQ(resultOf(run(blob("path", 2))), there);
  EXPECT_EQ(resultOf(run(blob("delete", 2))),
            (Dictionary{{"id", "1"}, {"recorded", true}, {"fileRemoved", false}}));
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_EQ(resultOf(run(blob("delete", 2, {"--before-sync"}))),
            (Dictionary{{"id", "1"}, {"recorded", true}, {"fileRemoved", true}}));
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(stateOf("1"), 201);
  SQLite::Database(database(), SQLite::OPEN_READWRITE)
      .exec("UPDATE varosyncBLOBSTOREMANAGER SET state = 50, localPath = '" + path + "'");
  eventsEndingIn("failure", run(download(2)));  // of a file that is gone
}

TEST_F(CliDownloadTest, SyncBringsAWholeColumnAndListSaysWhereItStands) {
  // Of the rest one comes in Base64 and one cannot be read.
  SQLite::Database(database(), SQLite::OPEN_READWRITE).exec("DELETE FROM employees WHERE id = 3");
  const auto column = [](const std::string& command, const Words& more) {
    return joined({"--json", "--retry", "0", "blob", command, "--db", "staff.db", "--table",
                   "employees", "--column", "photo"},
                  more);
  };
  const auto states = [&] {
    std::string all;
    const Dictionary result = resultOf(run(column("list", {})));
    for (const Value& blob : *result["blobs"].array()) {
      const Dictionary entry = blob.dictionaryValue();
      all += entry["keys"].dictionaryValue()["id"].textValue() + entry["state"].textValue() + " ";
    }
    return all;
  };
  EXPECT_EQ(states(), "1notFetched 2notFetched 4notFetched 5notFetched 6notFetched 7notFetched ");

  stall("/binary", 2);
  ChildProcess child(settingsFor(column("sync", {"--config", config()})));
  ASSERT_TRUE(eventually([&] { return sandbox().serviceStats().requests > 3; }));
  interrupt(child, "failure", SIGINT);
  sandbox().clearFaults();
  const Run all = run(column("sync", {"--config", config()}));
  EXPECT_EQ(all.status, 1);
  std::size_t failed = 0;
  for (const Dictionary& event : eventsEndingIn("failure", all)) {
    const bool isEnd = event["event"] == Value("itemFailure");
    failed += isEnd ? 1 : 0;
    if (isEnd) {
      EXPECT_GE(event["keys"].dictionaryValue()["id"].integerValue(), 6);
    }
  }
  EXPECT_EQ(failed, 2U);
  EXPECT_EQ(states(), "1available 2available 4available 5available 6failed 7failed ");
  EXPECT_TRUE(contentOf(resultOf(run(blob("path", 2)))["FilePath"].textValue()) == photo());

  SQLite::Database(database(), SQLite::OPEN_READWRITE).exec("DELETE FROM employees WHERE id > 5");
  sandbox().clearStats();
  const Dictionary kept = resultOf(run(column("sync", {"--config", config()})));
  for (const Value& blob : *kept["blobs"].array()) {
    EXPECT_EQ(blob.dictionaryValue()["kept"], Value(true));
  }
  EXPECT_EQ(sandbox().serviceStats().requests, 0U);
  const Run wrong =
      run({"blob", "list", "--db", "staff.db", "--table", "employees", "--column", "face"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_THAT(wrong.errors, HasSubstr("no column 'blobref_face'"));
}

TEST_F(CliDownloadTest, FileThatReachesTheShellsLimitIsAFailureThatIsTold) {
  const Run run = runInShell("ulimit -f 1000; exec \"$0\" \"$@\"", download(2));
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(eventsEndingIn("failure", run).back()["error"].description(),
              HasSubstr("File too large"));
}

TEST_F(CliDownloadTest, InterruptPausesABlobAndTheSameCommandGoesOn) {
  for (const int signal : {SIGINT, SIGTERM}) {
    stall("/binary", signal == SIGINT ? 2 : 0);
    const std::uint64_t before = sandbox().serviceStats().requests;
    ChildProcess child(settingsFor(download(2)));
    ASSERT_TRUE(eventually([&] {
      const std::string output = child.output();
      return std::count(output.begin(), output.end(), '\n') == (signal == SIGINT ? 2 : 0) &&
             sandbox().serviceStats().requests == before + (signal == SIGINT ? 3 : 1);
    })) << child.errors();
    const auto paused = interrupt(child, "paused", signal).back();
    const std::string path = paused["result"].dictionaryValue()["FilePath"].textValue();
    EXPECT_EQ(std::filesystem::file_size(path), 2 * kRange);
    EXPECT_EQ(stateOf("1"), 104);
  }
  sandbox().clearFaults();
  sandbox().clearStats();
  EXPECT_TRUE(contentOf(resultOf(run(download(2)))["FilePath"].textValue()) == photo());
  EXPECT_EQ(stateOf("1"), 50);
  EXPECT_EQ(*sandbox().requests().front().header("Range"), "bytes=2097152-2499999");
}

TEST_F(CliDownloadTest, InterruptBeforeThereIsADownloadEndsPromptly) {
  // Somebody else's transaction keeps the row from being made.
  SQLite::Database other(database(), SQLite::OPEN_READWRITE);
  other.exec("BEGIN EXCLUSIVE");
  ChildProcess child(settingsFor(download(2)));
  ASSERT_TRUE(eventually([&] { return child.hasFileOf(home() + "/Library/WEBSQLDIRECTORY"); }));
  child.signal(SIGINT);
  EXPECT_TRUE(eventually([&] { return !child.output().empty(); }));
  other.exec("ROLLBACK");
  EXPECT_EQ(child.wait(std::chrono::seconds(10)), 130);
  eventsEndingIn("failure", {130, child.output(), child.errors()});
  EXPECT_EQ(sandbox().serviceStats().requests, 0U);
}

TEST_F(CliDownloadTest, FailuresOfBlobsSayWhatToLookAt) {
  const std::string ofPhoto = " --column photo --db ";
  const std::string fetch = "download --config config.json --db staff.db --table employees ";
  const std::pair<std::string, std::string> cases[] = {
      {"path" + ofPhoto + "none.db --table t --key k=1",
       "there is no database " + home() + "/Library/WEBSQLDIRECTORY/none.db"},
      {"delete" + ofPhoto + "../x --table t --key k=1", "'../x' leads out of " + home()},
      {"path" + ofPhoto + "staff.db --table t --key k=1", "the table 't' of " + database()},
      {fetch + "--column photo --key id=8", "has id=8"},
      {fetch + "--column face --key id=1", "no column 'blobref_face'"},
      {fetch + "--column photo --key id=7", "error: the object cannot be read"},
  };
  for (const auto& [command, message] : cases) {
    const Run run = runInShell("cd '" + home() + "' && \"$0\" \"$@\" blob " + command, {});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, HasSubstr(message));
  }
}

TEST_F(CliDownloadTest, FolderThatCannotBeWrittenIsNamedWithItsCause) {
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
    EXPECT_THAT(run.errors, testing::AllOf(HasSubstr("error: " + what), HasSubstr(why),
                                           HasSubstr("permissions of " + blobs + ".")));
  }
}

TEST_F(CliDownloadTest, SignedObjectsComeBackAsTheyWerePutAndAFailureGivesItsReason) {
  const std::string object = "album/two%20words/%C3%A9%E2%82%AC.bin";
  const std::string file = makeFile("file.bin", 2 * kRange + 1);
  EXPECT_EQ(traced(put(object, secret(), file)).status, 0);
  const auto received = eventsEndingIn("success", traced(get(object, secret(), {"--json"})));
  ASSERT_EQ(received.size(), 5U);  // its start and its three ranges before
  const Dictionary result = received.back()["result"].dictionaryValue();
  EXPECT_EQ(result["id"], Value(object));
  const std::string path = result["FilePath"].textValue();
  EXPECT_TRUE(contentOf(path) == contentOf(file));
  std::filesystem::remove(path);
  EXPECT_TRUE(traced(get(object, secret(), {"--stream"})).output == contentOf(file));

  const std::pair<Words, std::string> cases[] = {
      {put(object, kWrongKey, file), "HTTP status 403: SignatureDoesNotMatch: The signature"},
      {get(object, kWrongKey, {"--stream"}), "hint: Check \"secretAccessKey\""},
      {get("not-there", secret()), "HTTP status 404: NoSuchKey"},
      {put(object, secret(), home() + "/none"), "Could not find File at given FilePath"},
  };
  for (const auto& [words, message] : cases) {
    const Run run = traced(words);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.output, "") << message;
    EXPECT_THAT(run.errors, HasSubstr(message));
  }
  EXPECT_EQ(documents(), 0U);
}

TEST_F(CliDownloadTest, ClosedPipeAndInterruptEndTheCommandAndLeaveNothing) {
  const std::string file = makeFile("file.bin", 3 * kRange);
  ASSERT_EQ(traced(put("o", secret(), file)).status, 0);
  const Run run = runInShell("{ \"$0\" \"$@\"; echo \"status $?\" >&2; } | head -c 10",
                             get("o", secret(), {"--stream"}));
  EXPECT_EQ(run.output, contentOf(file).substr(0, 10));
  EXPECT_THAT(run.errors, testing::AllOf(HasSubstr("cannot write standard output: Broken pipe"),
                                         HasSubstr("status 1\n")));
  stall("/o", 1);
  ChildProcess child(settingsFor(get("o", secret(), {"--json"})));
  ASSERT_TRUE(eventually([&] { return child.output().find("chunk") != std::string::npos; }));
  interrupt(child, "failure", SIGINT);
  EXPECT_EQ(documents(), 0U);
}

}  // namespace
}  // namespace varo::test
