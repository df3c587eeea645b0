#include "Platform/Foundation/JobContext.h"
#include "tests/support/Await.h"
#include "tests/support/BlobStoreFixture.h"
#include "tests/support/CallLog.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/TestProxy.h"
#include "varo/client.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::contentOf;
using test::eventually;
using test::kRange;
using test::kSize;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

using BlobStoreTest = test::BlobStoreFixture;

TEST_F(BlobStoreTest, FetchesIntoTheFileAndTellsEveryChange) {
  makeDatabase("a");
  std::atomic<int> asked = 0;
  BlobService wanted = service("a");
  wanted.options.credentials = [&] { return Credentials{"token " + std::to_string(++asked)}; };
  const BlobStore store = BlobStore::open(database("a"), path("a"), wanted).value();
  test::CallLog<BlobStatus> seen;
  const BlobWatch watch = store.watch([&](const BlobState& state) {
    seen.add(state.status);
    EXPECT_EQ(state.ref.table, "album");
    EXPECT_FALSE(state.reason.empty());
    EXPECT_EQ(platform::JobContext::current(), nullptr) << "what it logs is not the client's";
  });
  EXPECT_EQ(store.state(blob(1))->status, BlobStatus::kNotFetched);
  EXPECT_EQ(store.path(blob(1)).error().kind, Kind::kNotFound);

  holdSecondRange(1);
  std::atomic<std::uint64_t> last = 0;
  auto fetch = store.fetch(blob(1));
  fetch.onProgress([&](const Progress& progress) {
    EXPECT_GE(progress.done, last.exchange(progress.done));
    EXPECT_EQ(progress.total, kSize);
  });
  ASSERT_TRUE(awaitRequests(2));
  fetch.pause();
  ASSERT_TRUE(eventually([&] { return fetch.state() == State::kPaused; }));
  EXPECT_EQ(fs::file_size(path("a/1")), kRange);
  EXPECT_EQ(store.state(blob(1))->status, BlobStatus::kPaused);
  fetch.resume();
  const auto file = fetch.get();
  ASSERT_TRUE(file) << file.error().message;
  EXPECT_EQ(contentOf(*file), photo("a", 1));
  ASSERT_TRUE(eventually([&] { return last == kSize; }));
  EXPECT_THAT(ranges(),
              ElementsAre("bytes=0-4095", "bytes=4096-8191", "bytes=4096-8191", "bytes=8192-9999"));
  ASSERT_TRUE(eventually([&] { return seen.calls().size() == 5; }));
  EXPECT_THAT(seen.calls(),
              ElementsAre(BlobStatus::kNotFetched, BlobStatus::kFetching, BlobStatus::kPaused,
                          BlobStatus::kFetching, BlobStatus::kAvailable));

  server_->clearStats();
  EXPECT_EQ(store.fetch(blob(1)).get().value(), *file);
  EXPECT_EQ(store.path(blob(1)).value(), *file);
  EXPECT_EQ(server_->serviceStats().requests, 0U);
  EXPECT_EQ(store.states()->front().size, Bytes(kSize));
  fs::remove(*file);
  EXPECT_EQ(store.path(blob(1)).error().kind, Kind::kNotFound);
  EXPECT_EQ(contentOf(store.fetch(blob(1)).get().value()), photo("a", 1)) << "fetched anew";
}

TEST_F(BlobStoreTest, FetchesManyAndTellsOfEachWhatBecameOfIt) {
  constexpr int kCount = 200;
  makeDatabase("a", kCount, 1000);
  sql("a", "UPDATE album SET blobref_photo = '77' WHERE pk = 3");
  const BlobStore store = open("a");
  std::vector<BlobRef> blobs =
      store.blobsOf({.table = "album", .column = "photo", .keyColumns = {"pk"}}).value();
  ASSERT_EQ(blobs.size(), kCount);
  EXPECT_EQ(blobs.front(), blob(1));
  blobs.push_back(blob(1));
  blobs.push_back(blob(kCount + 1));
  server_->addFault({.match = {.query = "pk=7&"}, .action = {.status = 403, .body = "no"}});
  std::uint64_t last = 0;
  const auto states = store.fetchAll(blobs)
                          .onProgress([&](const Progress& progress) {
                            EXPECT_GE(progress.done, last);
                            last = progress.done;
                          })
                          .get();
  ASSERT_TRUE(states) << states.error().message;
  ASSERT_EQ(states->size(), blobs.size());
  std::map<Kind, int> failures;
  std::set<fs::path> files;
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    const BlobState& state = (*states)[i];
    EXPECT_EQ(state.ref, blobs[i]);
    EXPECT_NE(state.hasFile(), state.failure.has_value()) << state.reason;
    if (state.failure) {
      ++failures[state.failure->kind];
      EXPECT_THAT(state.reason, HasSubstr("photo of album (pk = "));
    } else {
      files.insert(*state.path);
      EXPECT_EQ(contentOf(*state.path),
                photo("a", i == kCount ? 1 : static_cast<int>(i) + 1, 1000));
    }
  }
  // No row of the blob; refused by the service; no record.
  EXPECT_EQ(failures, (std::map<Kind, int>{
                          {Kind::kDatabase, 1}, {Kind::kUnauthorized, 1}, {Kind::kNotFound, 1}}));
  EXPECT_EQ(files.size(), kCount - 2);
  EXPECT_EQ(server_->serviceStats().requests, kCount - 1)
      << "each once, but for the one without row";
  ASSERT_TRUE(eventually([&] { return last == 1000 * (kCount - 2); }));
  EXPECT_EQ(store.states()->size(), kCount - 1);
  EXPECT_TRUE(store.fetchAll({}).get()->empty());
}

