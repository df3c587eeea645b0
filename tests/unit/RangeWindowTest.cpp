// Downloads that have several ranges in flight: whatever the order in which they arrive, and
// whichever of them fails, it comes to what one range at a time comes to.

#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/DownloadTask/RangeWindow.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Network/HttpTransportError.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/SteppingClock.h"

#include <csignal>
#include <random>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

using enum TransferPolicy;

constexpr std::size_t kMost = 4;
/// In flight, early and waiting for the disk.
constexpr std::size_t kUnwritten = kMost + RangeWindow::kMaxWaitingChunks - 1;

class RangeWindowTest : public DownloadFixture {
 protected:
  RangeWindowTest() { object_ = RangedObject::ofSize(9500); }

  std::shared_ptr<DownloadTask> makeWindowed(Dictionary more = {}, std::size_t most = kMost,
                                             TransferPolicy policy = kSafe) {
    const auto settings = std::make_shared<OperationSettings>();
    settings->policy = policy;
    settings->parallelRanges = most;
    settings->limits.errorPage = 100;
    more.set(kOperationSettings, OperationSettings::value(settings));
    transport_->hold();
    asked_ = transport_->requestCount();
    return makeTask(more, clock_);
  }
  [[nodiscard]] std::size_t asked() const { return transport_->requestCount() - asked_; }
  static bool isAtRest(const std::shared_ptr<DownloadTask>& task) {
    return task->state() == TaskState::Ended || task->state() == TaskState::Errored;
  }
  /// Starts a download whose second range is missing, while as many behind it as may be are there.
  void startWithAGap(const std::shared_ptr<DownloadTask>& task) const {
    task->start();
    release(1);
    while (asked() < 1 + kUnwritten || transport_->heldCount() > 1) {
      ASSERT_TRUE(eventually([&] { return transport_->heldCount() > 1; }));
      transport_->release(transport_->heldCount() - 1);
    }
    ASSERT_TRUE(eventually([&] { return fileBytes().size() == 1000; }));
  }
  /// Starts a download of which `kMost` ranges are in flight, and those before them written.
  void startWithAll(const std::shared_ptr<DownloadTask>& task) const {
    task->start();
    for (const std::size_t held : {std::size_t{1}, kMost, kMost, kMost, kMost, kMost}) {
      awaitHeld(held);
      transport_->release();
    }
    awaitHeld(kMost);
    ASSERT_TRUE(eventually([&] { return fileBytes().size() == 6000; }));
  }

  /// Stands still, so that one more range is always worth it. Outlives all tasks.
  static inline const SteppingClock clock_{0};
  std::size_t asked_ = 0;  // before the task was made
};

TEST_F(RangeWindowTest, RangesThatArriveInAnyOrderAreWrittenInTheirs) {
  enum Order { kOldest, kNewest, kRandom };
  std::mt19937 random(7);
  for (const Order order : {kOldest, kNewest, kRandom, kRandom, kRandom}) {
    SCOPED_TRACE(order);
    std::filesystem::remove(path());
    const auto task = makeWindowed();
    task->start();
    awaitHeld(1);  // the one that tells the size
    while (!isAtRest(task)) {
      ASSERT_TRUE(eventually([&] { return transport_->heldCount() > 0 || isAtRest(task); }));
      const std::size_t held = transport_->heldCount();
      EXPECT_LE(held, kMost);
      transport_->release(order == kOldest   ? 0
                          : order == kNewest ? std::max<std::size_t>(held, 1) - 1
                                             : random() % std::max<std::size_t>(held, 1));
      ASSERT_TRUE(object_.bytes.starts_with(fileBytes()));
    }
    EXPECT_EQ(fileBytes(), object_.bytes);
    EXPECT_EQ(asked(), 10U) << "each range once";
    task->releaseFile();
  }
}

