// Who owns the state of a download, and who owns its file.

#include "Binary/Binary/BinaryDataManager/BlobDownload.h"
#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"
#include "Binary/Binary/DownloadTask/DownloadFile.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/DownloadTask/ObjectValidator.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/BlobFixture.h"
#include "tests/support/OwnProcess.h"

#include <cstddef>
#include <future>
#include <memory>
#include <stdexcept>
#include <vector>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

constexpr TransferPolicy kBothPolicies[] = {TransferPolicy::kCompatible, TransferPolicy::kSafe};

// Steps.

TEST(StepQueueTest, EffectsFollowTheirStepsInOrderAndNoneIsLost) {
  StepQueue steps("steps");
  std::vector<std::string> said;
  const auto say = [&said](std::string what) { return [&said, what] { said.push_back(what); }; };
  steps.setOnThrow([&](std::string_view what) {
    said.push_back(std::string(what));
    throw std::runtime_error("nobody hears of this");
  });
  steps.run([&]() -> StepQueue::Effects {
    // From inside a step: when that has left the queue, and before its own.
    steps.run([&]() -> StepQueue::Effects { return {say("inner")}; });
    said.push_back("step");
    return {say("first"), [] { throw std::runtime_error("second throws"); }, [] { throw 3; },
            [&] {
              // From inside an effect: before that goes on.
              steps.run([&]() -> StepQueue::Effects { return {say("nested")}; });
              said.push_back("fourth");
            },
            say("last")};
  });
  EXPECT_THROW(steps.run([&]() -> StepQueue::Effects { throw std::runtime_error("a step"); }),
               std::runtime_error);
  steps.run([&]() -> StepQueue::Effects { return {say("goes on")}; });
  EXPECT_THAT(said, ElementsAre("step", "inner", "first", "second throws", "not a std::exception",
                                "nested", "fourth", "last", "goes on"));
}

