#include "tests/support/Await.h"
#include "tests/support/BlobStoreFixture.h"
#include "tests/support/Files.h"
#include "varo/client.h"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using sandbox::FaultAction;
using sandbox::FaultMatch;
using test::contentOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint64_t kFileSize = 300'000;

/// Waits that no test notices.
constexpr Retry kShort{.attempts = 5, .firstWait = 1ms, .longestWait = 2ms};

/// A `Transfer` of whatever type.
struct Handle {
  std::function<State()> state;
  std::function<Progress()> progress;
  std::function<void()> cancel, pause, resume;
  std::function<Outcome<void>()> get;
};

template <typename T>
Handle handleOf(Transfer<T> transfer) {
  const auto held = std::make_shared<Transfer<T>>(std::move(transfer));
  return {[held] { return held->state(); },
          [held] { return held->progress(); },
          [held] { held->cancel(); },
          [held] { held->pause(); },
          [held] { held->resume(); },
          [held]() -> Outcome<void> {
            const auto outcome = held->get();
            if (!outcome) return outcome.error();
            return {};
          }};
}

/// One kind of transfer, on things of its own each time.
struct Work {
  std::string name;
  /// Its requests for bytes.
  FaultMatch match;
  std::function<Handle(const Retry& retry)> begin;
  /// What has come of it; to be called once after each `begin`. Asks with other requests.
  std::function<std::string()> result;
  std::string expected;
};

class RetryTest : public test::BlobStoreFixture {
 protected:
  [[nodiscard]] FileClient files(const Retry& retry = kShort) const {
    return FileClient::create({.url = server_->url(), .chunkSize = 64_KiB, .retry = retry}).value();
  }
  [[nodiscard]] ObjectStore objects(const Retry& retry = kShort) const {
    return ObjectStore::create(
               S3{.endpoint = server_->storeUrl(), .region = "us-east-1", .bucket = "bucket"},
               {.credentials =
                    [] {
                      return Credentials{.accessKey = "sandbox", .secretKey = "sandbox-secret-key"};
                    },
                .retry = retry})
        .value();
  }
  [[nodiscard]] BlobStore blobs(const std::string& name, const Retry& retry) const {
    BlobService wanted = service(name);
    wanted.options.retry = retry;
    return BlobStore::open(database(name), path(name), wanted).value();
  }
  [[nodiscard]] Transfer<FileRecord> upload(const Retry& retry = kShort) const {
    return files(retry).upload(Source::text(content_), {.name = "uploaded"});
  }

  /// Of the only file that there is, which is removed.
  std::string takeUploaded() const {
    auto found = files().list().get().value();
    std::erase_if(found, [](const FileRecord& record) { return record.name != "uploaded"; });
    if (found.size() != 1) return std::to_string(found.size()) + " files";
    std::string text;
    const auto got = files().download(found.front().id, into(text)).get();
    return files().remove(found.front().id).get() && got ? text : "no file";
  }
  static Sink into(std::string& text) {
    return [&text](std::span<const std::byte> bytes) {
      text.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    };
  }

