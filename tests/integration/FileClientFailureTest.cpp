// Every kind of failure, made to happen, and what it names.

#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/FileClientFixture.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TestCertificate.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <future>
#include <unistd.h>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using testing::HasSubstr;

using FileClientFailureTest = test::FileClientFixture;

TEST_F(FileClientFailureTest, TellsWhatKindOfFailureItWas) {
  struct Case {
    std::string name;
    sandbox::FaultAction action;
    Kind kind;
    bool isWorthRetrying;
  };
  const std::vector<Case> cases = {
      {"401", {.status = 401}, Kind::kUnauthorized, false},
      {"404", {.status = 404}, Kind::kNotFound, false},
      {"409", {.status = 409}, Kind::kConflict, false},
      {"429", {.status = 429, .headers = {{"Retry-After", "7"}}}, Kind::kThrottled, true},
      {"503", {.status = 503}, Kind::kServer, true},
      {"400", {.status = 400}, Kind::kServer, false},
      {"opstatus", {.opstatus = 17}, Kind::kServer, false},
      {"page", {.body = "<html>", .contentType = "text/html"}, Kind::kNotOurService, false},
      {"cut", {.cutAfter = 5}, Kind::kNoConnection, true},
      {"drop", {.drop = true}, Kind::kNoConnection, true},
      {"redirect", {.location = "ftp://elsewhere"}, Kind::kNotOurService, false},
  };
  FileClient files = client();
  for (const Case& wanted : cases) {
    server_->clearFaults();
    server_->addFault({.action = wanted.action});
    const auto outcome = files.list().get();
    ASSERT_FALSE(outcome) << wanted.name;
    EXPECT_EQ(nameOf(outcome.error().kind), nameOf(wanted.kind)) << outcome.error().message;
    EXPECT_EQ(outcome.error().isWorthRetrying(), wanted.isWorthRetrying) << wanted.name;
    EXPECT_THAT(outcome.error().message, HasSubstr(server_->url())) << wanted.name;
    EXPECT_EQ(outcome.error().retryAfter.has_value(), wanted.name == "429") << wanted.name;
    EXPECT_EQ(outcome.error().serviceStatus == 17, wanted.name == "opstatus") << wanted.name;
    EXPECT_EQ(outcome.error().responseExcerpt == "<html>", wanted.name == "page") << wanted.name;
  }
  server_->clearFaults();
  server_->stop();
  EXPECT_EQ(files.list().get().error().kind, Kind::kNoConnection);
}

FileClient clientOf(Options options) {
  options.retry.attempts = 1;
  return FileClient::create(std::move(options)).value();
}

TEST_F(FileClientFailureTest, ConnectionsThatFailNameTheAddress) {
  test::makeTestCertificate(directory_);
  const auto list = [](const test::WireRequest&) {
    return test::reply(200, R"({"opstatus":0,"records":[]})");
  };
  test::ScriptedServer secure(list, directory_);
  test::ScriptedServer silent([](const test::WireRequest&) { return test::WireReply().hold(); });
  struct Case {
    Options options;
    Kind kind;
  };
  const std::vector<Case> cases = {
      {{.url = "http://127.0.0.1:1/a"}, Kind::kNoConnection},
      {{.url = "http://no.such.host.invalid/a"}, Kind::kNoConnection},
      {{.url = silent.url("/a"), .stallTimeout = 100ms}, Kind::kTimeout},
      {{.url = secure.url("/a")}, Kind::kTls},
      {{.url = "https" + silent.url("/a").substr(4), .connectTimeout = 200ms}, Kind::kTimeout},
  };
  for (const Case& wanted : cases) {
    const auto outcome = clientOf(wanted.options).list().get();
    ASSERT_FALSE(outcome) << wanted.options.url;
    EXPECT_EQ(nameOf(outcome.error().kind), nameOf(wanted.kind)) << outcome.error().message;
    EXPECT_THAT(outcome.error().message, HasSubstr(wanted.options.url));
  }
  const auto trusted =
      clientOf({.url = secure.url("/a"), .tls = {.caFile = directory_ + "/certificate.pem"}});
  EXPECT_TRUE(trusted.list().get());
}

TEST_F(FileClientFailureTest, LocalFilesAreNamed) {
  const FileId id(storedFile(sandbox::sampleBytes(3'000'000)));
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink(path("nowhere"), path("link"));
  FileClient files = client();
  for (const char* name : {"none", "folder"}) {
    const auto outcome = files.upload(Source::file(path(name))).get();
    EXPECT_EQ(outcome.error().kind, Kind::kLocalFile) << outcome.error().message;
    EXPECT_THAT(outcome.error().message, HasSubstr(name));
  }
  const test::FileSizeLimit limit(1'500'000);
  const auto tooLarge = files.download(id, path("copy")).get();
  EXPECT_EQ(tooLarge.error().kind, Kind::kLocalFile) << tooLarge.error().message;
  EXPECT_THAT(tooLarge.error().message, HasSubstr(id.text()));
  EXPECT_FALSE(std::filesystem::exists(path("copy")));
}

