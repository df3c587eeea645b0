#include "Client/Running.h"
#include "tests/support/Await.h"
#include "tests/support/Notify.h"
#include "tests/support/ScriptedBackOff.h"
#include "tests/support/SteppingClock.h"
#include "varo/files.h"
#include "varo/transfer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace varo {
namespace {

using Count = std::uint64_t;
using detail::Running;

/// Notes what it is asked for.
class Driver final : public detail::Control {
 public:
  void cancel() override { ++cancels; }
  void pause() override {}
  void resume() override {}
  std::atomic<int> cancels{0};
};

class TransferTest : public testing::Test {
 protected:
  Transfer<Count> transfer() {
    running_ = std::make_shared<Running<Count>>(clock_, sleeper_);
    running_->drivenBy(driver_);
    return Transfer<Count>(running_);
  }

  test::SteppingClock clock_{1'000};
  test::KeepingSleeper sleeper_;
  const std::shared_ptr<Driver> driver_ = std::make_shared<Driver>();
  std::shared_ptr<Running<Count>> running_;
};

TEST_F(TransferTest, HasOneOutcomeForEveryoneWhoAsks) {
  auto handle = transfer();
  std::promise<Count> done;
  handle.onDone([&](const Outcome<Count>& outcome) {
    done.set_value(*outcome);
    throw std::runtime_error("expected on standard error");
  });
  EXPECT_EQ(handle.waitFor(std::chrono::milliseconds(0)), std::nullopt);
  running_->end(7U);
  running_->end(8U);
  EXPECT_EQ(done.get_future().get(), 7U);
  EXPECT_EQ(handle.get().value(), 7U);
  EXPECT_EQ(handle.state(), State::kDone);
  std::promise<Count> late;
  handle.onDone([&](const Outcome<Count>& outcome) { late.set_value(*outcome); });
  EXPECT_EQ(late.get_future().get(), 7U);
}

TEST_F(TransferTest, DestructorTellsTheEndAndWaitsForTheCallbackThatRuns) {
  std::promise<void> entered, leave;
  std::atomic<int> ends{0};
  std::optional<Transfer<Count>> handle(transfer());
  handle->onProgress([&](const Progress&) {
    entered.set_value();
    leave.get_future().wait();
  });
  handle->onDone([&](const Outcome<Count>& outcome) {
    EXPECT_EQ(outcome.error().kind, Kind::kCancelled);
    ++ends;
  });
  clock_.advance(std::chrono::seconds(1));
  running_->reached(1, 2);
  entered.get_future().wait();
  auto destroyed = std::async(std::launch::async, [&] { handle.reset(); });
  ASSERT_TRUE(test::eventually([&] { return running_->state() == State::kDone; }));
  EXPECT_EQ(ends, 0);
  leave.set_value();
  destroyed.get();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(driver_->cancels, 1);
  running_->reached(2, 2);
  running_->end(5U);
  EXPECT_EQ(ends, 1);
}

TEST_F(TransferTest, MayBeDestroyedInsideItsOwnCallback) {
  auto handle = std::make_unique<Transfer<Count>>(transfer());
  std::promise<void> done;
  handle->onDone([&](const Outcome<Count>&) {
    handle.reset();
    done.set_value();
  });
  running_->end(1U);
  done.get_future().get();
  EXPECT_EQ(handle, nullptr);
}

TEST_F(TransferTest, ShowsProgressAtMostTenTimesASecondAndTheLast) {
  auto handle = transfer();
  std::vector<Count> shown;
  std::promise<void> done;
  handle.onProgress([&](const Progress& progress) { shown.push_back(progress.done); });
  handle.onDone([&](const Outcome<Count>&) { done.set_value(); });
  running_->enter(State::kRunning);
  for (Count step = 1; step <= 40; ++step) {
    clock_.advance(std::chrono::milliseconds(25));
    running_->reached(step % 2 == 0 ? step : 0, 40);
    if (step % 4 == 0) sleeper_.wakes.calls().back()(platform::TimerQueue::Reason::kDue);
  }
  EXPECT_NEAR(handle.progress().bytesPerSecond, 40, 1);
  running_->end(0U);
  done.get_future().get();
  EXPECT_EQ(shown.size(), 12U) << "the first, ten that came too early, the last";
  EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
  EXPECT_EQ(shown.back(), 40U);
}

TEST_F(TransferTest, ShowsTheLastProgressToOneThatComesLate) {
  std::vector<Count> shown;
  {
    auto handle = transfer();
    std::promise<void> done;
    handle.onDone([&](const Outcome<Count>&) { done.set_value(); });
    running_->reached(5, 5);
    running_->end(0U);
    done.get_future().get();  // whoever was there for the progress was told
    handle.onProgress([&](const Progress& progress) { shown.push_back(progress.done); });
  }
  EXPECT_EQ(shown, std::vector<Count>{5});
}

TEST_F(TransferTest, CanBeAwaitedBeforeAndAfterItsEnd) {
  std::promise<Count> sum;
  auto handle = transfer();
  const auto wait = [&]() -> test::Job {
    const Outcome<Count> first = co_await handle;
    const Outcome<Count> second = co_await handle;
    sum.set_value(*first + *second);
  };
  wait();
  running_->end(4U);
  EXPECT_EQ(sum.get_future().get(), 8U);
}

TEST_F(TransferTest, MovedAndDetachedHandlesHaveNoOutcome) {
  auto handle = transfer();
  Transfer<Count> other = std::move(handle);
  EXPECT_EQ(handle.get().error().kind, Kind::kInvalidArgument);  // NOLINT(bugprone-use-after-move)
  std::move(other).detach();
  EXPECT_EQ(driver_->cancels, 0);
  EXPECT_EQ(running_->state(), State::kWaiting);
}

}  // namespace
}  // namespace varo