  Work fileUpload() {
    return {"file upload",
            {.method = "PUT", .path = "/bytes/"},
            [this](const Retry& retry) { return handleOf(upload(retry)); },
            [this] { return takeUploaded(); },
            content_};
  }
  Work fileDownload() {
    return {"file download",
            {.method = "GET", .path = "/bytes/"},
            [this, id = FileId(storedFile(content_))](const Retry& retry) {
              return handleOf(
                  files(retry).download(id, path("copy"), {.ifExists = IfExists::kReplace}));
            },
            [this] { return contentOf(path("copy")); },
            content_};
  }
  Work list() {
    return {"list",
            {.method = "GET", .path = "/objects/File"},
            [this](const Retry& retry) { return handleOf(files(retry).list()); },
            [] { return std::string(); },
            ""};
  }
  Work blobFetch() {
    return {"blob fetch",
            {.path = "/binary"},
            [this](const Retry& retry) {
              makeDatabase(database_ = "db" + std::to_string(++databases_));
              return handleOf(blobs(database_, retry).fetch(blob(1)));
            },
            [this] {
              const auto file = blobs(database_, kShort).fetch(blob(1)).get();
              return file && contentOf(file->string()) == photo(database_, 1) ? "whole" : "not";
            },
            "whole"};
  }
  Work objectPut() {
    return {"object put",
            {.method = "PUT", .listener = "store"},
            [this](const Retry& retry) {
              return handleOf(objects(retry).put(ObjectKey("put"), Source::text(content_)));
            },
            [this] {
              std::string text;
              const auto got = objects().get(ObjectKey("put"), into(text)).get();
              return got ? text : got.error().message;
            },
            content_};
  }
  Work objectGet() {
    EXPECT_TRUE(objects().put(ObjectKey("get"), Source::text(content_)).get());
    return {
        "object get",
        {.method = "GET", .listener = "store"},
        [this](const Retry& retry) {
          return handleOf(objects(retry).get(ObjectKey("get"), path("object"),
                                             {.ifExists = IfExists::kReplace, .partSize = 64_KiB}));
        },
        [this] { return contentOf(path("object")); },
        content_};
  }
  std::vector<Work> works() {
    return {fileUpload(), fileDownload(), list(), blobFetch(), objectPut(), objectGet()};
  }

  void expectDone(const Work& work, const Handle& handle) {
    const auto outcome = handle.get();
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(handle.progress().attempt, 1);
    EXPECT_TRUE(work.result() == work.expected);
  }
  [[nodiscard]] std::size_t withStatus(int status) const {
    std::size_t count = 0;
    for (const auto& request : server_->requests()) count += request.status == status ? 1 : 0;
    return count;
  }
  [[nodiscard]] std::size_t creations() const {
    std::size_t count = 0;
    for (const auto& request : server_->requests()) count += request.method == "POST" ? 1 : 0;
    return count;
  }
  /// Of the requests for bytes of files; empty for all of it.
  [[nodiscard]] std::vector<std::string> rangesOfFiles() const {
    std::vector<std::string> all;
    for (const auto& request : server_->requests()) {
      if (request.method != "GET" || request.path.find("/bytes/") == std::string::npos) continue;
      const std::string* range = request.header("Range");
      all.push_back(range != nullptr ? *range : "");
    }
    return all;
  }

  const std::string content_ = sandbox::sampleBytes(kFileSize);
  std::string database_;
  int databases_ = 0;
};

