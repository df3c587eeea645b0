#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "tests/support/BlobFixture.h"
#include "tests/support/RecordingLog.h"

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

const std::string kNoFile = "Couldn't retrieve file path respective blob id in BlobStoreManager.";

class BinaryDataManagerTest : public test::BlobFixture {
 protected:
  std::string summaryOf(const std::string& operation, const std::optional<std::string>& blobId) {
    if (operation == "start") manager_->startDownload(blobId, block("start"));
    if (operation == "pause") manager_->pauseDownload(blobId, block("pause"));
    if (operation == "resume") manager_->resumeDownload(blobId, block("resume"));
    return awaitNext().summary();
  }
};

TEST_F(BinaryDataManagerTest, RecordsColumnBecomesAFileWithItsStateInTheTable) {
  test::RecordingLog log;
  addRecord("a");
  const Dictionary configuration = config({{"Headers", Dictionary{{"A", "b"}}},
                                           {"X-Pelmar-Authorization", "hidden-token"},
                                           {"BlobID", "of the caller"},
                                           {"Chunksize", 1},
                                           {"Streaming", true},
                                           {"OnlineDownloadTask", true},
                                           {"primaryKeys", "of the caller"}});
  const Call created = create("a", configuration);
  EXPECT_EQ(created.summary(), "create: ok");
  ASSERT_EQ(created.blobId, "1");
  EXPECT_EQ(rows("SELECT * FROM varosyncBLOBSTOREMANAGER"), "1||album|photo|Binary|101|0|3|NULL");
  EXPECT_EQ(rows("SELECT * FROM album"), "a|1");
  EXPECT_EQ(create("a", configuration).blobId, "1");  // no second row

  startHeld("1");
  EXPECT_EQ(create("a").summary(), "create: Invalid State For Download Task Creation 5002");
  transport_->releaseAll();
  const Call end = awaitNext();
  EXPECT_EQ(end.summary(), "start 1: ok");
  EXPECT_EQ(end.result,
            (Dictionary{{"BlobID", "1"}, {"FilePath", pathOf("1")}, {"TotalFileSize", 10}}));
  EXPECT_EQ(rows("SELECT localPath, state, size FROM varosyncBLOBSTOREMANAGER"),
            pathOf("1") + "|50|10");
  EXPECT_EQ(contentOf(pathOf("1")), object_.bytes);
  EXPECT_THAT(ranges(), ElementsAre("bytes=0-3", "bytes=4-7", "bytes=8-9"));
  const auto request = transport_->requests().front();
  EXPECT_EQ(request.url, "http://127.0.0.1/Scope/album/binary?pk=a&type=bytes");
  EXPECT_EQ(request.header("A"), "b");
  EXPECT_EQ(request.header("X-Pelmar-Authorization"), "hidden-token");
  EXPECT_EQ(request.spoolDirectory, home_ / "Documents/blobs");
  EXPECT_EQ(log->count(LogLevel::kWarning,
                       "Nothing reads \"Chunksize\" in the configuration; did "
                       "you mean \"ChunkSize\"?"),
            2);

  start("1");
  EXPECT_EQ(awaitNext().result, (Dictionary{{"FilePath", pathOf("1")}, {"state", "50"}}));
  EXPECT_EQ(transport_->requestCount(), 3U);
  const Call again = create("a");
  EXPECT_EQ(again.error->code(), 5002);
  EXPECT_EQ(again.error->userInfo(), (Dictionary{{"primaryKeys", Dictionary{{"pk", "a"}}}}));
  for (const auto& line : log->lines()) {
    EXPECT_THAT(line.text, Not(AnyOf(HasSubstr("hidden-token"), HasSubstr("\n DB PATH"))));
  }
}

