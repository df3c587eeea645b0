// Uploads of the typed client that are stopped, fail or go on, in every phase.

#include "tests/support/AnswersOnce.h"
#include "tests/support/Await.h"
#include "tests/support/CallLog.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FileClientFixture.h"
#include "tests/support/Notify.h"
#include "tests/support/ScriptedServer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <thread>

namespace varo {
namespace {

using namespace std::chrono_literals;
using sandbox::FaultRule;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kSize = 200'000;  // four chunks

class FileUploadTest : public test::FileClientFixture {
 protected:
  /// Another client, as after a restart of the program, and the place as it kept it.
  Outcome<FileRecord> goOn(const std::string& place, Metadata metadata = {}) {
    return client()
        .upload(Source::file(path("photo")),
                {.metadata = std::move(metadata), .resume = UploadPlace(place)})
        .get();
  }
  /// There is this one file, whole.
  void expectTheFile(const std::string& content) {
    const auto records = client().list().get();
    ASSERT_EQ(records->size(), 1U);
    std::string bytes;
    const Sink sink = [&](std::span<const std::byte> piece) { bytes += test::textOf(piece); };
    ASSERT_TRUE(client().download(records->front().id, sink).get());
    EXPECT_EQ(bytes, content);
    ASSERT_TRUE(client().remove(records->front().id).get());
  }
  std::vector<std::string> chunksSent() {
    std::vector<std::string> queries;
    for (const auto& request : server_->requests()) {
      if (request.path.find("/bytes/") != std::string::npos && request.method != "GET") {
        queries.push_back(request.query.substr(request.query.find('=') + 1));
      }
    }
    return queries;
  }