TEST_F(RetryTest, DownloadThatIsCutGoesOnAtTheNextByteAsLongAsBytesCome) {
  const FileId id(storedFile(content_));
  // Two in all: each time that bytes came, the count begins anew.
  const Retry two{.attempts = 2, .firstWait = 1ms, .longestWait = 1ms};
  for (const bool isSink : {false, true}) {
    SCOPED_TRACE(isSink);
    server_->clearStats();
    server_->addFault({.match = {.path = "/bytes/", .count = 2}, .action = {.cutAfter = 100'000}});
    std::string text;
    const Destination to = isSink ? Destination(into(text)) : Destination(path("copy"));
    const auto outcome = files(two).download(id, to).get();
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_TRUE((isSink ? text : contentOf(path("copy"))) == content_);
    EXPECT_THAT(rangesOfFiles(), ElementsAre("", "bytes=100000-", "bytes=200000-"));
    server_->clearFaults();
  }
}

TEST_F(RetryTest, DownloadThatGetsNowhereEndsAndSaysHowOftenItWasTried) {
  const FileId id(storedFile(content_));
  const Retry three{.attempts = 3, .firstWait = 1ms, .longestWait = 1ms};
  server_->addFault({.match = {.path = "/bytes/"}, .action = {.cutAfter = 0}});
  const auto outcome = files(three).download(id, path("copy")).get();
  ASSERT_FALSE(outcome);
  EXPECT_EQ(outcome.error().kind, Kind::kNoConnection);
  EXPECT_THAT(outcome.error().message, HasSubstr("(after 3 attempts)"));
  EXPECT_THAT(rangesOfFiles(), ElementsAre("", "", ""));
}

TEST_F(RetryTest, PartThatIsCutIsAskedForAgainAndNoOther) {
  makeDatabase("a");
  server_->addFault(
      {.match = {.path = "/binary", .skip = 1, .count = 1}, .action = {.cutAfter = 100}});
  const auto file = blobs("a", kShort).fetch(blob(1)).get();
  ASSERT_TRUE(file) << file.error().message;
  EXPECT_EQ(contentOf(file->string()), photo("a", 1));
  EXPECT_THAT(ranges(),
              ElementsAre("bytes=0-4095", "bytes=4096-8191", "bytes=4096-8191", "bytes=8192-9999"));

  const Work get = objectGet();
  server_->clearStats();
  server_->addFault({.match = {.method = "GET", .skip = 1, .count = 1, .ranged = true},
                     .action = {.cutAfter = 100}});
  const Handle handle = get.begin(kShort);
  ASSERT_TRUE(handle.get());
  EXPECT_EQ(server_->requests().size(), 6U) << "five parts, one of them twice";
  EXPECT_TRUE(get.result() == content_);
}

TEST_F(RetryTest, RecordIsMadeOnceWhateverHappensToItsCreation) {
  struct Case {
    FaultAction action;
    std::optional<Kind> failure;
    std::size_t requests;
  };
  const std::vector<Case> cases = {
      {{.status = 503}, {}, 3},  // turned away
      {{.status = 500}, Kind::kServer, 1},
      {{.drop = true}, Kind::kNoConnection, 1},  // made, and its answer lost
  };
  for (const Case& wanted : cases) {
    SCOPED_TRACE(wanted.requests);
    server_->clearStats();
    server_->addFault({.match = {.method = "POST", .path = "/objects/File", .count = 2},
                       .action = wanted.action});
    const auto outcome = upload().get();
    EXPECT_EQ(creations(), wanted.requests);
    ASSERT_EQ(!outcome, wanted.failure.has_value());
    if (wanted.failure) {
      EXPECT_EQ(outcome.error().kind, *wanted.failure);
      EXPECT_THAT(outcome.error().message, HasSubstr("\"uploaded\""));
      EXPECT_EQ(outcome.error().isWorthRetrying(), !wanted.action.drop);
    }
    server_->clearFaults();
    EXPECT_EQ(files().list().get()->size(), wanted.failure ? 0U : 1U);
    if (!wanted.failure) {
      EXPECT_TRUE(takeUploaded() == content_);
    }
  }
}

TEST_F(RetryTest, CommitIsRepeatedOnlyWhereItWasTurnedAway) {
  const FaultMatch commit{.method = "PUT", .path = "/objects/File", .count = 2};
  server_->addFault({.match = commit, .action = {.status = 503}});
  EXPECT_TRUE(upload().get());
  EXPECT_EQ(withStatus(503), 2U);
  server_->clearFaults();
  server_->addFault({.match = commit, .action = {.status = 500}});
  EXPECT_EQ(upload().get().error().kind, Kind::kServer);
  EXPECT_EQ(withStatus(500), 1U);
  server_->clearFaults();
  server_->addFault({.match = commit, .action = {.drop = true}});
  const auto unknown = upload().get();
  EXPECT_EQ(unknown.error().kind, Kind::kNoConnection);
  EXPECT_FALSE(unknown.error().isWorthRetrying()) << "it may be committed";
}

TEST_F(RetryTest, ServerThatAsksForMoreIsLeftAloneAndOneThatStaysBusyIsGivenUp) {
  const Retry patient{.attempts = 3, .longestRetryAfter = 1min};
  server_->addFault({.action = {.status = 429, .headers = {{"Retry-After", "3600"}}}});
  const auto asked = files(patient).list().get();
  EXPECT_EQ(asked.error().retryAfter, 1h);
  EXPECT_THAT(asked.error().message, Not(HasSubstr("attempts")));
  EXPECT_EQ(server_->serviceStats().requests, 1U);

  server_->clearFaults();
  server_->addFault(
      {.action = {.status = 503, .headers = {{"Retry-After", "Sun, 06 Nov 1994 08:49:37 GMT"}}}});
  const auto busy = files(patient).list().get();
  EXPECT_EQ(busy.error().kind, Kind::kServer);
  EXPECT_EQ(busy.error().retryAfter, 0ms) << "it is over";
  EXPECT_THAT(busy.error().message, HasSubstr("(after 3 attempts)"));
  EXPECT_EQ(server_->serviceStats().requests, 4U);

  server_->clearFaults();
  server_->addFault({.action = {.status = 429, .headers = {{"Retry-After", "1"}}}});
  EXPECT_FALSE(files({.budget = 900ms}).list().get());
  EXPECT_EQ(server_->serviceStats().requests, 5U);
}

TEST_F(RetryTest, CancelAndPauseEndAWaitAtOnce) {
  const Retry patient{
      .attempts = 3, .firstWait = 1h, .longestWait = 1h, .longestRetryAfter = 24h, .budget = 48h};
  const FaultAction busy{.status = 503, .headers = {{"Retry-After", "86400"}}};
  std::vector<Work> all = works();
  Work creation = fileUpload();
  creation.name = "creation";
  creation.match = {.method = "POST"};
  Work commit = fileUpload();
  commit.name = "commit";
  commit.match = {.method = "PUT", .path = "/objects/File"};
  all.push_back(creation);
  all.push_back(commit);
  for (const Work& work : all) {
    SCOPED_TRACE(work.name);
    server_->addFault({.match = work.match, .action = busy});
    const auto waiting = [&] {
      Handle handle = work.begin(patient);
      EXPECT_TRUE(test::eventually([&] { return handle.state() == State::kBackingOff; }));
      EXPECT_EQ(handle.progress().attempt, 2);
      return handle;
    };
    const Handle given = waiting();
    given.cancel();
    const auto outcome = given.get();
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error().kind, Kind::kCancelled) << outcome.error().message;

    const Handle paused = waiting();
    paused.pause();
    EXPECT_TRUE(test::eventually([&] { return paused.state() == State::kPaused; }));
    server_->clearFaults();
    paused.resume();
    expectDone(work, paused);
  }
}

TEST_F(RetryTest, CancelAndPauseEndTheWaitOfADownloadThatWasCut) {
  const FileId id(storedFile(content_));
  // Drawn at random, so it may be short: then the next one is waited for.
  const Retry patient{.attempts = 100, .firstWait = 24h, .longestWait = 24h, .budget = 2400h};
  for (const bool isPause : {false, true}) {
    server_->addFault({.match = {.path = "/bytes/"}, .action = {.cutAfter = 0}});
    auto download = files(patient).download(id, path("copy"));
    ASSERT_TRUE(test::eventually([&] { return download.state() == State::kBackingOff; }));
    EXPECT_GE(download.progress().attempt, 2);
    if (!isPause) {
      download.cancel();
      EXPECT_EQ(download.get().error().kind, Kind::kCancelled);
      continue;
    }
    download.pause();
    ASSERT_TRUE(test::eventually([&] { return download.state() == State::kPaused; }));
    server_->clearFaults();
    download.resume();
    EXPECT_TRUE(download.get());
    EXPECT_TRUE(contentOf(path("copy")) == content_);
  }
}

}  // namespace
}  // namespace varo
