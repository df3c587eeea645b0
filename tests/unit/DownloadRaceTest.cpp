// Downloads whose tasks, answers and callers meet at the worst moments, some hundred times over.

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "tests/support/DownloadFixture.h"

#include <random>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

constexpr int kRounds = 300;

class DownloadRaceTest : public test::DownloadFixture {};

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
  setTransferPolicy(TransferPolicy::kSafe);  // a stop may come when the file is complete
  object_ = RangedObject::ofSize(20'000);
  std::filesystem::create_directories(home_ / "Documents/blobs");
  std::mt19937 random(2);
  int completed = 0;
  int paused = 0;
  for (int round = 0; round < kRounds; ++round) {
    // As the manager of blobs does: who has the claim is the only one who writes.
    FileClaim::Lease claim;
    ASSERT_TRUE(eventually([&] {
      claim = FileClaim::acquire(path(), [] {}).claim;
      return claim != nullptr;
    }));
    const auto task = makeTask(
        {{kTotalBytesDownloaded, fileBytes().size()}, {kFileClaim, Value(claim->withoutLease())}});
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
    const auto isAtRest = [&] {
      return task->state() == TaskState::Paused || task->state() == TaskState::Ended;
    };
    if (choice != 0) {
      ASSERT_TRUE(eventually(isAtRest)) << round;
    }
    if (choice == 2 && task->state() == TaskState::Paused) {
      resumeFromFile(task);
      ASSERT_TRUE(reaches(task, TaskState::Ended)) << round;
    }
    const TaskState end = task->state();
    choice == 0 ? task->stop() : void();
    task->releaseFile(std::move(claim));
    // When the file is free nobody writes it any more.
    ASSERT_TRUE(eventually([&] {
      const auto free = FileClaim::acquire(path(), [] {});
      return free.claim != nullptr;
    })) << round;
    ASSERT_TRUE(object_.bytes.starts_with(fileBytes())) << round;
    if (end == TaskState::Paused) ++paused;
    if (end == TaskState::Ended && choice != 0) {
      ++completed;
      ASSERT_EQ(fileBytes(), object_.bytes) << round;
      std::filesystem::remove(path());
    }
  }
  // Neither all before the first range nor all after the last.
  EXPECT_GT(completed, 0);
  EXPECT_GT(paused, 0);
}

}  // namespace
}  // namespace varo::binary