TEST_F(BinaryDataManagerTest, DownloadOfNoRecordIsRefused) {
  addRecord("a");
  sql("CREATE TABLE plain (pk); INSERT INTO plain VALUES ('a')");
  const struct {
    std::string database, table, column, pk;
  } cases[] = {{kDatabase, kTable, kColumn, "b"},
               {kDatabase, "none", kColumn, "a"},
               {kDatabase, "plain", kColumn, "a"},
               {"none.db", kTable, kColumn, "a"},
               {kDatabase, "album\" --", kColumn, "a"}};
  for (const auto& item : cases) {
    const Call call = create({{"pk", item.pk}}, item.database, item.table, item.column);
    EXPECT_EQ(call.summary(),
              "create: DownloadTaskErrorDomain 5004 Binary record does not exist. Hence cannot "
              "create download task");
    EXPECT_EQ(call.blobId, std::nullopt);
  }
  EXPECT_EQ(create(Dictionary(), kDatabase, kTable, kColumn).error->code(), 5004);
  sql("DROP TABLE varosyncBLOBSTOREMANAGER");
  EXPECT_EQ(create("a").error->code(), 5004);
  EXPECT_EQ(rows("SELECT * FROM album"), "a|NULL");
}

TEST_F(BinaryDataManagerTest, StateOfTheRowDecidesWhetherADownloadMayBeMade) {
  const std::pair<int, bool> states[] = {{0, true},    {50, false}, {71, false}, {74, false},
                                         {101, true},  {102, true}, {103, true}, {104, true},
                                         {201, false}, {202, false}};
  for (const auto& [state, allowed] : states) {
    addBlob(std::to_string(state), 1000 + state, state);
    const Call call = create(std::to_string(state));
    EXPECT_EQ(call.summary(),
              allowed ? "create: ok" : "create: Invalid State For Download Task Creation 5002");
    EXPECT_EQ(call.blobId, std::to_string(1000 + state));
  }
}

TEST_F(BinaryDataManagerTest, OperationsThatTheStateForbidsAreRefused) {
  const std::string domain = "DownloadTaskErrorDomain ";
  const std::string noId = domain + "5005 Null Blob id recieved. Hence, can't be downloaded.";
  EXPECT_EQ(summaryOf("start", std::nullopt), "start: " + noId);
  EXPECT_EQ(summaryOf("pause", std::nullopt), "pause: " + noId);
  EXPECT_EQ(summaryOf("resume", std::nullopt), "resume: " + domain + "5003");
  EXPECT_EQ(summaryOf("start", "x"),
            "start: " + domain + "5003 Task not created. Hence, can't be started.");
  EXPECT_EQ(summaryOf("pause", "x"), "pause: " + domain + "5003");
  EXPECT_EQ(summaryOf("resume", "x"), "resume: " + domain + "5003");

  const std::string paused = pausedBlob("paused");
  const std::string notStarted = newBlob("new");
  const std::string ended = newBlob("ended");
  start(ended);
  EXPECT_EQ(awaitNext().summary(), "start " + ended + ": ok");
  const std::string errored = newBlob("errored");
  transport_->answer(answerWith(404, ""));
  start(errored);
  EXPECT_EQ(awaitNext().error->code(), 4);
  const std::string running = newBlob("running");
  startHeld(running);

  const std::string notPaused = domain + "5001 Task is not Paused, hence can't resumed.";
  const struct {
    std::string blobId, pause, resume;
  } cases[] = {{notStarted, kNotPausable, notPaused},
               {ended, kNotPausable, kNotResumable},
               {errored, kNotPausable, kNotResumable},
               {running, "", kNotResumable},
               {paused, "ok", ""}};
  for (const auto& item : cases) {
    if (item.blobId != running) {
      EXPECT_EQ(summaryOf("pause", item.blobId), "pause: " + item.pause);
    }
    if (item.blobId != paused) {
      EXPECT_EQ(summaryOf("resume", item.blobId), "resume: " + item.resume);
    }
  }
  // An ended download whose row says otherwise, and has gone.
  sql("UPDATE varosyncBLOBSTOREMANAGER SET state = 103 WHERE id = " + ended);
  EXPECT_EQ(summaryOf("start", ended), "start: " + domain + "4 " + kNoFile);
  sql("DELETE FROM varosyncBLOBSTOREMANAGER WHERE id = " + ended);
  EXPECT_EQ(summaryOf("start", ended),
            "start: " + domain + "5 Couldn't retrieve row respective blob id in BlobStoreManager.");
}

}  // namespace
}  // namespace varo::binary
