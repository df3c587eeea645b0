#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Sleeper.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Foundation/TimerQueue.h"
#include "Platform/Foundation/WorkQueue.h"
#include "tests/support/Await.h"
#include "tests/support/ScriptedBackOff.h"
#include "tests/support/SteppingClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <stdexcept>
#include <vector>

namespace varo::platform {
namespace {

using test::eventually;

class WorkQueueTest : public testing::Test {
 protected:
  TimerQueue timers_;
  ThreadPool pool_{{.name = "test", .coreThreads = 2, .maxThreads = 64}, timers_};
};

TEST_F(WorkQueueTest, SerialQueueRunsAsyncAndSyncJobsInOrder) {
  SerialQueue queue("order", pool_);
  std::vector<int> order;  // touched by jobs of the queue only
  const auto job = [&](int number) { return [&, number] { order.push_back(number); }; };
  for (int i = 0; i < 300; i += 3) {
    queue.async(job(i));
    queue.async(job(i + 1));
    queue.sync(job(i + 2));
  }
  ASSERT_EQ(order.size(), 300U);
  for (int i = 0; i < 300; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST_F(WorkQueueTest, JobsRunInTheContextThatTheyWerePostedIn) {
  class Context final : public JobContext {};
  const JobContext::Ptr mine = std::make_shared<Context>();
  const JobContext::Ptr others = std::make_shared<Context>();
  SerialQueue queue("context", pool_);
  std::latch posted{1};
  std::latch done{5};
  std::atomic<int> right{0};
  // A thread runs one job after the other, so what the one before left behind would show.
  const auto expects = [&](const JobContext::Ptr& context) {
    return [&, context] {
      posted.wait();
      if (JobContext::current() == context) ++right;
      done.count_down();
    };
  };
  queue.async(expects(nullptr));
  {
    const JobContext::Scope scope(mine);
    queue.async(expects(mine));
    pool_.postOrRun([&] { queue.async(expects(mine)); });
    timers_.after(std::chrono::milliseconds(0), [&](TimerQueue::Reason) { expects(mine)(); });
    const JobContext::Scope inner(others);
    queue.async(expects(others));
  }
  EXPECT_EQ(JobContext::current(), nullptr);
  posted.count_down();
  done.wait();
  EXPECT_EQ(right, 5);
}

TEST_F(WorkQueueTest, SyncInsideAJobOfTheSameQueueRunsAtOnce) {
  SerialQueue queue("nested", pool_);
  int depth = 0;
  queue.sync([&] { queue.sync([&] { queue.sync([&] { depth = 3; }); }); });
  EXPECT_EQ(depth, 3);
}

TEST_F(WorkQueueTest, DestructorsOfWhatAJobHoldsMayWaitOnItsQueue) {
  SerialQueue queue("captures", pool_);
  std::atomic<bool> waited{false};
  const auto waitsWhenItGoes = [&](void*) { queue.sync([&] { waited = true; }); };
  queue.async([held = std::shared_ptr<void>(nullptr, waitsWhenItGoes)] {});
  EXPECT_TRUE(eventually([&] { return waited.load(); }));
  queue.sync([] {});
}

TEST_F(WorkQueueTest, JobThatThrowsInSyncReachesTheCallerAndTheQueueGoesOn) {
  SerialQueue queue("throws", pool_);
  EXPECT_THROW(queue.sync([] { throw std::runtime_error("expected"); }), std::runtime_error);
  queue.async([] { throw std::runtime_error("expected on standard error"); });
  bool ran = false;
  queue.sync([&] { ran = true; });
  EXPECT_TRUE(ran);
}

TEST(ThreadPoolTest, GrowsByItsBlockedThreadsWhileAnotherStillTakesJobs) {
  for (const std::size_t maxThreads : {std::size_t{16}, std::size_t{5}}) {
    const auto waits = std::make_shared<test::KeepingSleeper>();
    const auto endWait = [&waits](std::size_t index) {
      waits->wakes.calls().at(index)(TimerQueue::Reason::kDue);
    };
    const test::SteppingClock clock(0, 1);
    std::latch allBusy(4);
    std::latch goOn(1);
    std::latch tookNext(1);
    std::latch release(1);
    std::atomic<std::size_t> waiting{0};  // jobs behind the blocked ones that have been taken
    ThreadPool pool({.name = "grows", .coreThreads = 4, .maxThreads = maxThreads}, waits, clock);
    const auto post = [&pool](ThreadPool::Job job) { ASSERT_TRUE(pool.post(std::move(job))); };
    for (int i = 0; i < 3; ++i) {
      post([&] {
        allBusy.count_down();
        release.wait();
      });
    }
    post([&] {
      allBusy.count_down();
      goOn.wait();
    });
    allBusy.wait();
    post([&] {
      tookNext.count_down();
      release.wait();
    });
    for (int i = 0; i < 10; ++i) {
      post([&] {
        ++waiting;
        release.wait();
      });
    }
    (void)clock.now();  // a second passes
    goOn.count_down();
    tookNext.wait();
    endWait(0);
    // As many work as there were before three were blocked.
    const std::size_t threads = std::min<std::size_t>(7, maxThreads);
    EXPECT_EQ(pool.threadCount(), threads);
    EXPECT_TRUE(eventually([&] { return waiting == threads - 4; }));
    endWait(1);
    EXPECT_EQ(pool.threadCount(), threads) << "none of the new ones has been at its job for long";
    release.count_down();
  }
}

TEST_F(WorkQueueTest, ShutdownRunsWhatIsQueuedThenQueuesRunJobsOnTheCaller) {
  SerialQueue queue("late", pool_);
  std::atomic<int> ran{0};
  for (int i = 0; i < 1000; ++i) queue.async([&] { ++ran; });
  pool_.shutdown();
  EXPECT_EQ(ran, 1000);
  EXPECT_FALSE(pool_.post([&] { ++ran; }));
  queue.async([&] { ++ran; });
  queue.sync([&] { ++ran; });
  ConcurrentQueue("late too", pool_).async([&] { ++ran; });
  EXPECT_EQ(ran, 1003);
  // What is thrown now is still reported, and ends neither the caller nor the queue.
  const auto throwing = [] { throw std::runtime_error("expected on standard error"); };
  queue.async(throwing);
  queue.sync([&] { queue.async(throwing); });
  queue.async([&] { ++ran; });
  EXPECT_EQ(ran, 1004);
}

TEST(TimerQueueTest, RunsInOrderOfDueTime) {
  TimerQueue timers;
  std::vector<int> order;  // touched by the timer thread until `done`
  std::latch done(2);
  const auto job = [&](int number) {
    return [&, number](TimerQueue::Reason) {
      order.push_back(number);
      done.count_down();
    };
  };
  timers.after(std::chrono::milliseconds(30), job(2));
  timers.after(std::chrono::milliseconds(1), job(1));
  done.wait();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(TimerQueueTest, ShutdownCallsWhatWaitsAndLaterJobsAreCalledAtOnce) {
  TimerQueue timers;
  std::vector<TimerQueue::Reason> reasons;
  const auto note = [&](TimerQueue::Reason reason) { reasons.push_back(reason); };
  timers.after(std::chrono::hours(1), note);
  timers.shutdown();
  timers.after(std::chrono::milliseconds(0), note);
  using enum TimerQueue::Reason;
  EXPECT_EQ(reasons, (std::vector{kShutDown, kShutDown}));
}

}  // namespace
}  // namespace varo::platform