TEST_F(RangeWindowTest, SoManyMayBeEarlyUntilTheMissingOneComes) {
  const auto task = makeWindowed();
  startWithAGap(task);
  EXPECT_EQ(asked(), 1 + kUnwritten);
  transport_->releaseAll();
  ASSERT_TRUE(reaches(task, TaskState::Ended));
  EXPECT_EQ(fileBytes(), object_.bytes);
  EXPECT_EQ(asked(), 10U);
}

TEST_F(RangeWindowTest, PauseAndStopEndAllInFlightAndKeepWhatHasNoGap) {
  for (const bool hasGap : {false, true}) {
    for (const bool stops : {false, true}) {
      SCOPED_TRACE(fmt::format("{} {}", hasGap, stops));
      std::filesystem::remove(path());
      const auto task = makeWindowed();
      hasGap ? startWithAGap(task) : startWithAll(task);
      const std::size_t before = transport_->cancelled().size();
      stops ? task->stop() : task->pauseDownload();
      awaitHeld(0);
      EXPECT_EQ(transport_->cancelled().size() - before, hasGap ? 1U : kMost);
      const std::size_t kept = hasGap ? 1000 : 6000;
      EXPECT_EQ(fileBytes(), object_.bytes.substr(0, kept));
      if (!stops) {
        ASSERT_TRUE(reaches(task, TaskState::Paused));
        const std::size_t paused = transport_->requestCount();
        transport_->releaseAll();
        resumeFromFile(task);
        ASSERT_TRUE(reaches(task, TaskState::Ended));
        EXPECT_EQ(ranges()[paused], fmt::format("bytes={}-{}", kept, kept + 999));
        EXPECT_EQ(fileBytes(), object_.bytes);
      }
      task->releaseFile();
    }
  }
}

