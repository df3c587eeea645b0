#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "tests/support/BlobFixture.h"
#include "tests/support/RecordingLog.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <future>
#include <thread>

namespace varo::binary {
namespace {

using platform::Dictionary;
using platform::Value;
using test::answerWith;
using test::eventually;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr TransferPolicy kBothPolicies[] = {TransferPolicy::kCompatible, TransferPolicy::kSafe};

const std::string kCleared =
    "DownloadTaskError 4 The downloads were cleared before this one had ended.";
const std::string kNotPausable =
    "DownloadTaskErrorDomain 5001 Task is in NotStarted, Errored or Ended state. Hence, can't be "
    "Paused.";
const std::string kNotResumable =
    "DownloadTaskErrorDomain 5001 Task is in Started, Ended or Errored state hence can't resumed.";
const std::string kNoFile = "Couldn't retrieve file path respective blob id in BlobStoreManager.";

class BinaryDataManagerTest : public test::BlobFixture {
 protected:
  std::string summaryOf(const std::string& operation, const std::optional<std::string>& blobId) {
    if (operation == "start") manager_->startDownload(blobId, block("start"));
    if (operation == "pause") manager_->pauseDownload(blobId, block("pause"));
    if (operation == "resume") manager_->resumeDownload(blobId, block("resume"));
    return awaitNext().summary();
  }
  void start(const std::string& blobId) {
    manager_->startDownload(blobId, block("start " + blobId));
  }
  /// A download that has paused after its first range.
  std::string pausedBlob(const std::string& pk) {
    std::string id = newBlob(pk);
    transport_->hold();
    start(id);
    release(1);
    awaitHeld(1);
    manager_->pauseDownload(id, block("pause"));
    EXPECT_EQ(awaitNext().summary(), "pause: ok");
    transport_->releaseAll();
    return id;
  }
};

TEST_F(BinaryDataManagerTest, RecordsColumnBecomesAFileWithItsStateInTheTable) {
  test::RecordingLog log;
  addRecord("a");
  Dictionary configuration = config();
  configuration.set("Headers", Dictionary{{"A", "b"}});
  configuration.set("X-Pelmar-Authorization", "hidden-token");
  configuration.set("BlobID", "of the caller");
  configuration.set("primaryKeys", "of the caller");
  const Call created = create("a", configuration);
  EXPECT_EQ(created.summary(), "create: ok");
  ASSERT_EQ(created.blobId, "1");
  EXPECT_EQ(rows("SELECT * FROM varosyncBLOBSTOREMANAGER"), "1||album|photo|Binary|101|0|3|NULL");
  EXPECT_EQ(rows("SELECT * FROM album"), "a|1");
  EXPECT_EQ(create("a", configuration).blobId, "1");  // no second row

  transport_->hold();
  start("1");
  awaitHeld(1);
  EXPECT_TRUE(eventually([&] { return stateOf("1") == "102"; }));
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

  start("1");
  EXPECT_EQ(awaitNext().result, (Dictionary{{"FilePath", pathOf("1")}, {"state", "50"}}));
  EXPECT_EQ(transport_->requestCount(), 3U);
  const Call again = create("a");
  EXPECT_EQ(again.error->code(), 5002);
  EXPECT_EQ(again.error->userInfo(), (Dictionary{{"primaryKeys", Dictionary{{"pk", "a"}}}}));
  for (const auto& line : log->lines()) EXPECT_THAT(line.text, Not(HasSubstr("hidden-token")));
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
               {"../WEBSQLDIRECTORY/sync.db", kTable, kColumn, "a"},
               {"", kTable, kColumn, "a"},
               {kDatabase, "album\" --", kColumn, "a"}};
  for (const auto& item : cases) {
    const Call call = create({{"pk", item.pk}}, item.database, item.table, item.column);
    EXPECT_EQ(call.summary(),
              "create: DownloadTaskErrorDomain 5004 Binary record does not exist. Hence cannot "
              "create download task");
    EXPECT_EQ(call.blobId, std::nullopt);
  }
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

TEST_F(BinaryDataManagerTest, ProcessThatDiedLeavesARowAndAFileToGoOnFrom) {
  std::filesystem::create_directories(home_ / "Documents/blobs");
  std::ofstream(pathOf("7")) << "0123";
  addBlob("a", 7, 102, pathOf("7"));
  EXPECT_EQ(create("a").summary(), "create: ok");
  start("7");
  EXPECT_EQ(awaitNext().summary(), "start 7: ok");
  EXPECT_THAT(ranges(), ElementsAre("bytes=4-7", "bytes=8-9"));
  EXPECT_EQ(contentOf(pathOf("7")), object_.bytes);
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
  transport_->hold();
  start(running);
  awaitHeld(1);

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

TEST_F(BinaryDataManagerTest, PausedDownloadGoesOnWhereItsFileEnds) {
  const std::string id = newBlob("a");
  transport_->hold();
  start(id);
  release(1);
  awaitHeld(1);
  manager_->pauseDownload(id, block("pause"));
  const Call pause = awaitNext();
  EXPECT_EQ(pause.summary(), "pause: ok");
  EXPECT_EQ(pause.result,
            (Dictionary{{"BlobID", id}, {"FilePath", pathOf(id)}, {"TotalFileSize", 10}}));
  EXPECT_EQ(rows("SELECT localPath, state FROM varosyncBLOBSTOREMANAGER"), pathOf(id) + "|104");
  manager_->pauseDownload(id, block("pause"));
  EXPECT_EQ(awaitNext().result, pause.result);

  manager_->resumeDownload(id, block("resume"));
  transport_->releaseAll();
  const Call end = awaitNext();
  EXPECT_EQ(end.summary(), "resume: ok");  // the start block is forgotten
  EXPECT_EQ(stateOf(id), "50");
  EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
  EXPECT_THAT(ranges(), ElementsAre("bytes=0-3", "bytes=4-7", "bytes=4-7", "bytes=8-9"));
}

TEST_F(BinaryDataManagerTest, FailedDownloadTellsStartAndResumeAndMayBeStartedAgain) {
  const std::string id = pausedBlob("a");
  transport_->hold();
  transport_->answer(answerWith(404, ""));
  manager_->resumeDownload(id, block("resume"));
  manager_->startDownload(id, [this, id, log = block("start")](
                                  const auto& blobId, const auto& error, const auto& result) {
    log(blobId, error, result);
    EXPECT_EQ(stateOf(id), "103");
    start(id);
    throw std::runtime_error("of the application");
  });
  transport_->releaseAll();
  const auto failed = awaitCalls(2);
  for (const Call& call : failed) {
    EXPECT_EQ(call.error->domain(), "DownloadTaskError");
    EXPECT_EQ(call.error->code(), 4);
    EXPECT_EQ(call.error->userInfo()["NetworkError"], Value(Dictionary{{"message", "Not Found."}}));
  }
  EXPECT_EQ(failed[0].block + failed[1].block, "startresume");
  EXPECT_EQ(awaitNext().summary(), "start " + id + ": ok");
  EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
}

TEST_F(BinaryDataManagerTest, SixthDownloadWaitsForASuccessAndUnderTheSafePolicyForAnyEnd) {
  Dictionary inOneRange = config();
  inOneRange.set("ChunkSize", 100);
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    const bool isSafe = policy == TransferPolicy::kSafe;
    for (const std::string end : {"success", "error", "pause"}) {
      SCOPED_TRACE(end + (isSafe ? " safe" : " compatible"));
      makeDatabase();
      std::vector<std::string> ids;
      for (const char* pk : {"1", "2", "3", "4", "5", "6"}) ids.push_back(newBlob(pk, inOneRange));
      const std::size_t before = transport_->requestCount();
      transport_->hold();
      if (end == "error") transport_->answer(answerWith(404, ""));
      start(ids[0]);
      awaitHeld(1);
      for (std::size_t i = 1; i < 5; ++i) start(ids[i]);
      // Once more: it must not keep the one behind it from starting for ever.
      start(ids[0]);
      start(ids[5]);
      awaitHeld(5);
      EXPECT_EQ(stateOf(ids[5]), "101");

      if (end == "pause") manager_->pauseDownload(ids[0], block("pause"));
      if (end != "pause") release(1);
      EXPECT_EQ(awaitNext().error == nullptr, end != "error");
      if (!isSafe && end != "success") {
        EXPECT_EQ(transport_->requestCount(), before + 5);
        release(end == "pause" ? 2 : 1);
        EXPECT_THAT(awaitNext().summary(), HasSubstr(": ok"));
      }
      EXPECT_TRUE(eventually([&] { return transport_->requestCount() == before + 6; }));
      transport_->releaseAll();
      EXPECT_THAT(awaitSummaries(isSafe || end == "success" ? 5 : 4), Each(HasSubstr(": ok")));
      manager_->clearBinaryDataManagerState();
      if (isSafe && end == "pause") {
        EXPECT_EQ(awaitNext().summary(), "start " + ids[0] + ": " + kCleared);
      }
    }
  }
}

TEST_F(BinaryDataManagerTest, PauseThatComesTooLateIsAnsweredUnderTheSafePolicy) {
  for (const TransferPolicy policy : kBothPolicies) {
    for (const bool fails : {false, true}) {
      manager_->clearBinaryDataManagerState();
      setTransferPolicy(policy);
      makeDatabase();
      // While the first range is being written, the network half comes to its end.
      std::promise<void> written;
      std::promise<void> goOn;
      Dictionary configuration = config();
      configuration.set("ChunkSize", 5);
      configuration.set("onChunkDownloadCompleted",
                        std::make_shared<OnChunkDownloadCompleted>(
                            [&, first = true](const auto&, auto bytes, auto, const Value&) mutable {
                              if (!std::exchange(first, false)) return;
                              EXPECT_EQ(bytes, 4);
                              written.set_value();
                              goOn.get_future().wait();
                            }));
      const std::string id = newBlob("a", configuration);
      transport_->hold();
      transport_->answer(answerWith(206, "0123", {{"Content-Range", "bytes 0-3/8"}}));
      transport_->answer(fails ? answerWith(404, "")
                               : answerWith(206, "4567", {{"Content-Range", "bytes 4-7/8"}}));
      start(id);
      release(2);
      written.get_future().wait();
      manager_->pauseDownload(id, block("pause"));
      goOn.set_value();
      const std::string outcome = fails ? "DownloadTaskError 4" : "ok";
      EXPECT_EQ(awaitNext().summary(), "start " + id + ": " + outcome);
      if (policy == TransferPolicy::kSafe) {
        EXPECT_EQ(awaitNext().summary(), "pause: " + kNotPausable);
      }
      transport_->releaseAll();
    }
  }
}

TEST_F(BinaryDataManagerTest, EveryOperationMayBeCalledFromInsideEveryBlock) {
  addRecord("a");
  addRecord("b");
  transport_->hold();
  const auto anotherCreate = [this] {
    manager_->createDownloadTaskForDb(kDatabase, kTable, kColumn, {{"pk", "b"}}, config(),
                                      created());
  };
  const auto onPath = [this, log = block("path")](const auto& error, const auto& path) {
    manager_->clearBinaryDataManagerState();
    manager_->startDownload("1", block("start"));
    log(path, error, std::nullopt);
  };
  const auto onEnd = [this, onPath, log = block("resume")](const auto& id, const auto& error,
                                                           const auto& result) {
    manager_->pauseDownload(id, block("pause"));
    manager_->getBinaryDataFilePathForPrimaryKeys({{"pk", "a"}}, kDatabase, kTable, kColumn,
                                                  onPath);
    log(id, error, result);
  };
  const auto onPause = [this, onEnd](const auto& id, const auto&, const auto&) {
    transport_->releaseAll();
    manager_->resumeDownload(id, onEnd);
  };
  const auto onCreate = [&](const auto&, const auto& id) {
    anotherCreate();
    manager_->startDownload(id, block("never"));
    manager_->pauseDownload(id, onPause);
  };
  manager_->createDownloadTaskForDb(kDatabase, kTable, kColumn, {{"pk", "a"}}, config(), onCreate);
  EXPECT_THAT(awaitSummaries(5),
              ElementsAre("create: ok", "path: ok", "pause: " + kNotPausable, "resume: ok",
                          "start: DownloadTaskErrorDomain 5003 Task not created. Hence, can't be "
                          "started."));
  EXPECT_EQ(contentOf(pathOf("1")), object_.bytes);
}

TEST_F(BinaryDataManagerTest, ClearingStopsAndForgetsAndUnderTheSafePolicyAnswers) {
  const std::size_t atRest = platform::VSTask::liveCount();
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    makeDatabase();
    const std::string resumed = pausedBlob("resumed");
    std::vector<std::string> ids;
    for (const char* pk : {"1", "2", "3", "4", "5", "6", "7"}) ids.push_back(newBlob(pk));
    transport_->hold();
    manager_->resumeDownload(resumed, block("resume"));
    for (std::size_t i = 0; i < 6; ++i) start(ids[i]);
    awaitHeld(6);
    manager_->invalidateAllBackgroundSessions();
    manager_->clearBinaryDataManagerState();
    transport_->releaseAll();
    if (policy == TransferPolicy::kSafe) {
      EXPECT_THAT(awaitSummaries(7), Each(testing::EndsWith(": " + kCleared)));
    }
    EXPECT_TRUE(eventually([&] { return platform::VSTask::liveCount() == atRest; }));
    EXPECT_EQ(stateOf(ids[0]) + stateOf(ids[5]) + stateOf(ids[6]), "102101101");
    EXPECT_FALSE(std::filesystem::exists(pathOf(ids[0])));
    EXPECT_EQ(create("1").summary(), "create: ok");  // and all places are free again
    start(ids[0]);
    EXPECT_EQ(awaitNext().summary(), "start " + ids[0] + ": ok");
    manager_->clearBinaryDataManagerState();
    std::filesystem::remove_all(home_ / "Documents");
  }
}

TEST_F(BinaryDataManagerTest, DownloadOutlivesItsDatabase) {
  for (const bool isReplaced : {false, true}) {
    makeDatabase();
    const std::string id = newBlob("a");
    transport_->hold();
    start(id);
    awaitHeld(1);
    EXPECT_TRUE(eventually([&] { return stateOf(id) == "102"; }));
    if (isReplaced) {
      makeDatabase();
    } else {
      std::filesystem::remove(databasePath());
    }
    transport_->releaseAll();
    EXPECT_EQ(awaitNext().summary(), "start " + id + ": ok");
    EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
    EXPECT_EQ(std::filesystem::exists(databasePath()), isReplaced);
    std::filesystem::remove(pathOf(id));
  }
}

TEST_F(BinaryDataManagerTest, OperationsOfManyThreadsLeaveNoPlaceTakenAndNoWrongByte) {
  setTransferPolicy(TransferPolicy::kSafe);
  std::vector<std::string> ids;
  for (int i = 0; i < 8; ++i) ids.push_back(newBlob(std::to_string(i)));
  const auto ignore = [](const auto&, const auto&, const auto&) {};
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      unsigned random = seed + 1;
      for (int i = 0; i < 150; ++i) {
        random = random * 1664525 + 1013904223;
        const unsigned which = random >> 16;
        const std::string& id = ids[which % ids.size()];
        switch (which / ids.size() % 8) {
          case 0:
            manager_->createDownloadTaskForDb(kDatabase, kTable, kColumn,
                                              {{"pk", std::to_string(which % ids.size())}},
                                              config(), {});
            break;
          case 1:
          case 2:
            manager_->pauseDownload(id, ignore);
            break;
          case 3:
          case 4:
            manager_->resumeDownload(id, ignore);
            break;
          case 5:
            if (which % 11 == 0) manager_->clearBinaryDataManagerState();
            break;
          default:
            manager_->startDownload(id, ignore);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  manager_->clearBinaryDataManagerState();
  for (std::size_t i = 0; i < ids.size(); ++i) {
    // What a cleared download has in hand may end yet.
    const auto state = [&] { return stateOf(ids[i]); };
    if (create(std::to_string(i)).error == nullptr) {
      Call call;
      EXPECT_TRUE(eventually([&] {
        start(ids[i]);
        call = awaitNext();
        return call.error == nullptr;
      })) << call.summary();
    }
    EXPECT_EQ(state(), "50");
    EXPECT_EQ(contentOf(pathOf(ids[i])), object_.bytes);
  }
}

}  // namespace
}  // namespace varo::binary
