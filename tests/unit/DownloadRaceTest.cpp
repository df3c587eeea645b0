// Downloads whose tasks, answers and callers meet at the worst moments, a thousand times over.

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/RecordingLog.h"

#include <random>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

constexpr int kRounds = 1000;

class DownloadRaceTest : public test::DownloadFixture {};

/// Does something where a line is logged, once each time that it is armed.
class Gate final : public platform::LogSink {
 public:
  static std::shared_ptr<Gate> at(std::string line, LogLevel level, std::function<void()> pass) {
    auto gate = std::make_shared<Gate>(std::move(line), level, std::move(pass));
    VaroNativeFacade::setSink(gate);
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(level);
    return gate;
  }
  Gate(std::string line, LogLevel level, std::function<void()> pass)
      : line_(std::move(line)), level_(level), pass_(std::move(pass)) {}

  void write(std::string_view /*logger*/, LogLevel /*level*/,
             const platform::LogLocation& /*location*/, std::string_view message) override {
    if (message != line_ || !armed.exchange(false)) return;
    // Only one thread logs at a time: the others must not try to.
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kOff);
    pass_();
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(level_);
  }
  void flush() override {}

  std::atomic<bool> armed{false};

 private:
  const std::string line_;
  const LogLevel level_;
  const std::function<void()> pass_;
};

TEST_F(DownloadRaceTest, AnswerOfThePausedRunNeitherMovesNorDoublesTheResumedOne) {
  for (int round = 0; round < kRounds; ++round) {
    transport_->hold();
    std::filesystem::remove(path());
    const std::size_t before = transport_->requestCount();
    const auto task = makeTask();
    task->start();
    ASSERT_TRUE(eventually([&] { return transport_->heldCount() == 1; }));
    if (round % 4 != 0) {
      ASSERT_TRUE(transport_->release());  // so that the pause meets the second range
      ASSERT_TRUE(eventually([&] { return transport_->heldCount() == 1; }));
    }
    // The answer and the cancel come at the same time.
    std::thread late([this] { transport_->release(); });
    task->pauseDownload();
    ASSERT_TRUE(reaches(task, TaskState::Paused));
    if (round % 2 == 0) late.join();
    resumeFromFile(task);
    if (late.joinable()) late.join();
    transport_->releaseAll();
    ASSERT_TRUE(reaches(task, TaskState::Ended)) << round;
    ASSERT_EQ(fileBytes(), object_.bytes) << round;
    // Each of the three ranges once, and the one that was in flight at the pause once more.
    EXPECT_EQ(transport_->requestCount() - before, 4U);
  }
}

TEST_F(DownloadRaceTest, PauseInTheMiddleOfAResumeIsNotLost) {
  std::shared_ptr<DownloadTask> task;
  std::atomic<int> pauses{0};
  const auto gate = Gate::at("Inside Download Task Listener. Task Name:persistenceTask, State:1  ",
                             LogLevel::kDebug, [&] {
                               task->pauseDownload();
                               ++pauses;
                             });
  for (int round = 1; round <= kRounds / 5; ++round) {
    transport_->hold();
    task = makeTask();
    task->start();
    task->pauseDownload();
    ASSERT_TRUE(reaches(task, TaskState::Paused));
    gate->armed = true;
    resumeFromFile(task);
    ASSERT_TRUE(eventually([&] { return pauses == round; }));
    transport_->releaseAll();
    ASSERT_TRUE(reaches(task, TaskState::Paused)) << round;
    task->stop();
  }
  VaroNativeFacade::setSink(nullptr);
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kWarning);
}

TEST_F(DownloadRaceTest, EmptyRangeOfUnknownSizeEndsTheDownload) {
  std::mt19937 random(1);
  for (int round = 0; round < kRounds; ++round) {
    object_ = RangedObject::ofSize(1 + random() % 4 * 1000 - random() % 2);
    object_.statesSize = false;
    if (object_.bytes.empty()) continue;
    std::filesystem::remove(path());
    const auto task = makeTask();
    task->start();
    if (random() % 2 == 0) {
      task->pauseDownload();
      const auto isAtRest = [&] {
        return task->state() == TaskState::Paused || task->state() == TaskState::Ended;
      };
      ASSERT_TRUE(eventually(isAtRest)) << round;
      if (task->state() == TaskState::Paused) resumeFromFile(task);
    }
    ASSERT_TRUE(reaches(task, TaskState::Ended)) << round;
    ASSERT_EQ(fileBytes(), object_.bytes) << round;
  }
}

TEST_F(DownloadRaceTest, PausesResumesAndStopsAtAnyMomentLeaveABeginningAndTheEndIsWhole) {
  constexpr int kStorms = 3000;
  setTransferPolicy(TransferPolicy::kSafe);  // a stop may come when the file is complete
  object_ = RangedObject::ofSize(20'000);
  std::mt19937 random(2);
  int completed = 0;
  int paused = 0;
  int round = 0;
  // A machine that is busy with other work gets through fewer rounds.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (; round < kStorms && std::chrono::steady_clock::now() < end; ++round) {
    const auto task = makeTask({{kTotalBytesDownloaded, fileBytes().size()}});
    // About at the request that is drawn, which may never come.
    std::atomic<bool> isStopped{false};
    const auto awaitMoment = [&, request = transport_->requestCount()](std::size_t requests,
                                                                       std::size_t spins) {
      while (transport_->requestCount() < request + requests &&
             task->state() == TaskState::Started && !isStopped) {
        std::this_thread::yield();
      }
      for (; spins > 0; --spins) std::this_thread::yield();
    };
    task->start();
    std::thread other([&, requests = random() % 15, spins = random() % 20] {
      awaitMoment(requests, spins);
      task->pauseDownload();
    });
    const auto choice = random() % 4;
    if (choice < 2) awaitMoment(random() % 15, random() % 20);
    if (choice == 0) task->stop();
    isStopped = choice == 0;
    if (choice == 1) task->pauseDownload();
    other.join();
    if (choice == 0) {
      // A chunk that is being written when the stop comes is still written.
      ASSERT_TRUE(eventually([&] { return object_.bytes.starts_with(fileBytes()); }));
    } else {
      const auto isAtRest = [&] {
        return task->state() == TaskState::Paused || task->state() == TaskState::Ended;
      };
      ASSERT_TRUE(eventually(isAtRest))
          << round << ' ' << Value(task->errorContext()).description();
      if (task->state() == TaskState::Paused) {
        ++paused;
        ASSERT_TRUE(object_.bytes.starts_with(fileBytes())) << round;
        if (choice == 2) {
          resumeFromFile(task);
          ASSERT_TRUE(reaches(task, TaskState::Ended)) << round;
        } else {
          task->stop();
        }
      }
    }
    if (task->state() == TaskState::Ended) {
      ++completed;
      ASSERT_EQ(fileBytes(), object_.bytes) << round;
      task->releaseFile();
      std::filesystem::remove(path());
    }
  }
  // The moments were spread: neither all before the first range nor all after the last.
  EXPECT_GT(completed, round / 50);
  EXPECT_GT(paused, round / 50);
}

}  // namespace
}  // namespace varo::binary