TEST_F(BlobStoreTest, SmallBlobsShareAsManyConnectionsAsRunSideBySide) {
  constexpr int kBlobs = 50;
  makeDatabase("a", kBlobs, 1000);
  const test::TestProxy proxy;
  BlobService wanted = service("a");
  wanted.options.proxy = Proxy{.url = proxy.url("socks5")};
  wanted.options.parallel = 4;
  wanted.parallelRanges = 4;
  const BlobStore store = BlobStore::open(database("a"), path("a"), wanted).value();
  std::vector<BlobRef> blobs;
  for (int pk = 1; pk <= kBlobs; ++pk) blobs.push_back(blob(pk));
  const auto states = store.fetchAll(blobs).get();
  ASSERT_TRUE(states) << states.error().message;
  for (const BlobState& state : *states) EXPECT_EQ(state.status, BlobStatus::kAvailable);
  EXPECT_EQ(server_->serviceStats().requests, static_cast<std::uint64_t>(kBlobs));
  const std::size_t connections = proxy.asked().size();
  EXPECT_TRUE(connections >= 1 && connections <= 4) << connections;
}

TEST_F(BlobStoreTest, PauseOfManyReachesThoseThatRunAndThoseThatWait) {
  constexpr int kCount = 6;
  makeDatabase("a", kCount);
  const BlobStore store = open("a");
  std::vector<BlobRef> blobs;
  for (int pk = 1; pk <= kCount; ++pk) blobs.push_back(blob(pk));
  holdSecondRange();
  auto all = store.fetchAll(blobs);
  ASSERT_TRUE(awaitRequests(4));  // two places, two ranges each
  all.pause();
  ASSERT_TRUE(eventually([&] { return all.state() == State::kPaused; }));
  for (const BlobState& state : *store.states()) EXPECT_EQ(state.status, BlobStatus::kPaused);
  server_->clearFaults();
  EXPECT_TRUE(store.fetch(blob(kCount)).get()) << "it gets a place meanwhile";
  EXPECT_EQ(server_->serviceStats().requests, 4U + 3U);
  all.resume();
  const auto states = all.get();
  ASSERT_TRUE(states) << states.error().message;
  for (const BlobState& state : *states) EXPECT_TRUE(state.hasFile()) << state.reason;
  EXPECT_EQ(server_->serviceStats().requests, 4U + 3U + 2U * 2U + 3U * 3U)
      << "the two go on at their second range";
  EXPECT_EQ(all.progress().done, kCount * kSize);
}

TEST_F(BlobStoreTest, CancelFromInsideACallbackKeepsWhatIsThere) {
  makeDatabase("a", 5);
  const BlobStore store = open("a");
  holdSecondRange(1);
  const auto cancelled = [](auto transfer) {
    std::promise<void> ready;
    transfer.onProgress([&, go = ready.get_future().share()](const Progress&) {
      go.wait();
      transfer.cancel();
    });
    ready.set_value();
    return transfer.get();
  };
  const auto one = cancelled(store.fetch(blob(1)));
  EXPECT_EQ(one.error().kind, Kind::kCancelled);
  EXPECT_THAT(one.error().message, HasSubstr("photo of album (pk = 1)"));
  EXPECT_EQ(store.state(blob(1))->status, BlobStatus::kPaused);
  EXPECT_EQ(fs::file_size(path("a/1")), kRange);
  const auto many = cancelled(store.fetchAll({blob(2), blob(3), blob(4), blob(5)}));
  EXPECT_EQ(many.error().kind, Kind::kCancelled);
  EXPECT_EQ(store.state(blob(5))->status, BlobStatus::kNotFetched) << "it waited";

  server_->clearFaults();
  server_->clearStats();
  EXPECT_EQ(contentOf(store.fetch(blob(1)).get().value()), photo("a", 1));
  EXPECT_EQ(ranges().front(), "bytes=4096-8191");
  {
    holdSecondRange();
    const auto dropped = store.fetchAll({blob(2), blob(5)});
    ASSERT_TRUE(awaitRequests(3));
  }
  server_->clearFaults();
  EXPECT_TRUE(store.fetch(blob(5)).get()) << "a handle that goes away lets go of the file";
}