  const std::string content_ = sandbox::sampleBytes(kSize);
};

TEST_F(FileUploadTest, GoesOnAtTheNextChunkWhateverFailed) {
  struct Case {
    std::string name;
    std::string form;
    FaultRule fault;
    std::vector<std::string> chunks;  // of the second run; not looked at where empty
  };
  // A PUT whose kept connection breaks is sent a second time by itself.
  const sandbox::FaultMatch third{.path = "/bytes/", .skip = 2, .count = 1};
  const sandbox::FaultMatch thirdTwice{.path = "/bytes/", .skip = 2, .count = 2};
  const sandbox::FaultMatch commit{.method = "PUT", .path = "/objects/File", .count = 1};
  const sandbox::FaultMatch commitTwice{.method = "PUT", .path = "/objects/File", .count = 2};
  const std::vector<Case> cases = {
      {"refused chunk", "{}", {third, {.status = 503}}, {"3", "4"}},
      {"lost response of a chunk", "{}", {thirdTwice, {.drop = true}}, {"3", "4"}},
      {"first chunk", "{}", {{.path = "/bytes/", .count = 1}, {.status = 500}}, {}},
      {"refused commit", "{}", {commit, {.status = 503}}, {"4"}},
      {"lost response of the commit", "{}", {commitTwice, {.drop = true}}, {}},
      {"forms", R"({"uploadMode":"multipart","method":"post"})", {third, {.drop = true}}, {}},
      {"in one piece",
       R"({"chunkupload":false})",
       {{.path = "/bytes/", .count = 2}, {.drop = true}},
       {"1"}},
      {"outside store",
       R"({"domain":"store"})",
       {{.listener = "store", .skip = 2, .count = 2}, {.drop = true}},
       {}},
  };
  writeFile(path("photo"), content_);
  for (const Case& wanted : cases) {
    SCOPED_TRACE(wanted.name);
    server_->clearFaults();
    server_->addFault(wanted.fault);
    const Metadata metadata = {{"sandbox_template", wanted.form}};
    const auto failed = client().upload(Source::file(path("photo")), {.metadata = metadata}).get();
    ASSERT_FALSE(failed);
    EXPECT_THAT(failed.error().message, HasSubstr("photo"));
    ASSERT_TRUE(failed.error().place);
    server_->clearStats();
    const auto done = goOn(failed.error().place->text(), metadata);
    ASSERT_TRUE(done) << done.error().message;
    if (!wanted.chunks.empty()) {
      EXPECT_EQ(chunksSent(), wanted.chunks);
    }
    expectTheFile(content_);
  }
}

TEST_F(FileUploadTest, ARepeatedChunkThatIsRefusedIsSentAgain) {
  // As a service does that is still busy with the first request.
  constexpr char kBusy[] = R"({"opstatus":8005,"errmsg":"another request is writing"})";
  server_->addFault({{.path = "/bytes/", .skip = 2, .count = 1}, {.status = 503}});
  server_->addFault({{.path = "/bytes/", .skip = 3, .count = 1}, {.status = 200, .body = kBusy}});
  writeFile(path("photo"), content_);
  const auto client =
      FileClient::create({.url = server_->url(),
                          .chunkSize = 64_KiB,
                          .retry = {.attempts = 2, .firstWait = 1ms, .longestWait = 1ms}});
  const auto done = client->upload(Source::file(path("photo"))).get();
  ASSERT_TRUE(done) << done.error().message;
  EXPECT_THAT(chunksSent(), ElementsAre("1", "2", "3", "3", "3", "4"));
  expectTheFile(content_);
}

TEST_F(FileUploadTest, AFileThatChangesUnderWayIsNeverHalfOldAndHalfNew) {
  writeFile(path("photo"), content_);
  server_->addFault(
      {.match = {.path = "/bytes/", .skip = 1, .count = 1}, .action = {.latency = -1ms}});
  const auto upload = client().upload(Source::file(path("photo")));
  ASSERT_TRUE(test::eventually([this] { return server_->heldRequests() == 1; }));
  const auto time = std::filesystem::last_write_time(path("photo"));
  writeFile(path("photo"), sandbox::sampleBytes(kSize));
  std::filesystem::last_write_time(path("photo"), time + 1h);
  server_->clearFaults();
  const auto failed = upload.get();
  ASSERT_FALSE(failed);
  EXPECT_EQ(nameOf(failed.error().kind), nameOf(Kind::kIntegrity));
  EXPECT_THAT(failed.error().message, HasSubstr("photo has changed since it was opened"));
  const auto resumed = goOn(failed.error().place->text());
  ASSERT_FALSE(resumed);
  EXPECT_THAT(resumed.error().message, HasSubstr("the source has changed since then"));
}

TEST_F(FileUploadTest, OldPlaceSendsAllChunksAnewAndLostRecordIsAFailure) {
  writeFile(path("photo"), content_);
  test::CallLog<std::pair<FileId, UploadPlace>> told;
  server_->addFault({.match = {.path = "/bytes/", .skip = 3}, .action = {.status = 503}});
  auto upload = client().upload(Source::file(path("photo")),
                                {.onPlace = [&](const FileId& record, const UploadPlace& place) {
                                  told.add({record, place});
                                }});
  ASSERT_FALSE(upload.get());
  server_->clearFaults();
  // The record, three chunks.
  ASSERT_TRUE(test::eventually([&] { return told.calls().size() == 4; }));
  const auto places = told.calls();
  EXPECT_EQ(places.front().first, *upload.get().error().begun);
  server_->clearStats();
  const auto done = goOn(places.at(1).second.text());
  ASSERT_TRUE(done) << done.error().message;
  EXPECT_THAT(chunksSent(), ElementsAre("2", "2", "2", "1", "2", "3", "4"));
  expectTheFile(content_);
  EXPECT_EQ(goOn(places.at(1).second.text()).error().kind, Kind::kServer) << "there is no record";
}

TEST_F(FileUploadTest, RefusesToGoOnWithOtherBytes) {
  writeFile(path("photo"), content_);
  server_->addFault({.match = {.path = "/bytes/", .skip = 1}, .action = {.status = 503}});
  const auto failed = client().upload(Source::file(path("photo"))).get();
  const UploadPlace place = *failed.error().place;
  const Reader reader = [](std::span<std::byte>) { return std::optional<std::size_t>(0); };
  const auto touched = path("photo");
  std::filesystem::last_write_time(touched, std::filesystem::last_write_time(touched) + 1s);
  const std::vector<std::pair<Source, UploadPlace>> cases = {
      {Source::file(touched), place},
      {Source::bytes(std::vector<std::byte>(kSize - 1)), place},
      {Source::reader(reader), place},
      {Source::file(touched), UploadPlace("{}")},
      {Source::file(touched), UploadPlace("place")},
  };
  server_->clearStats();
  for (const auto& [source, given] : cases) {
    const auto refused = client().upload(source, {.name = "photo", .resume = given}).get();
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().kind, Kind::kInvalidArgument) << refused.error().message;
    EXPECT_THAT(refused.error().message, HasSubstr("UploadOptions::resume"));
    EXPECT_THAT(refused.error().message, HasSubstr("photo"));
  }
  EXPECT_EQ(server_->serviceStats().requests, 0U);
}

/// A service that holds one request back until the test lets it go, and counts what it gets.
class HeldService {
 public:
  explicit HeldService(std::string held) : held_(std::move(held)) {}
  HeldService(const HeldService&) = delete;
  HeldService& operator=(const HeldService&) = delete;
  ~HeldService() { release(); }

