// Downloads of the typed client: what is kept over a pause, parts, and functions that take bytes.

#include "tests/support/Await.h"
#include "tests/support/FileClientFixture.h"
#include "tests/support/Notify.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <mutex>
#include <stdexcept>

namespace varo {
namespace {

using namespace std::chrono_literals;
using sandbox::FaultAction;
using test::contentOf;
using testing::HasSubstr;

constexpr std::size_t kSize = 3'000'000;
constexpr std::size_t kFirst = 1'500'000;

/// What a sink got.
class Collected {
 public:
  Sink sink() {
    return [this](std::span<const std::byte> bytes) {
      const std::lock_guard lock(mutex_);
      text_ += test::textOf(bytes);
    };
  }
  std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 private:
  mutable std::mutex mutex_;
  std::string text_;
};

class FileDownloadTest : public test::FileClientFixture {
 protected:
  /// The first request for bytes sends `kFirst` of them and then nothing more.
  void stallOnce(FaultAction action = {}) {
    action.stallAfter = kFirst;
    action.stallFor = -1ms;
    server_->addFault({.match = {.path = "/bytes/", .count = 1}, .action = action});
  }
  /// Waits until those bytes have come, then pauses.
  void pauseAtFirst(Transfer<std::filesystem::path>& download) {
    ASSERT_TRUE(test::eventually([&] { return download.progress().done == kFirst; }));
    EXPECT_EQ(download.progress().total, kSize);
    download.pause();
    ASSERT_TRUE(test::eventually([&] { return download.state() == State::kPaused; }));
  }
  std::string lastHeader(std::string_view name) {
    const auto requests = server_->requests();
    const std::string* value = requests.back().header(name);
    return value != nullptr ? *value : "";
  }

