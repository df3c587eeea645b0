#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/BlobFixture.h"
#include "tests/support/OwnProcess.h"

#include <future>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

constexpr TransferPolicy kBothPolicies[] = {TransferPolicy::kCompatible, TransferPolicy::kSafe};

const std::string kCleared =
    "DownloadTaskError 4 The downloads were cleared before this one had ended.";

using DownloadSchedulingTest = test::BlobFixture;

TEST_F(DownloadSchedulingTest, SixthDownloadWaitsForASuccessAndUnderTheSafePolicyForAnyEnd) {
  const Dictionary inOneRange = config({{"ChunkSize", 100}});
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

TEST_F(DownloadSchedulingTest, CreationsThatWaitShareACommitAndFailAlone) {
  const std::string refuse =
      "CREATE TRIGGER t BEFORE UPDATE ON album WHEN new.pk = 'b' BEGIN "
      "SELECT RAISE(ABORT, 'no'); END";
  const struct {
    std::string sql, ids, links;
    int commits;
  } cases[] = {
      {"", "1 2 3 2 4", "1 2 3 4", 2},
      // The first, two with their links, and the row whose link is refused.
      {refuse, "1 2 4 2 3", "1 2 NULL 3", 4},
  };
  for (const auto& each : cases) {
    makeDatabase();
    for (const char* pk : {"0", "a", "b", "c"}) addRecord(pk);
    sql(each.sql);
    // A number that each commit counts up (https://www.sqlite.org/fileformat.html, 1.3.7).
    const auto commits = [&] { return static_cast<int>(contentOf(databasePath()).at(27)); };
    const int before = commits();
    std::promise<void> entered, goOn;
    const auto waits = [&, log = created()](const auto& error, const auto& id) {
      log(error, id);
      entered.set_value();
      goOn.get_future().wait();
    };
    const auto ask = [this](const char* pk, const BlobCreationBlock& block) {
      manager_->createDownloadTaskForDb(kDatabase, kTable, kColumn, {{"pk", pk}}, config(), block);
    };
    ask("0", waits);
    entered.get_future().wait();
    for (const char* pk : {"a", "b", "a", "c"}) ask(pk, created());
    goOn.set_value();
    std::string ids;
    for (const Call& call : awaitCalls(5)) ids += call.blobId.value_or("none") + " ";
    EXPECT_EQ(ids, each.ids + " ");
    EXPECT_EQ(rows("SELECT group_concat(blobref_photo, ' ') FROM album"), each.links);
    EXPECT_EQ(commits() - before, each.commits);
    manager_->clearBinaryDataManagerState();
  }
}

TEST_F(DownloadSchedulingTest, PauseThatComesTooLateIsAnsweredUnderTheSafePolicy) {
  for (const TransferPolicy policy : kBothPolicies) {
    for (const bool fails : {false, true}) {
      manager_->clearBinaryDataManagerState();
      std::filesystem::remove_all(home_ / "Documents");
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
      // Refused, and behind the second answer.
      manager_->resumeDownload(id, block("resume"));
      EXPECT_EQ(awaitNext().summary(), std::string("resume: ") + kNotResumable);
      manager_->pauseDownload(id, block("pause"));
      goOn.set_value();
      const std::string outcome = fails ? "DownloadTaskError 4" : "ok";
      EXPECT_EQ(awaitNext().summary(), "start " + id + ": " + outcome);
      if (policy == TransferPolicy::kSafe) {
        EXPECT_EQ(awaitNext().summary(), std::string("pause: ") + kNotPausable);
      }
      transport_->releaseAll();
    }
  }
}

TEST_F(DownloadSchedulingTest, EveryOperationMayBeCalledFromInsideEveryBlock) {
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
  EXPECT_THAT(
      awaitSummaries(5),
      ElementsAre("create: ok", "path: ok", std::string("pause: ") + kNotPausable, "resume: ok",
                  "start: DownloadTaskErrorDomain 5003 Task not created. Hence, can't be "
                  "started."));
  EXPECT_EQ(contentOf(pathOf("1")), object_.bytes);
}

TEST_F(DownloadSchedulingTest, StopEndsTheRunAlone) {
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    const bool isSafe = policy == TransferPolicy::kSafe;
    makeDatabase();
    const std::string resumed = pausedBlob("resumed");
    std::vector<std::string> ids;
    for (const char* pk : {"1", "2", "3", "4", "5", "6"}) ids.push_back(newBlob(pk));
    transport_->hold();
    manager_->resumeDownload(resumed, block("resume"));
    for (const std::string& id : ids) start(id);
    awaitHeld(6);  // the sixth waits
    const auto rows = [&] { return stateOf(ids[0]) + stateOf(resumed); };
    EXPECT_TRUE(eventually([&] { return rows() == "102102"; }));
    manager_->invalidateAllBackgroundSessions();
    if (isSafe) {
      EXPECT_THAT(awaitSummaries(7), Each(EndsWith("5001 The download was stopped.")));
    }
    awaitHeld(isSafe ? 0 : 1);  // the one that waited has no run to end
    EXPECT_EQ(rows(), "102102");

    // Each operation begins a new run, for which there is a place.
    manager_->pauseDownload(ids[0], block("pause"));
    EXPECT_EQ(awaitNext().summary(), "pause: ok");
    manager_->resumeDownload(resumed, block("resume"));
    start(ids[1]);
    manager_->resumeDownload(ids[0], block("resume"));
    if (isSafe) start(ids[5]);  // stopped before it ran
    transport_->releaseAll();
    EXPECT_THAT(awaitSummaries(4), Each(EndsWith(": ok")));
    EXPECT_EQ(contentOf(pathOf(ids[0])) + contentOf(pathOf(resumed)),
              object_.bytes + object_.bytes);

    manager_->clearBinaryDataManagerState();
    std::filesystem::remove_all(home_ / "Documents");
  }
}

