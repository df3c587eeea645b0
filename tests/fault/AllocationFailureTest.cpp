#include "Platform/Foundation/File.h"
#include "Platform/Foundation/TimerQueue.h"
#include "Platform/Foundation/WorkQueue.h"
#include "Platform/TaskEngine/VSAbstractLoopingTask.h"
#include "Platform/TaskEngine/VSTask.h"
#include "tests/support/Await.h"
#include "tests/support/FailingAllocations.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace varo::platform {
namespace {

using test::eventually;
using test::Failing;
using test::FailingAllocations;
using test::forEachAllocation;

/// Longer than the memory that any of these takes: nothing is found in a text's own place.
const std::string kLongText(100, 'x');

class Leaf final : public VSTask {
 public:
  void execute() override {
    _outputContext.set(kLongText, inputContext()[kLongText]);
    raiseContextChangeEvent();
    _outputContext.addEntries({{"a", 1}, {"b", kLongText}});
    setState(TaskState::Ended);
  }
};

class Loop final : public VSAbstractLoopingTask {
 public:
  Loop() : VSAbstractLoopingTask(std::make_shared<Leaf>(), nullptr) {}
  bool shouldIterate(TaskState state) override {
    return VSAbstractLoopingTask::shouldIterate(state) && ++iterations_ < 3;
  }
  void transformInputContextForNextIteration() override {
    _inputContext.set(kLongText, kLongText);
    sleepBeforeNextIteration(std::chrono::milliseconds(1));
  }