TEST_F(RangeWindowTest, WhatIsNoGoodRangeEndsAsIfItHadBeenAskedForAlone) {
  object_ = RangedObject::ofSize(4500);
  using Range = std::pair<std::int64_t, std::int64_t>;
  using Odd = std::function<ScriptedAnswer(const RecordedRequest&, const Range&)>;
  const auto always = [](const ScriptedAnswer& answer) -> Odd {
    return [answer](const RecordedRequest&, const Range&) { return answer; };
  };
  const auto of = [](const RangedObject& object) -> Odd {
    return
        [object](const RecordedRequest& request, const Range&) { return object.answer(request); };
  };
  const auto saying = [bytes = object_.bytes](std::int64_t most, const std::string& total) -> Odd {
    return [=](const RecordedRequest&, const Range& range) {
      const std::int64_t size = std::min(most, range.second - range.first + 1);
      return answerWith(
          206, bytes.substr(static_cast<std::size_t>(range.first), static_cast<std::size_t>(size)),
          {{"Content-Range",
            fmt::format("bytes {}-{}/{}", range.first, range.first + size - 1, total)}});
    };
  };
  RangedObject changed{.bytes = std::string(4500, 'x'), .tag = "\"2\""};
  RangedObject unsized = object_;
  unsized.statesSize = false;
  const std::pair<std::string, Odd> kinds[] = {
      {"not found", always(answerWith(404, ""))},
      {"busy", always(answerWith(503, ""))},
      {"none left", always(answerWith(416, "", {{"Content-Range", "bytes */4500"}}))},
      {"shrunk", always(answerWith(416, "", {{"Content-Range", "bytes */500"}}))},
      {"condition", always(answerWith(412, ""))},
      {"lost", always(failWith(7, "no route"))},
      {"thrown", always(throwFromSend())},
      {"another range", always(answerWith(206, "x", {{"Content-Range", "bytes 7-7/4500"}}))},
      {"another size", saying(1000, "4501")},
      {"shorter", saying(400, "4500")},
      {"no range", always(answerWith(206, ""))},
      {"another object", of(changed)},
      {"no size", of(unsized)},
      {"whole", always(answerWith(200, object_.bytes, {{"ETag", object_.tag}}))},
      {"another whole", always(answerWith(200, changed.bytes, {{"ETag", changed.tag}}))},
      {"a longer whole", always(answerWith(200, std::string(20'000, 'x')))},
      {"an error", always(answerWith(200, R"({"d":{"error":true,"msg":"gone"}})",
                                     {{"Content-Type", "application/json"}}))}};
  for (const auto& [name, odd] : kinds) {
    for (const std::int64_t at : {0, 1000, 4000}) {
      for (const TransferPolicy policy : {kCompatible, kSafe}) {
        SCOPED_TRACE(fmt::format("{} at {} {}", name, at, policy == kSafe));
        transport_->setHandler([=, object = object_, odd = odd](const RecordedRequest& request) {
          const auto range = askedRange(request);
          ScriptedAnswer answer =
              range && range->first == at ? odd(request, *range) : object.answer(request);
          const auto& response = answer.response;
          // As a transport does.
          if (response && response->body->size() > request.limits.forStatus(response->status)) {
            answer = {std::nullopt,
                      makeTransportError(HttpTransportError::kResponseTooLarge, "too large")};
          }
          return answer;
        });
        std::string outcomes[2];
        for (const bool isWindowed : {false, true}) {
          std::filesystem::remove(path());
          const auto task = makeWindowed({}, isWindowed ? kMost : 1, policy);
          task->start();
          while (!isAtRest(task)) {
            ASSERT_TRUE(eventually([&] { return transport_->heldCount() > 0 || isAtRest(task); }));
            // What is behind the odd one comes before it, and that before what is in front of it.
            transport_->release(std::max<std::size_t>(transport_->heldCount(), 1) - 1);
          }
          outcomes[isWindowed ? 1 : 0] =
              fmt::format("{} {} {} {}", static_cast<int>(task->state()), errorCode(*task),
                          errorMessage(*task, kNetworkError).textValue(), fileBytes());
          task->releaseFile();
        }
        ASSERT_EQ(outcomes[1], outcomes[0]);
      }
    }
  }
}

TEST_F(RangeWindowTest, ProcessThatIsKilledLeavesABeginningThatIsGoneOnWith) {
  // The process that is killed begins this test anew, and has a home of its own.
  constexpr const char* kPlace = "VARO_TEST_PLACE";
  const char* const inherited = std::getenv(kPlace);
  const EnvironmentVariable place(kPlace, inherited != nullptr ? inherited : home_.path().c_str());
  std::filesystem::create_directories(home_ / "Documents/blobs");
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        std::filesystem::remove_all(home_.path());
        UserDirectories::install(UserDirectories::below(std::getenv(kPlace)));
        const std::string file = std::string(std::getenv(kPlace)) + "/Documents/blobs/7";
        const auto claim = FileClaim::acquire(file, [] {}).claim;
        const auto task = makeWindowed({{kFileClaim, Value(claim->withoutLease())}});
        task->start();
        release(1);
        while (asked() < 1 + kUnwritten || transport_->heldCount() > 1) {
          if (transport_->heldCount() > 1) transport_->release(transport_->heldCount() - 1);
        }
        while (contentOf(file).size() < 1000) std::this_thread::yield();
        std::raise(SIGKILL);
      },
      KilledBySignal(SIGKILL), "");

  const auto claim = FileClaim::acquire(path(), [] {}).claim;
  ASSERT_NE(claim, nullptr);
  EXPECT_EQ(fileBytes(), object_.bytes.substr(0, 1000));
  const auto task = makeWindowed({{kTotalBytesDownloaded, fileBytes().size()},
                                  {kValidator, claim->validator()},
                                  {kFileClaim, Value(claim->withoutLease())}});
  task->start();
  transport_->releaseAll();
  ASSERT_TRUE(reaches(task, TaskState::Ended));
  EXPECT_EQ(transport_->requests().front().header("If-Range"), object_.tag);
  EXPECT_EQ(fileBytes(), object_.bytes);
  EXPECT_EQ(asked(), 9U);
}

}  // namespace
}  // namespace varo::binary