TEST_F(DownloadSchedulingTest, BlobThatIsAskedForTwiceComesOnceUnderTheSafePolicy) {
  setTransferPolicy(TransferPolicy::kSafe);
  const std::string resumed = pausedBlob("resumed");
  std::vector<std::string> ids;
  for (const char* pk : {"1", "2", "3", "4", "5", "6"}) ids.push_back(newBlob(pk));
  const std::size_t before = transport_->requestCount();
  transport_->hold();
  manager_->resumeDownload(resumed, block("resume"));
  awaitHeld(1);
  EXPECT_TRUE(eventually([&] { return stateOf(resumed) == "102"; }));
  EXPECT_EQ(create("resumed").summary(), "create: ok");
  start(resumed);  // waits, though there is a place
  for (const std::string& id : ids) start(id);
  awaitHeld(6);
  EXPECT_EQ(create("6").summary(), "create: ok");
  start(ids[5]);
  transport_->releaseAll();
  EXPECT_THAT(awaitSummaries(9), Each(EndsWith(": ok")));
  EXPECT_EQ(transport_->requestCount(), before + 2 + 6 * 3);
  EXPECT_EQ(contentOf(pathOf(resumed)) + contentOf(pathOf(ids[5])), object_.bytes + object_.bytes);
}

TEST_F(DownloadSchedulingTest, ShutdownEndsDownloadsAndRefusesNewOnes) {
  inOwnProcess([this] {
    addBlob("there", 70, 50, "/there");
    const std::string id = newBlob("a");
    for (const char* pk : {"1", "2", "3", "4", "5"}) newBlob(pk);
    transport_->hold();
    for (const char* each : {"71", "72", "73", "74", "75", "76"}) start(each);
    awaitHeld(5);
    Runtime::shared().shutdown();
    const std::string refused = ": DownloadTaskErrorDomain 5001 The library has been shut down";
    const auto ends = awaitSummaries(6);
    require(ends[0] == "start 71: DownloadTaskError 4", "what ran has ended");
    require(ends[5] == "start 76" + refused, "what waited is told");
    require(create("a").summary() == "create" + refused, "a creation is refused");
    start(id);
    manager_->pauseDownload(id, block("pause"));
    manager_->resumeDownload(id, block("resume"));
    require(awaitSummaries(3)[2] == "start 71" + refused, "a start is refused");
    require(pathFor("there") == "/there", "a path is told");
    manager_->clearBinaryDataManagerState();
  });
}

}  // namespace
}  // namespace varo::binary