  const std::string content_ = sandbox::sampleBytes(kSize);
};

TEST_F(FileDownloadTest, GoesOnBehindTheLastByteAndFeedsSinksAsBytesCome) {
  const FileId id(storedFile(content_));
  for (const bool toPath : {true, false}) {
    SCOPED_TRACE(toPath);
    Collected collected;
    stallOnce();
    auto download =
        toPath ? client().download(id, path("a")) : client().download(id, collected.sink());
    const std::string first = content_.substr(0, kFirst);
    EXPECT_TRUE(toPath || test::eventually([&] { return collected.text() == first; }));
    pauseAtFirst(download);
    EXPECT_FALSE(std::filesystem::exists(path("a")));
    download.resume();
    const auto outcome = download.get();
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(lastHeader("Range"), "bytes=1500000-");
    EXPECT_NE(lastHeader("If-Range"), "");
    EXPECT_EQ(toPath ? contentOf(path("a")) : collected.text(), content_);
    EXPECT_EQ(download.progress().done, kSize);
    std::filesystem::remove(path("a"));
  }
}

TEST_F(FileDownloadTest, BeginsAnewWhereTheFileHasChangedUnlessSomeoneHasItsFirstBytes) {
  const FileId id(storedFile(content_));
  // Another tag now than later, as of a file that changes in between; or none that says anything.
  for (const char* tag : {"\"former\"", "W/\"weak\""}) {
    for (const bool toPath : {true, false}) {
      SCOPED_TRACE(std::string(tag) + (toPath ? " path" : " sink"));
      Collected collected;
      stallOnce({.headers = {{"ETag", tag}}});
      auto download = toPath ? client().download(id, path("a"), {.ifExists = IfExists::kReplace})
                             : client().download(id, collected.sink());
      ASSERT_TRUE(toPath || test::eventually([&] { return collected.text().size() == kFirst; }));
      pauseAtFirst(download);
      download.resume();
      const auto outcome = download.get();
      EXPECT_EQ(outcome.has_value(), toPath);
      if (toPath) {
        EXPECT_EQ(contentOf(path("a")), content_);
      } else {
        EXPECT_EQ(outcome.error().kind, Kind::kIntegrity) << outcome.error().message;
        EXPECT_THAT(outcome.error().message, HasSubstr(id.text()));
        EXPECT_EQ(collected.text(), content_.substr(0, kFirst));
      }
    }
  }
}

TEST_F(FileDownloadTest, BringsTheBytesOfARangeAndNoOthers) {
  const FileId id(storedFile(content_));
  struct Case {
    FileRange range;
    std::optional<std::string> bytes;  // none for a failure
    Kind kind = Kind::kOther;
    FaultAction fault = {};
  };
  const std::vector<Case> cases = {
      {{0, 10_B}, content_.substr(0, 10)},
      {{2'000'000}, content_.substr(2'000'000)},
      {{kSize - 5, 100_B}, content_.substr(kSize - 5)},
      {{7, Bytes(~std::uint64_t{0})}, content_.substr(7)},
      {{kSize, 1_B}, {}, Kind::kInvalidArgument},
      {{5, 0_B}, {}, Kind::kInvalidArgument},
      {{5, 10_B}, {}, Kind::kIntegrity, {.shiftRange = 1}},
      {{5, 10_B}, {}, Kind::kIntegrity, {.shortenRange = 9}},
      {{5, 10_B}, {}, Kind::kIntegrity, {.ignoreRange = true}},
      {{5, 10_B}, {}, Kind::kIntegrity, {.headers = {{"Content-Range", "items 1-2"}}}},
      {{5}, {}, Kind::kIntegrity, {.total = "*"}},
  };
  for (const Case& wanted : cases) {
    SCOPED_TRACE(std::to_string(&wanted - cases.data()));
    server_->clearFaults();
    server_->addFault({.match = {.path = "/bytes/"}, .action = wanted.fault});
    Collected collected;
    const auto toSink = client().download(id, collected.sink(), {.range = wanted.range}).get();
    const auto toPath =
        client()
            .download(id, path("a"), {.ifExists = IfExists::kReplace, .range = wanted.range})
            .get();
    ASSERT_EQ(toSink.has_value(), wanted.bytes.has_value());
    ASSERT_EQ(toPath.has_value(), wanted.bytes.has_value());
    if (wanted.bytes) {
      EXPECT_EQ(collected.text(), wanted.bytes);
      EXPECT_EQ(contentOf(path("a")), wanted.bytes);
    } else {
      EXPECT_EQ(nameOf(toSink.error().kind), nameOf(wanted.kind)) << toSink.error().message;
      EXPECT_EQ(nameOf(toPath.error().kind), nameOf(wanted.kind)) << toPath.error().message;
      EXPECT_EQ(collected.text(), "");
    }
  }
}

TEST_F(FileDownloadTest, PausedRangeAsksForItsRest) {
  const FileId id(storedFile(content_));
  Collected collected;
  server_->addFault({.match = {.path = "/bytes/", .count = 1},
                     .action = {.stallAfter = 1'100'000, .stallFor = -1ms}});
  auto download =
      client().download(id, collected.sink(), {.range = FileRange{100, Bytes(2'000'000)}});
  ASSERT_TRUE(test::eventually([&] { return download.progress().done == 1'100'000; }));
  download.pause();
  download.resume();
  const auto outcome = download.get();
  ASSERT_TRUE(outcome) << outcome.error().message;
  EXPECT_EQ(lastHeader("Range"), "bytes=1100100-2000099");
  EXPECT_EQ(collected.text(), content_.substr(100, 2'000'000));
}

TEST_F(FileDownloadTest, SinkThatThrowsEndsTheTransferAndIsNotCalledAgain) {
  const FileId id(storedFile(content_));
  stallOnce();
  int calls = 0;
  const Sink sink = [&](std::span<const std::byte>) {
    ++calls;
    throw std::runtime_error("no room");
  };
  const auto outcome = client().download(id, sink).get();
  ASSERT_FALSE(outcome);
  EXPECT_EQ(outcome.error().kind, Kind::kLocalFile);
  EXPECT_THAT(outcome.error().message, HasSubstr("no room"));
  EXPECT_THAT(outcome.error().message, HasSubstr(id.text()));
  EXPECT_EQ(calls, 1);
}

TEST_F(FileDownloadTest, EndsOfHandleAndTransferWaitForTheSink) {
  const FileId id(storedFile(content_));
  for (const bool isDestroyed : {true, false}) {
    SCOPED_TRACE(isDestroyed);
    stallOnce();
    std::promise<void> entered, leave, hasOutcome;
    std::atomic<int> inside{0}, calls{0};
    const Sink sink = [&](std::span<const std::byte>) {
      ++inside;
      if (calls++ == 0) {
        entered.set_value();
        leave.get_future().wait();
      }
      --inside;
    };
    std::optional<Transfer<std::filesystem::path>> download(client().download(id, sink));
    if (isDestroyed) test::notify(*download, hasOutcome);
    entered.get_future().get();
    if (!isDestroyed) download->cancel();
    auto ended = std::async(std::launch::async, [&] {
      if (isDestroyed) return download.reset();
      EXPECT_EQ(download->get().error().kind, Kind::kCancelled);
    });
    // The handle that goes has settled the outcome before it waits.
    if (isDestroyed) hasOutcome.get_future().get();
    EXPECT_EQ(ended.wait_for(0s), std::future_status::timeout);
    leave.set_value();
    ended.get();
    EXPECT_EQ(inside, 0);
    EXPECT_EQ(calls, 1) << "there is more that it could have";
    server_->clearFaults();
  }
}

}  // namespace
}  // namespace varo