/// The same program on a disk of 1 MiB, where the system lets somebody have one.
TEST_F(FileClientFailureTest, FullDiskIsAKindOfItsOwn) {
  constexpr const char* kDisk = "VARO_TEST_SMALL_DISK";
  if (const char* disk = std::getenv(kDisk)) {
    const FileId id(storedFile(sandbox::sampleBytes(3'000'000)));
    const test::EnvironmentVariable temporary("TMPDIR", disk);
    const std::string copy = std::string(disk) + "/copy";
    const Sink sink = [](std::span<const std::byte>) {};
    for (const Destination& to : {Destination(copy), Destination(sink)}) {
      const auto outcome = client().download(id, to).get();
      ASSERT_FALSE(outcome);
      EXPECT_EQ(nameOf(outcome.error().kind), "diskFull") << outcome.error().message;
      EXPECT_THAT(outcome.error().message, HasSubstr(id.text()));
      EXPECT_FALSE(outcome.error().isWorthRetrying());
    }
    EXPECT_TRUE(std::filesystem::is_empty(disk));
    return;
  }
  std::filesystem::create_directory(path("disk"));
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  test::ChildProcess child(
      {.program = "sh",
       .arguments = {"-c",
                     "unshare -Urm true || exit 77; exec unshare -Urm sh -c '"
                     "mount -t tmpfs -o size=1m none \"$0\" || exit 77; exec \"$1\" "
                     "--gtest_filter=FileClientFailureTest.FullDiskIsAKindOfItsOwn' \"$0\" \"$1\"",
                     path("disk"), program},
       .environment = {{kDisk, path("disk")}},
       .directory = directory_});
  const int status = child.wait();
  if (status == 77) GTEST_SKIP() << "no file system can be mounted here: " << child.errors();
  EXPECT_EQ(status, 0) << child.output() << child.errors();
}

TEST_F(FileClientFailureTest, RefusalsOfTheApplicationAndTheServiceKeepTheirNames) {
  Options options{.url = server_->url()};
  options.credentials = []() -> Outcome<Credentials> {
    Failure failure;
    failure.message = "the vault is sealed";
    return failure;
  };
  const auto own = clientOf(options).list().get();
  EXPECT_EQ(own.error().kind, Kind::kOther);
  EXPECT_EQ(own.error().message, "the vault is sealed");

  // What the service's template says is no mistake of the caller.
  server_->addFault({.match = {.method = "POST", .path = "/objects/File"},
                     .action = {.body = R"({"opstatus":0,"file_id":"7","upload_template":)"
                                        R"("{\"domain\":\"#middlewaredomain\",)"
                                        R"(\"relativepath\":\"/b\",\"uploadMode\":\"binary\",)"
                                        R"(\"method\":\"pigeon\"}"})"}});
  const auto odd = client().upload(Source::text("x"), {.name = "photo.jpg"}).get();
  EXPECT_EQ(nameOf(odd.error().kind), "notOurService") << odd.error().message;
  EXPECT_EQ(odd.error().begun, FileId("7"));
}

TEST(FileClientShutDownTest, EverythingAfterTheShutdownSaysSo) {
  test::inOwnProcess([] {
    test::ScriptedServer silent([](const test::WireRequest&) { return test::WireReply().hold(); });
    FileClient files = clientOf({.url = silent.url("/a"), .parallel = 2});
    std::promise<void> isRead;
    const Reader endless = [&, reads = 0](std::span<std::byte>) mutable {
      if (++reads == 3) isRead.set_value();
      return std::optional<std::size_t>(1);
    };
    auto reading = files.upload(Source::reader(endless), {.name = "tape"});
    isRead.get_future().get();
    auto paused = files.list();
    test::require(eventually([&] { return paused.state() == State::kRunning; }), "it runs");
    paused.pause();
    test::require(eventually([&] { return paused.state() == State::kPaused; }), "it is paused");
    auto held = files.list();
    auto waiting = files.list();
    waiting.pause();
    test::require(shutDown(std::chrono::milliseconds::max()), "the threads have ended");
    test::require(held.get().error().kind == Kind::kShutDown, "what ran says so");
    test::require(paused.get().error().kind == Kind::kShutDown, "and what was paused");
    test::require(waiting.get().error().kind == Kind::kShutDown, "and what was paused before");
    test::require(reading.get().error().kind == Kind::kShutDown, "and what read on and on");
    // A directory is in the way of this one, which does not matter any more.
    const auto after = files.download(FileId("photo"), std::filesystem::path("/tmp")).get();
    test::require(after.error().kind == Kind::kShutDown, "what comes after says so");
    test::require(after.error().message.find("photo") != std::string::npos, "and names it");
    const auto none = FileClient::create({.url = silent.url("/a")});
    test::require(none.error().kind == Kind::kShutDown, "and so does a new client");
  });
}

}  // namespace
}  // namespace varo
