// Downloads whose tasks, answers and callers meet at the worst moments, some hundred times over.

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "tests/support/DownloadFixture.h"

#include <random>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

constexpr int kRounds = 300;

class DownloadRaceTest : public test::DownloadFixture {};

TEST_F(DownloadRaceTest, PausesResumesAndStopsAtAnyMomentLeaveABeginningAndTheEndIsWhole) {
  setTransferPolicy(TransferPolicy::kSafe);  // a stop may come when the file is complete
  object_ = RangedObject::ofSize(5000);
  std::filesystem::create_directories(home_ / "Documents/blobs");
  std::mt19937 random(2);
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    awaitEndOfTasks();
    // A handler of its own: a stopped download of the last round may still send a request.
    RangedObject object = object_;
    object.statesSize = round % 2 == 0;
    transport_->setHandler([object](const auto& request) { return object.answer(request); });
    transport_->hold();
    // As the manager of blobs does: who has the claim is the only one who writes.
    FileClaim::Lease claim;
    ASSERT_TRUE(eventually([&] {
      claim = FileClaim::acquire(path(), [] {}).claim;
      return claim != nullptr;
    }));
    const std::size_t has = fileBytes().size();
    const auto settings = std::make_shared<OperationSettings>();
    settings->parallelRanges = round % 3 == 0 ? 4 : 1;
    const auto task = makeTask({{kTotalBytesDownloaded, has},
                                {kFileClaim, Value(claim->withoutLease())},
                                {kOperationSettings, OperationSettings::value(settings)}});
    const std::size_t before = transport_->requestCount();
    // The last range of an object of unknown size is an empty one.
    const std::size_t needed =
        std::max<std::size_t>(1, (5000 - has) / 1000 + (object.statesSize ? 0 : 1));
    task->start();
    const bool isAsked = random() % 4 != 0;
    if (isAsked) {
      release(static_cast<int>(random() % needed));
      ASSERT_TRUE(eventually([this] { return transport_->heldCount() > 0; }));
    }
    // An answer, a pause and a stop or another pause come at the same time.
    std::thread answer([this, held = transport_->heldCount()] {
      transport_->release(std::max<std::size_t>(held, 1) - 1);
    });
    std::thread other([&] { task->pauseDownload(); });
    const auto choice = random() % 4;
    if (choice == 0) task->stop();
    if (choice == 1) task->pauseDownload();
    answer.join();
    other.join();
    const auto isAtRest = [&] {
      return task->state() == TaskState::Paused || task->state() == TaskState::Ended;
    };
    if (choice != 0) {
      ASSERT_TRUE(eventually(isAtRest));
    }
    transport_->releaseAll();
    if (choice == 2 && task->state() == TaskState::Paused) {
      resumeFromFile(task);
      ASSERT_TRUE(reaches(task, TaskState::Ended));
      // Each range once, and the one that was in flight at the pause once more: none is while four
      // chunks wait to be written.
      if (isAsked && settings->parallelRanges == 1) {
        const std::size_t requests = transport_->requestCount() - before;
        EXPECT_TRUE(requests == needed || requests == needed + 1) << requests << " of " << needed;
      }
    }
    const bool isWhole = choice != 0 && task->state() == TaskState::Ended;
    if (choice == 0) task->stop();
    task->releaseFile(std::move(claim));
    // When the file is free nobody writes it any more.
    ASSERT_TRUE(eventually([&] { return FileClaim::acquire(path(), [] {}).claim != nullptr; }));
    ASSERT_TRUE(object_.bytes.starts_with(fileBytes()));
    if (isWhole) {
      ASSERT_EQ(fileBytes(), object_.bytes);
      std::filesystem::remove(path());
    }
  }
}

}  // namespace
}  // namespace varo::binary