  [[nodiscard]] std::string url() const { return server_.url("/services/data/v1/storage"); }
  void awaitHeld() { arrived_.get_future().get(); }
  void release() {
    if (!std::exchange(isReleased_, true)) release_.set_value();
  }
  /// What came, in order: "create", "chunk1" and so on, "commit", "delete".
  [[nodiscard]] std::vector<std::string> seen() const { return seen_.calls(); }
  [[nodiscard]] std::size_t count(const std::string& what) const {
    const auto all = seen();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), what));
  }

 private:
  static std::string nameOf(const test::WireRequest& request) {
    if (request.head.starts_with("POST")) return "create";
    if (request.head.starts_with("DELETE")) return "delete";
    const auto chunk = request.target().find("chunk_sequence=");
    if (chunk == std::string::npos) return "commit";
    return "chunk" + request.target().substr(chunk + std::string("chunk_sequence=").size());
  }

  test::WireReply answer(const test::WireRequest& request) {
    const std::string name = nameOf(request);
    seen_.add(name);
    if (name == held_ && !wasHeld_.exchange(true)) {
      arrived_.set_value();
      released_.wait();
    }
    if (name != "create") return test::reply(200, R"({"opstatus":0,"files_deleted":1})");
    return test::reply(200, R"({"opstatus":0,"file_id":"7","upload_template":"{\"domain\":)"
                            R"(\"#middlewaredomain\",\"relativepath\":\"/b/7\",\"method\":\"put\",)"
                            R"(\"uploadMode\":\"binary\",\"chunkupload\":true}"})");
  }

  const std::string held_;
  std::promise<void> arrived_, release_;
  const std::shared_future<void> released_{release_.get_future()};
  std::atomic<bool> wasHeld_{false};
  bool isReleased_ = false;
  test::CallLog<std::string> seen_;
  test::ScriptedServer server_{[this](const auto& request) { return answer(request); }};
};

FileClient clientOf(const HeldService& service) {
  return FileClient::create({.url = service.url(), .chunkSize = 64_KiB, .retry = {.attempts = 1}})
      .value();
}

const Source& fourChunks() {
  static const Source source = Source::text(test::sampleBytes(kSize));
  return source;
}

TEST(FileUploadStopTest, CancelLeavesNothingBehindInAnyPhase) {
  for (const std::string held : {"create", "chunk1", "chunk3", "commit"}) {
    for (const bool isPausedFirst : {false, true}) {
      SCOPED_TRACE(held + (isPausedFirst ? " after a pause" : ""));
      HeldService service(held);
      auto upload = clientOf(service).upload(fourChunks(), {.name = "a"});
      service.awaitHeld();
      if (isPausedFirst) upload.pause();
      upload.cancel();
      if (held == "create") {
        // The record has no name yet, so the outcome waits for it.
        EXPECT_NE(upload.state(), State::kDone);
        service.release();
      }
      const auto outcome = upload.get();
      ASSERT_FALSE(outcome);
      EXPECT_EQ(outcome.error().kind, Kind::kCancelled) << outcome.error().message;
      EXPECT_THAT(outcome.error().message, HasSubstr("\"a\""));
      EXPECT_EQ(outcome.error().begun, std::nullopt);
      EXPECT_EQ(service.seen().back(), "delete");
      EXPECT_EQ(service.seen()[service.seen().size() - 2], held) << "nothing more was sent";
    }
  }
}

TEST(FileUploadStopTest, CancelOfAPausedOneAsksForCredentialsElsewhere) {
  HeldService service("chunk1");
  test::CallLog<std::thread::id> askedOn;
  Options options{.url = service.url()};
  options.credentials = [&]() -> Outcome<Credentials> {
    askedOn.add(std::this_thread::get_id());
    return Credentials{.expires = std::chrono::system_clock::time_point()};
  };
  auto upload = FileClient::create(options)->upload(fourChunks(), {.name = "a"});
  service.awaitHeld();
  upload.pause();
  ASSERT_TRUE(test::eventually([&] { return upload.state() == State::kPaused; }));
  upload.cancel();
  EXPECT_EQ(upload.get().error().begun, std::nullopt);
  EXPECT_EQ(service.count("delete"), 1U);
  EXPECT_EQ(askedOn.calls().size(), 2U);
  EXPECT_THAT(askedOn.calls(), testing::Not(testing::Contains(std::this_thread::get_id())));
}