 private:
  int iterations_ = 0;  // touched by the loop's steps, which follow one another
};

/// Takes no memory itself.
class Ends final : public TaskListener {
 public:
  void task(const std::shared_ptr<VSTask>& /*task*/, TaskState /*from*/, TaskState to,
            const Dictionary& context) override {
    if (!isFinal(to)) return;
    if (to == TaskState::Errored && !context[kTaskErrors].isArray()) ++withoutReason;
    ++count;
  }
  std::atomic<int> count{0};
  std::atomic<int> withoutReason{0};
};

/// A leaf, then a loop beside another leaf.
std::shared_ptr<VSTask> tree() {
  auto root = std::make_shared<VSTask>("tree");
  const auto first = std::make_shared<Leaf>();
  const auto second = std::make_shared<Loop>();
  for (const std::shared_ptr<VSTask>& task :
       {std::shared_ptr<VSTask>(first), std::shared_ptr<VSTask>(second),
        std::shared_ptr<VSTask>(std::make_shared<Leaf>())}) {
    root->addSubtask(task);
  }
  (void)root->addDependencyBetween(first, second, nullptr);
  return root;
}

class AllocationFailureTest : public testing::TestWithParam<Failing> {};

TEST_P(AllocationFailureTest, TasksComeToOneEndWithItsReason) {
  class Throwing final : public VSTask {
   public:
    void execute() override { throw std::runtime_error(kLongText); }
  };
  class Raising final : public VSTask {
   public:
    void execute() override { raiseError(Error::make("domain", 1, kLongText)); }
  };
  const std::function<std::shared_ptr<VSTask>()> makers[] = {
      tree, [] { return std::make_shared<Throwing>(); },
      [] { return std::make_shared<Raising>(); }};
  const std::size_t before = VSTask::liveCount();
  for (const auto& make : makers) {
    const bool isTree = &make == &makers[0];
    forEachAllocation(3, [&](std::size_t n) {
      const auto ends = std::make_shared<Ends>();
      std::shared_ptr<VSTask> task = make();
      task->subscribeForTaskUpdates(ends);
      bool failed = false;
      {
        const FailingAllocations failing(n, GetParam());
        task->start();
        (void)eventually([&ends] { return ends->count > 0; });
        failed = FailingAllocations::haveFailed();
      }
      EXPECT_EQ(ends->count, 1);
      EXPECT_EQ(ends->withoutReason, 0);
      if (isTree) {
        EXPECT_TRUE(failed || task->state() == TaskState::Ended);
      } else {
        EXPECT_EQ(task->state(), TaskState::Errored);
        EXPECT_FALSE(task->errors().empty());
        EXPECT_TRUE(task->errorContext()[kTaskErrors].isArray());
      }
      task.reset();
      EXPECT_TRUE(eventually([&] { return VSTask::liveCount() == before; })) << "not freed";
      EXPECT_EQ(ends->count, 1);
      return failed;
    });
  }
}

TEST_P(AllocationFailureTest, JobsThatWereTakenRunOnce) {
  constexpr std::size_t kJobs = 20;
  forEachAllocation(3, [&](std::size_t n) {
    TimerQueue timers;
    ThreadPool pool({.name = "test", .coreThreads = 2, .maxThreads = 4}, timers);
    SerialQueue serial("serial", pool);
    ConcurrentQueue concurrent("concurrent", pool);
    std::atomic<std::size_t> taken{0};
    std::atomic<std::size_t> ran{0};
    bool failed = false;
    {
      const FailingAllocations failing(n, GetParam());
      for (std::size_t i = 0; i < kJobs; ++i) {
        // The function itself may need memory: then there is no job.
        const auto attempt = [&](const auto& submit) {
          try {
            submit();
            ++taken;
          } catch (const std::bad_alloc&) {
            failed = true;
          } catch (const std::system_error&) {
            failed = true;
          }
        };
        serial.async([&ran, large = std::array<char, 64>()] { ran += large.size() / 64; });
        ++taken;  // whatever its size
        attempt([&] { concurrent.async([&ran] { ++ran; }); });
        attempt([&] { serial.sync([&ran] { ++ran; }); });
        attempt([&] { timers.after(std::chrono::hours(1), [&ran](auto) { ++ran; }); });
        attempt([&] {
          if (!pool.post([&ran] { ++ran; })) --taken;
        });
      }
      failed = failed || FailingAllocations::haveFailed();
    }
    timers.shutdown();
    pool.shutdown();
    EXPECT_EQ(ran, taken);
    return failed;
  });
}

TEST_P(AllocationFailureTest, DictionaryThatCannotGrowStaysAsItWas) {
  forEachAllocation(3, [&](std::size_t n) {
    Dictionary dictionary;
    std::size_t entries = 0;
    bool failed = false;
    {
      const FailingAllocations failing(n, GetParam());
      try {
        for (; entries < 100; ++entries) {
          dictionary.set(std::string(kLongText).append(1, static_cast<char>(entries)), kLongText);
        }
      } catch (const std::bad_alloc&) {
        failed = true;
      }
    }
    EXPECT_EQ(dictionary.size(), entries);
    for (std::size_t i = 0; i < 100; ++i) {
      const std::string key = std::string(kLongText).append(1, static_cast<char>(i));
      EXPECT_EQ(dictionary.contains(key), i < entries);
    }
    return failed;
  });
}

/// The number that the next descriptor gets: the lowest that is free.
int nextDescriptor() {
  const int descriptor = ::dup(STDIN_FILENO);
  ::close(descriptor);
  return descriptor;
}

TEST_P(AllocationFailureTest, FilesThatHaveNoOwnerAreClosed) {
  const std::string directory = testing::TempDir();
  const std::function<void()> makers[] = {
      [] { static_cast<void>(File::openForReading("/proc/self/exe")); },
      [&] { static_cast<void>(File::createUnnamed(directory)); },
  };
  const int before = nextDescriptor();
  ASSERT_GE(before, 0);
  for (const auto& make : makers) {
    forEachAllocation(0, [&](std::size_t n) {
      bool failed = false;
      {
        const FailingAllocations failing(n, GetParam());
        try {
          make();
        } catch (const std::bad_alloc&) {
          failed = true;
        }
      }
      EXPECT_EQ(nextDescriptor(), before);
      return failed;
    });
  }
}

std::string nameOf(const testing::TestParamInfo<Failing>& tried) {
  return tried.param == Failing::kOne ? "OneFails" : "AllFailFromThen";
}

INSTANTIATE_TEST_SUITE_P(Memory, AllocationFailureTest,
                         testing::Values(Failing::kOne, Failing::kFromThen), nameOf);

}  // namespace
}  // namespace varo::platform