TEST(StepQueueTest, WhoDecidesNeverWaitsForWhoActs) {
  StepQueue steps("steps");
  std::promise<void> acts, mayGoOn;
  std::vector<int> order;
  std::thread other([&] {
    steps.run([&]() -> StepQueue::Effects {
      return {[&] {
        acts.set_value();
        mayGoOn.get_future().wait();
        order.push_back(1);
        // What another thread has decided meanwhile comes first.
        steps.run([&]() -> StepQueue::Effects { return {[&] { order.push_back(3); }}; });
      }};
    });
  });
  acts.get_future().wait();
  bool isDecided = false;
  steps.run([&]() -> StepQueue::Effects {
    isDecided = true;
    return {[&] { order.push_back(2); }};
  });
  EXPECT_TRUE(isDecided);
  mayGoOn.set_value();
  other.join();  // it did the second one's, too
  EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(StepQueueTest, ListenersHearOfAStepsChangesWhenItHasLeftTheQueue) {
  // After the shutdown they are called by the thread that changes the task.
  const auto body = [] {
    struct Listener final : TaskListener {
      explicit Listener(StepQueue& of) : steps(of) {}
      void task(const std::shared_ptr<VSTask>& /*task*/, TaskState /*from*/, TaskState /*to*/,
                const Dictionary& /*context*/) override {
        std::thread([this] { steps.run([]() -> StepQueue::Effects { return {}; }); }).join();
        ++heard;
      }
      StepQueue& steps;
      int heard = 0;
    };
    Runtime::shared().shutdown();
    StepQueue steps("steps");
    const auto task = std::make_shared<VSTask>();
    const auto listener = std::make_shared<Listener>(steps);
    task->subscribeForTaskUpdates(listener);
    steps.run([&]() -> StepQueue::Effects {
      task->setState(TaskState::Started);
      return {};
    });
    require(listener->heard == 1, "the listener has heard of it");
  };
  inOwnProcess(body);
}

// Claims.

struct DocumentsAt final : UserDirectories {
  explicit DocumentsAt(std::function<std::string()> folder) : where(std::move(folder)) {}
  [[nodiscard]] std::string documents() const override { return where(); }
  [[nodiscard]] std::string downloads() const override { return before->downloads(); }
  [[nodiscard]] std::string library() const override { return before->library(); }
  const std::shared_ptr<const UserDirectories> before = UserDirectories::current();
  const std::function<std::string()> where;
};

class FileClaimTest : public BlobFixture {
 protected:
  FileClaimTest() { std::filesystem::create_directories(home_ / "Documents/blobs"); }

  [[nodiscard]] std::string hidden(const std::string& id) const {
    return home_ / "Documents/blobs/." + id + ".partial";
  }
  /// Forgets all downloads, as a new process has none; one that waits is told so.
  void clear(bool isTold) {
    manager_->clearBinaryDataManagerState();
    if (isTold) {
      EXPECT_THAT(awaitNext().summary(), HasSubstr("were cleared"));
    }
  }
  static FileClaim::Lease claim(const std::string& path) {
    return FileClaim::acquire(path, [] {}).claim;
  }
  /// Kept like the manager's: a download's last effect may come after its end was told.
  static DownloadPlaces& placesFor(std::size_t downloads) {
    static auto& kept = *new std::vector<std::unique_ptr<DownloadPlaces>>();
    return *kept.emplace_back(std::make_unique<DownloadPlaces>(downloads));
  }
  /// The download of blob 7, the record "a".
  static std::shared_ptr<BlobDownload> downloadAmong(DownloadPlaces& places) {
    Dictionary input = config({{kBlobId, "7"}, {kDBName, kDatabase}});
    input.set(kPrimaryKeys, Dictionary{{"pk", "a"}});
    return BlobDownload::create(input, OperationSettings::take(Dictionary()), places);
  }
};

TEST_F(FileClaimTest, IsFreeWhenTheLastLeaseGoesOrItIsReleased) {
  const std::string path = pathOf("7");
  for (const bool isReleased : {false, true}) {
    FileClaim::Lease lease = claim(path);
    ASSERT_NE(lease, nullptr);
    const auto used = lease->withoutLease();
    FileClaim::Lease another = lease;
    std::promise<void> freed;
    const auto attempt = FileClaim::acquire(path, [&freed] { freed.set_value(); });
    EXPECT_TRUE(attempt.claim == nullptr && attempt.error == nullptr);
    lease.reset();
    EXPECT_EQ(claim(path), nullptr);
    isReleased ? another->release() : another.reset();
    freed.get_future().wait();
    EXPECT_NE(claim(path), nullptr);
    EXPECT_FALSE(used->setValidator("x").ok());
    EXPECT_FALSE(std::filesystem::exists(hidden("7")));
  }
}

TEST_F(FileClaimTest, ReadsWhatAProcessThatDiedAtAnyMomentHasLeft) {
  const struct {
    std::string left, validator;
    bool isBroken;
  } cases[] = {{"", "", false},                      // it had noted nothing
               {"new\n", "new", false},              //
               {"new\nmuch older\n", "new", false},  // before what is behind was cut off
               {"ne", "", true},
               {"\n", "", false}};
  for (const auto& c : cases) {
    writeFile(hidden("7"), c.left);
    const auto lease = claim(pathOf("7"));
    ASSERT_NE(lease, nullptr);
    EXPECT_EQ(lease->validator(), c.validator) << c.left;
    EXPECT_EQ(lease->isBroken(), c.isBroken) << c.left;
    EXPECT_TRUE(lease->setValidator("a longer one than that").ok());
    EXPECT_TRUE(lease->setValidator("short").ok());
    EXPECT_EQ(contentOf(hidden("7")), "short\n");
  }
}

TEST_F(FileClaimTest, PartialFileOfAProcessThatDiedIsGoneOnWith) {
  const std::string noted = ObjectValidator{.entityTag = "\"1\"", .total = 10}.text() + "\n";
  const struct {
    std::string hidden, bytes, row, firstRange;
  } cases[] = {// The row names the file; whoever claimed it last died before he had noted anything.
               {"", "0123", "named", "bytes=4-7"},
               {noted, "0123", "named", "bytes=4-7"},
               {"{\"etag\":", "0123", "named", "bytes=0-3"},
               {"no validator\n", "0123", "named", "bytes=0-3"},
               // Of an object that has been replaced since.
               {ObjectValidator{.entityTag = "\"0\"", .total = 10}.text() + "\n", "abcd", "named",
                "bytes=4-7"},
               // All is there: nothing is asked for, whether or not the row has heard of the file.
               {noted, "0123456789", "named", ""},
               {noted, "0123456789", "", ""},
               {ObjectValidator{.total = 10}.text() + "\n", "0123456789", "", ""}};
  int id = 10;
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    for (const auto& c : cases) {
      SCOPED_TRACE(c.hidden + c.bytes + c.row);
      const std::string blob = std::to_string(++id);
      writeFile(pathOf(blob), c.bytes);
      writeFile(hidden(blob), c.hidden);
      addBlob(blob, id, 102, c.row.empty() ? "" : pathOf(blob));
      create(blob);
      const std::size_t before = transport_->requestCount();
      start(blob);
      EXPECT_EQ(awaitNext().summary(), "start " + blob + ": ok");
      const auto asked = ranges();
      // Without a tag or date the safe policy goes on with nothing.
      const bool startsOver = c.hidden.empty() && policy == TransferPolicy::kSafe;
      EXPECT_EQ(asked.size() > before ? asked[before] : "",
                startsOver ? "bytes=0-3" : c.firstRange);
      EXPECT_EQ(contentOf(pathOf(blob)), object_.bytes);
      EXPECT_EQ(stateOf(blob), "50");
      EXPECT_FALSE(std::filesystem::exists(hidden(blob)));
    }
  }
}