TEST(FileUploadStopTest, CancelCleansUpWithoutAProviderThatKeepsSilent) {
  for (const bool isPausedFirst : {false, true}) {
    HeldService service("chunk1");
    test::AnswersOnce once;
    const auto files = FileClient::create({.url = service.url(), .credentials = once.provider()});
    auto upload = files->upload(fourChunks(), {.name = "a"});
    service.awaitHeld();
    if (isPausedFirst) upload.pause();
    upload.cancel();
    EXPECT_EQ(upload.get().error().begun, std::nullopt);
    EXPECT_EQ(service.count("delete"), 1U);
  }
}

TEST(FileUploadStopTest, CancelFromTheFirstPlaceRemovesTheRecord) {
  for (int run = 0; run < 10; ++run) {
    HeldService service("none");
    std::promise<Transfer<FileRecord>*> handle;
    const auto onPlace = [&, known = handle.get_future().share()](
                             const FileId&, const UploadPlace&) { known.get()->cancel(); };
    auto upload = clientOf(service).upload(fourChunks(), {.name = "a", .onPlace = onPlace});
    handle.set_value(&upload);
    const auto outcome = upload.get();
    // Where the end was on its way already, the file stays.
    EXPECT_EQ(service.count("delete"), outcome ? 0U : 1U);
    EXPECT_EQ(service.count("commit") + service.count("delete") > 0, true);
  }
}

TEST(FileUploadStopTest, PauseKeepsThePlaceInEveryPhaseAndMakesNothingTwice) {
  const std::map<std::string, std::vector<std::string>> kSeen = {
      {"create", {"create", "chunk1", "chunk2", "chunk3", "chunk4", "commit"}},
      {"chunk1", {"create", "chunk1", "chunk1", "chunk2", "chunk3", "chunk4", "commit"}},
      {"chunk4", {"create", "chunk1", "chunk2", "chunk3", "chunk4", "chunk4", "commit"}},
      {"commit", {"create", "chunk1", "chunk2", "chunk3", "chunk4", "commit"}},
  };
  for (const auto& [held, seen] : kSeen) {
    SCOPED_TRACE(held);
    HeldService service(held);
    auto upload = clientOf(service).upload(fourChunks(), {.name = "a"});
    service.awaitHeld();
    upload.pause();
    if (held == "create" || held == "commit") service.release();
    const State reached = held == "commit" ? State::kDone : State::kPaused;
    EXPECT_TRUE(test::eventually([&] { return upload.state() == reached; }));
    service.release();
    upload.resume();
    const auto outcome = upload.get();
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(outcome->id, FileId("7"));
    EXPECT_EQ(service.seen(), seen);
    EXPECT_EQ(upload.progress().done, kSize);
  }
}

TEST(FileUploadStopTest, EndOfTheHandleWaitsForTheReader) {
  HeldService service("none");
  std::promise<void> entered, leave, hasOutcome;
  std::atomic<int> inside{0}, calls{0};
  const Reader reader = [&](std::span<std::byte>) {
    ++inside;
    if (calls++ == 0) {
      entered.set_value();
      leave.get_future().wait();
    }
    --inside;
    return std::optional<std::size_t>(1);
  };
  std::optional<Transfer<FileRecord>> upload(
      clientOf(service).upload(Source::reader(reader), {.name = "a"}));
  test::notify(*upload, hasOutcome);
  entered.get_future().get();
  auto ended = std::async(std::launch::async, [&] { upload.reset(); });
  hasOutcome.get_future().get();
  EXPECT_EQ(ended.wait_for(0s), std::future_status::timeout);
  leave.set_value();
  ended.get();
  EXPECT_EQ(inside, 0);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(service.seen().empty());
}

TEST_F(FileUploadTest, FirstProgramGoesOnAfterAFailureAndTellsWhyItGaveUp) {
  writeFile(path("photo"), sandbox::sampleBytes(3'000'000));
  const auto run = [&](const std::string& file) {
    return test::ChildProcess({.program = VARO_FIRST_PROGRAM,
                               .arguments = {server_->url(), path(file)},
                               .environment = {},
                               .directory = directory_});
  };
  server_->addFault({.match = {.path = "/bytes/", .skip = 1, .count = 1},
                     .action = {.status = 503, .headers = {{"Retry-After", "0"}}}});
  auto program = run("photo");
  EXPECT_EQ(program.wait(), 0) << program.output();
  EXPECT_THAT(chunksSent(), ElementsAre("1", "2", "2", "3"));
  EXPECT_THAT(program.output(), HasSubstr("3000000 of 3000000 bytes\nUploaded as "));
  expectTheFile(sandbox::sampleBytes(3'000'000));
  auto hopeless = run("none");
  EXPECT_EQ(hopeless.wait(), 1);
  EXPECT_THAT(hopeless.output(), HasSubstr("none"));
}

}  // namespace
}  // namespace varo