TEST_F(BlobStoreTest, TwoFetchesOfOneBlobBothComeToTheirOutcome) {
  makeDatabase("a");
  const BlobStore store = open("a");
  holdSecondRange(1);
  auto first = store.fetch(blob(1));
  ASSERT_TRUE(awaitRequests(2));
  auto second = store.fetch(blob(1));
  auto third = open("a").fetch(blob(1));
  auto fourth = open("a").fetch(blob(1));
  ASSERT_TRUE(eventually([&] { return third.state() == State::kRunning; }));
  third.cancel();
  EXPECT_EQ(third.get().error().kind, Kind::kCancelled);
  fourth.pause();
  ASSERT_TRUE(eventually([&] { return fourth.state() == State::kPaused; }));
  EXPECT_EQ(server_->serviceStats().requests, 2U) << "these wait for the file";
  first.pause();
  const auto file = second.get();
  ASSERT_TRUE(file) << file.error().message;
  EXPECT_EQ(contentOf(*file), photo("a", 1));
  first.resume();
  fourth.resume();
  EXPECT_EQ(first.get().value(), *file);
  EXPECT_EQ(fourth.get().value(), *file);
  EXPECT_EQ(server_->serviceStats().requests, 4U);
}

TEST_F(BlobStoreTest, StoresOnTwoDatabasesDoNotMeet) {
  sandbox::SandboxOptions strict;
  strict.requiredToken = "right";
  restart(strict);
  makeDatabase("a");
  makeDatabase("b");
  const auto openAs = [&](const std::string& name, const std::string& token) {
    BlobService wanted = service(name);
    wanted.options.credentials = [token] { return Credentials{token}; };
    wanted.parallelRanges = 4;
    return BlobStore::open(database(name), path(name), wanted).value();
  };
  const BlobStore a = openAs("a", "right");
  const BlobStore b = openAs("b", "right");
  auto one = a.fetch(blob(1));
  auto other = b.fetch(blob(1));
  EXPECT_EQ(contentOf(one.get().value()), photo("a", 1));
  EXPECT_EQ(contentOf(other.get().value()), photo("b", 1));
  EXPECT_EQ(a.state(blob(1))->id, b.state(blob(1))->id);
  sql("b", "UPDATE varosyncBLOBSTOREMANAGER SET state = 103");
  fs::remove(path("b/1"));
  EXPECT_EQ(openAs("b", "wrong").fetch(blob(1)).get().error().kind, Kind::kUnauthorized);
  EXPECT_TRUE(openAs("b", "right").fetch(blob(1)).get());

  const auto crossed = BlobStore::open(database("a"), path("b"), service("a"));
  EXPECT_EQ(crossed.error().kind, Kind::kConflict);
}

TEST_F(BlobStoreTest, RemovesForTheSyncEngine) {
  makeDatabase("a", 3);
  const BlobStore store = open("a");
  const auto kept = store.fetch(blob(1)).get().value();
  EXPECT_EQ(store.remove(blob(1))->status, BlobStatus::kDeletionWaits);
  EXPECT_TRUE(fs::exists(kept));
  EXPECT_EQ(store.fetch(blob(1)).get().error().kind, Kind::kConflict);

  holdSecondRange();
  auto fetch = store.fetch(blob(2));
  ASSERT_TRUE(awaitRequests(3 + 2));
  ASSERT_TRUE(eventually([&] { return store.state(blob(2))->path.has_value(); }));
  EXPECT_EQ(store.remove(blob(2), FileRemoval::kNow).error().kind, Kind::kConflict);
  fetch.cancel();
  EXPECT_FALSE(fetch.get());
  const auto removed = store.remove(blob(2), FileRemoval::kNow);
  ASSERT_TRUE(removed) << removed.error().message;
  EXPECT_EQ(removed->path, std::nullopt);
  EXPECT_EQ(store.remove(blob(3), FileRemoval::kNow)->status, BlobStatus::kDeletionWaits);
  std::set<std::string> left;
  for (const auto& entry : fs::directory_iterator(path("a"))) left.insert(entry.path().filename());
  EXPECT_EQ(left, std::set<std::string>{"1"}) << "neither partial file nor what is known of it";
}