TEST_F(FileClaimTest, RowNeverNamesBytesThatAreOfNoKnownObject) {
  // A file of an earlier object, which the row does not name; paused before the first range.
  writeFile(pathOf("7"), "abcdef");
  addBlob("a", 7, 101);
  create("a");
  transport_->hold();
  start("7");
  awaitHeld(1);
  manager_->pauseDownload("7", block("pause"));
  EXPECT_EQ(awaitNext().summary(), "pause: ok");
  EXPECT_EQ(contentOf(pathOf("7")), "");
  manager_->resumeDownload("7", block("resume"));
  transport_->releaseAll();
  EXPECT_EQ(awaitNext().summary(), "resume: ok");
  EXPECT_EQ(contentOf(pathOf("7")), object_.bytes);
}

TEST_F(FileClaimTest, FileOfAnotherProcessFailsTheDownloadAndLeavesTheRow) {
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    makeDatabase();
    addBlob("a", 7, 104, "/before");
    create("a");
    auto other = File::createNew(hidden("7")).value();
    ASSERT_TRUE(other->lock().ok());
    start("7");
    const Call call = awaitNext();
    EXPECT_EQ(call.summary(), "start 7: DownloadTaskError 4");
    EXPECT_THAT(call.error->userInfo()["PersistenceError"]
                    .dictionaryValue()[std::string(kLocalizedDescriptionKey)]
                    .textValue(),
                HasSubstr("Another download is writing"));
    EXPECT_EQ(rows("SELECT localPath, state FROM varosyncBLOBSTOREMANAGER"), "/before|104");
    EXPECT_EQ(transport_->requestCount(), policy == TransferPolicy::kSafe ? 3U : 0U);
    other.reset();
    start("7");
    EXPECT_EQ(awaitNext().summary(), "start 7: ok");
    std::filesystem::remove(pathOf("7"));
  }
}

TEST_F(FileClaimTest, SecondDownloadOfABlobWaitsForTheFirstsEndAndKeepsItsBlock) {
  for (const bool fails : {false, true}) {
    makeDatabase();
    std::filesystem::remove(pathOf("1"));
    const std::string id = newBlob("a");
    startHeld(id);
    sql("UPDATE varosyncBLOBSTOREMANAGER SET state = 0");  // so that it may be created anew
    EXPECT_EQ(create("a").summary(), "create: ok");
    manager_->startDownload(id, block("second"));
    // Refused while it waits, as before its start.
    manager_->pauseDownload(id, block("pause"));
    EXPECT_EQ(awaitNext().summary(), std::string("pause: ") + kNotPausable);
    awaitHeld(1);
    if (fails) {
      transport_->hold();
      transport_->answer(answerWith(404, ""));
      release(1);  // the first range; the next answer is the failure
    }
    transport_->releaseAll();
    std::map<std::string, Call> ends;
    for (const Call& call : awaitCalls(2)) ends[call.block] = call;
    EXPECT_EQ(ends["start " + id].error == nullptr, !fails);
    EXPECT_EQ(ends["second"].summary(), "second: ok");
    const Dictionary there{{"FilePath", pathOf(id)}, {"state", "50"}};
    if (!fails) {
      EXPECT_EQ(ends["second"].result, there);
    }
    EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
    manager_->clearBinaryDataManagerState();
  }
}

TEST_F(FileClaimTest, StartOfADownloadThatRunsTakesNoPlaceAndGivesNoneBack) {
  DownloadPlaces& places = placesFor(2);
  addBlob("a", 7, 101);
  const auto download = downloadAmong(places);
  transport_->hold();
  download->start(block("start"));
  awaitHeld(1);
  places.schedule(download);  // two threads have decided to start it at the same time
  EXPECT_TRUE(eventually([&] { return places.running() == std::vector{download}; }));
  transport_->releaseAll();
  EXPECT_EQ(awaitNext().summary(), "start: ok");
  EXPECT_TRUE(eventually([&] { return places.running().empty(); }));
  EXPECT_NE(claim(pathOf("7")), nullptr) << "the download is still there";
}

TEST_F(FileClaimTest, ClearThatMeetsAStartLeavesNeitherAPlaceNorTheFileTaken) {
  const auto original = UserDirectories::current();
  addBlob("a", 7, 101);
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    DownloadPlaces& places = placesFor(1);
    const auto download = downloadAmong(places);
    // When the run asks where its file goes.
    UserDirectories::install(std::make_shared<DocumentsAt>([&] {
      download->clear();
      return original->documents();
    }));
    download->start(block("start"));
    UserDirectories::install(original);
    EXPECT_NE(claim(pathOf("7")), nullptr);
    download->start(block("again"));
    if (policy == TransferPolicy::kSafe) {
      EXPECT_THAT(awaitSummaries(2), Each(EndsWith("were cleared before this one had ended.")));
    }
    places.schedule(download);  // decided before the clear
    EXPECT_TRUE(places.running().empty());
  }
  EXPECT_EQ(transport_->requestCount(), 0U);
}

/// Whether this process has the file at `path` open.
bool isOpen(const std::string& path) {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::any_of(begin(all), end(all), [&path](const auto& descriptor) {
    std::error_code closed;
    return std::filesystem::read_symlink(descriptor, closed) == path;
  });
}

TEST_F(FileClaimTest, EndedDownloadHasLetGoOfItsFileBeforeItsBlockIsCalled) {
  for (const std::string end : {"success", "error", "pause"}) {
    SCOPED_TRACE(end);
    makeDatabase();
    std::filesystem::remove_all(home_ / "Documents/blobs");
    const std::string id = newBlob("a");
    const auto told = [&](const auto& blobId, const auto& error, const auto& result) {
      EXPECT_NE(claim(pathOf(id)), nullptr);
      block("end")(blobId, error, result);
    };
    transport_->hold();
    manager_->startDownload(id, told);
    release(1);
    awaitHeld(1);
    EXPECT_TRUE(eventually([&] { return isOpen(pathOf(id)); }));
    if (end == "error") transport_->answer(answerWith(404, ""));  // of the third range
    if (end == "pause") manager_->pauseDownload(id, told);
    transport_->releaseAll();
    EXPECT_EQ(awaitNext().error == nullptr, end != "error");
    EXPECT_TRUE(eventually([&] { return !isOpen(pathOf(id)); }));
  }
}