TEST_F(BlobStoreTest, WatchEndsWithItsDestructorAlsoInsideItsCallback) {
  makeDatabase("a", 2);
  const BlobStore store = open("a");
  std::atomic<int> calls = 0;
  std::optional<BlobWatch> ended;
  std::promise<void> isSet;
  std::promise<void> hasEnded;
  ended = store.watch([&, set = isSet.get_future().share()](const BlobState&) {
    set.wait();
    ++calls;
    ended.reset();
    hasEnded.set_value();
  });
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<int> inside = 0;
  BlobWatch held = store.watch([&, isFirst = true](const BlobState&) mutable {
    ++inside;
    ++calls;
    if (std::exchange(isFirst, false)) {
      entered.set_value();
      leave.get_future().wait();
    }
    --inside;
  });
  isSet.set_value();
  EXPECT_TRUE(store.fetch(blob(1)).get()) << "no callback holds a fetch up";
  hasEnded.get_future().wait();
  entered.get_future().wait();
  std::thread closing([&] {
    held = BlobWatch();
    EXPECT_EQ(inside, 0);
  });
  leave.set_value();
  closing.join();
  const int before = calls;
  EXPECT_TRUE(store.fetch(blob(2)).get());
  EXPECT_EQ(calls, before);
}

TEST_F(BlobStoreTest, ShutdownEndsEveryFetch) {
  makeDatabase("a", 8);
  test::inOwnProcess([&] {
    BlobService wanted = service("a");
    wanted.parallelRanges = 4;
    const BlobStore store = BlobStore::open(database("a"), path("a"), wanted).value();
    holdSecondRange();
    const auto all = store.fetchAll({blob(1), blob(2), blob(3), blob(4)});
    test::require(awaitRequests(4), "two run, two wait");
    const auto one = store.fetch(blob(5));
    auto paused = open("a").fetch(blob(7));
    auto severalPaused = open("a").fetchAll({blob(8)});
    test::require(awaitRequests(8), "these run in stores of their own");
    const auto arePaused = [&] {
      return paused.state() == State::kPaused && severalPaused.state() == State::kPaused;
    };
    paused.pause();
    severalPaused.pause();
    test::require(eventually(arePaused), "they have paused");
    test::require(shutDown(), "nothing holds it up");
    test::require(all.get().error().kind == Kind::kShutDown, "what ran and waited is told");
    test::require(one.get().error().kind == Kind::kShutDown, "so is what only waited");
    test::require(paused.get().error().kind == Kind::kShutDown, "nobody could resume it");
    test::require(severalPaused.get().error().kind == Kind::kShutDown, "nor these");
    test::require(store.fetch(blob(6)).get().error().kind == Kind::kShutDown, "and what follows");
    server_->stop();  // with its threads, which nothing joins in a process that ends here
  });
}

TEST_F(BlobStoreTest, PauseAndResumeOfManyFromTwoThreadsLeaveNoneBehind) {
  makeDatabase("a");
  BlobService wanted = service("a");
  wanted.options.parallel = 256;
  const BlobStore store = BlobStore::open(database("a"), path("a"), wanted).value();
  // They end at once, whatever the network does: none names a record.
  std::vector<BlobRef> blobs;
  for (int i = 0; i < 256; ++i) {
    blobs.push_back({.table = "album", .column = std::to_string(i), .keys = {}});
  }
  for (int round = 0; round < 100; ++round) {
    auto all = store.fetchAll(blobs);
    std::atomic<bool> isPaused = false;
    std::thread pausing([&] {
      all.pause();
      isPaused = true;
    });
    while (!isPaused) all.resume();  // one is in the middle of the pause
    pausing.join();
    all.resume();
    ASSERT_TRUE(all.waitFor(20s)) << "in round " << round;
  }
}

TEST_F(BlobStoreTest, ExampleFetchesAllPhotosAndSaysWhatBecameOfEach) {
  const auto error = server_->makeExampleDatabase(path("staff.db"));
  ASSERT_FALSE(error) << error->message;
  fs::create_directory(path("photos"));
  test::ChildProcess example({.program = VARO_OFFLINE_BLOBS,
                              .arguments = {server_->blobUrl(), path("staff.db"), path("photos")},
                              .environment = {},
                              .directory = directory_});
  EXPECT_EQ(example.wait(), 0) << example.errors();
  EXPECT_THAT(example.output(), HasSubstr("available: " + path("photos/")));
  EXPECT_THAT(example.output(), HasSubstr("photo of employees (id = 7)"));
}

}  // namespace
}  // namespace varo