TEST_F(FileClaimTest, StoppedDownloadKeepsItsFileUntilTheLastByteIsWritten) {
  std::promise<void> writes, mayGoOn;
  const std::string id = newBlob(
      "a", config({{"onChunkDownloadCompleted", std::make_shared<OnChunkDownloadCompleted>(
                                                    [&](const auto&, auto, auto, const Value&) {
                                                      writes.set_value();
                                                      mayGoOn.get_future().wait();
                                                    })}}));
  startHeld(id);
  release(1);
  writes.get_future().wait();
  manager_->invalidateAllBackgroundSessions();
  EXPECT_EQ(claim(pathOf(id)), nullptr);
  mayGoOn.set_value();
  EXPECT_TRUE(eventually([&] { return claim(pathOf(id)) != nullptr; }));
  EXPECT_EQ(contentOf(pathOf(id)), object_.bytes.substr(0, kChunk));
}

TEST_F(FileClaimTest, ShutdownThatMeetsAStartEndsIt) {
  inOwnProcess([this] {
    addBlob("a", 7, 101);
    DownloadPlaces& places = placesFor(1);
    const auto download = downloadAmong(places);
    Runtime::shared().shutdown();
    download->start(block("start"));  // which had been let through before
    require(awaitNext().summary().ends_with("5001 The library has been shut down"), "it is told");
    require(places.running().empty() && stateOf("7") == "101", "nothing has begun");
  });
}

TEST_F(FileClaimTest, RowThatCannotBeWrittenIsMendedByTheNextDownloadWithoutARequest) {
  for (const TransferPolicy policy : kBothPolicies) {
    setTransferPolicy(policy);
    const bool isSafe = policy == TransferPolicy::kSafe;
    makeDatabase();
    std::filesystem::remove(pathOf("1"));
    const std::string id = newBlob("a", config({{"ChunkSize", 100}}));
    sql("CREATE TRIGGER refuse BEFORE UPDATE ON varosyncBLOBSTOREMANAGER WHEN NEW.state = 50"
        " BEGIN SELECT RAISE(ABORT, 'no'); END");
    start(id);
    const ErrorPtr error = awaitNext().error;
    ASSERT_EQ(error != nullptr, isSafe);
    if (isSafe) {
      EXPECT_EQ(firstCause(*error).code(), 1811);
    }
    EXPECT_EQ(stateOf(id), "102");
    sql("DROP TRIGGER refuse");
    const std::size_t before = transport_->requestCount();
    EXPECT_EQ(create("a").summary(), "create: ok");
    start(id);
    EXPECT_EQ(awaitNext().summary(), "start " + id + ": ok");
    EXPECT_EQ(rows("SELECT localPath, state, size FROM varosyncBLOBSTOREMANAGER"),
              pathOf(id) + "|50|10");
    EXPECT_EQ(transport_->requestCount(), before);
    EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);

    // A row that is new again is about another object, whatever a killed process has left.
    writeFile(hidden(id), ObjectValidator{.entityTag = "\"1\"", .total = 10}.text() + "\n");
    sql("UPDATE varosyncBLOBSTOREMANAGER SET state = 101");
    create("a");
    start(id);
    EXPECT_EQ(awaitNext().summary(), "start " + id + ": ok");
    EXPECT_EQ(transport_->requestCount(), before + 3);
  }
}

TEST_F(FileClaimTest, DocumentsMayMoveBetweenCreationAndStart) {
  const auto original = UserDirectories::current();
  for (const TransferPolicy policy : kBothPolicies) {
    for (const bool filesMove : {false, true}) {
      setTransferPolicy(policy);
      makeDatabase();
      const std::string id = pausedBlob("a");
      clear(policy == TransferPolicy::kSafe);
      EXPECT_EQ(create("a").summary(), "create: ok");
      const std::string documents = home_ / "Moved";
      if (filesMove) std::filesystem::rename(home_ / "Documents", documents);
      UserDirectories::install(std::make_shared<DocumentsAt>([documents] { return documents; }));
      start(id);
      const Call call = awaitNext();
      EXPECT_EQ(call.summary(), "start " + id + ": ok");
      EXPECT_EQ(contentOf(documents + "/blobs/" + id), object_.bytes);
      EXPECT_EQ(rows("SELECT localPath, state FROM varosyncBLOBSTOREMANAGER"),
                documents + "/blobs/" + id + "|50");
      UserDirectories::install(original);
      std::filesystem::remove_all(documents);
      std::filesystem::remove_all(home_ / "Documents");
    }
  }
}

}  // namespace
}  // namespace varo::binary
