#include "Platform/TaskEngine/DeliveryHold.h"
#include "Platform/TaskEngine/VSAbstractLoopingTask.h"
#include "Platform/TaskEngine/VSTask.h"
#include "Platform/TaskEngine/VSTaskError.h"
#include "tests/support/Await.h"
#include "tests/support/CallLog.h"

#include <gmock/gmock.h>

#include <atomic>
#include <latch>
#include <stdexcept>

namespace varo::platform {
namespace {

using test::eventually;
using testing::ElementsAre;
using enum TaskState;

/// A leaf whose work is a function.
class FunctionTask final : public VSTask {
 public:
  using Work = std::function<void(FunctionTask&)>;
  explicit FunctionTask(Work work) : work_(std::move(work)) {}
  void execute() override { work_(*this); }
  using VSTask::shared_from_this;
  Context& output() { return _outputContext; }

 private:
  const Work work_;
};

std::shared_ptr<FunctionTask> leaf(FunctionTask::Work work) {
  return std::make_shared<FunctionTask>(std::move(work));
}

std::shared_ptr<FunctionTask> leafThatEndsWith(const std::string& key, Value value) {
  return leaf([key, value](FunctionTask& task) {
    task.output().set(key, value);
    task.setState(Ended);
  });
}

ErrorPtr someError(const VSTask& task) {
  return std::make_shared<const VSTaskError>(task.ID(), "TestDomain", 42,
                                             Dictionary{{"message", "no luck"}});
}

/// Keeps what it hears.
class Recorder final : public TaskListener {
 public:
  struct Event {
    TaskState from, to;
    Dictionary context;
  };

  void task(const std::shared_ptr<VSTask>& /*task*/, TaskState from, TaskState to,
            const Dictionary& context) override {
    log_.add({from, to, context});
  }
  [[nodiscard]] std::vector<Event> events() const { return log_.calls(); }
  [[nodiscard]] std::vector<TaskState> states() const {
    std::vector<TaskState> states;
    for (const Event& event : events()) states.push_back(event.to);
    return states;
  }

 private:
  test::CallLog<Event> log_;
};

class TaskEngineTest : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(eventually([this] { return VSTask::liveCount() <= liveBefore_; }))
        << "a task tree was not freed";
  }

  const std::size_t liveBefore_ = VSTask::liveCount();

  /// Starts `task`, drops it, and waits for its end.
  std::shared_ptr<Recorder> runToEnd(std::shared_ptr<VSTask> task) {
    auto recorder = std::make_shared<Recorder>();
    task->subscribeForTaskUpdates(recorder);
    task->start();
    task.reset();
    EXPECT_TRUE(eventually([&] {
      const auto states = recorder->states();
      return !states.empty() && isFinal(states.back());
    }));
    return recorder;
  }
  /// A composite whose second subtask waits for the first.
  static std::shared_ptr<VSTask> sequence(const std::shared_ptr<VSTask>& first,
                                          const std::shared_ptr<VSTask>& second) {
    auto composite = std::make_shared<VSTask>();
    composite->addSubtask(first);
    composite->addSubtask(second);
    EXPECT_TRUE(composite->addDependencyBetween(first, second, nullptr));
    return composite;
  }
};

TEST_F(TaskEngineTest, StartOfARunningTaskDoesNothing) {
  std::atomic<int> runs{0};
  auto task = leaf([&](FunctionTask&) { ++runs; });
  task->start();
  task->start();
  ASSERT_TRUE(eventually([&] { return runs == 1; }));
  task->setState(Paused);
  task->start();
  task->setState(Ended);
  EXPECT_EQ(runs, 1);
}

TEST_F(TaskEngineTest, UnsubscribedAndThrowingListenersDisturbNobody) {
  class Throwing final : public TaskListener {
   public:
    void task(const std::shared_ptr<VSTask>&, TaskState, TaskState, const Dictionary&) override {
      throw std::runtime_error("expected in the log");
    }
  };
  auto task = leafThatEndsWith("done", true);
  const auto gone = std::make_shared<Recorder>();
  const auto throwing = std::make_shared<Throwing>();
  task->subscribeForTaskUpdates(gone);
  task->subscribeForTaskUpdates(throwing);
  task->unsubscribeForTaskUpdates(gone);
  const auto recorder = runToEnd(task);
  EXPECT_THAT(recorder->states(), ElementsAre(Started, Ended));
  EXPECT_FALSE(recorder->events().back().context.contains(kTaskErrors));
  EXPECT_TRUE(gone->events().empty());
}

TEST_F(TaskEngineTest, SubtasksRunInDependencyOrderAndHandTheirOutputOn) {
  auto composite = std::make_shared<VSTask>("composite");
  composite->setInputContext({{"from parent", 1}, {"overridden", "parent"}});
  auto first = leafThatEndsWith("overridden", "first");
  auto side = leafThatEndsWith("side", true);
  auto last = leaf([](FunctionTask& self) {
    self.output().set("input of last", self.inputContext());
    self.setState(Ended);
  });
  for (const auto& subtask : {first, side, last}) composite->addSubtask(subtask);
  EXPECT_TRUE(composite->addDependencyBetween(first, last, nullptr));
  first.reset();
  side.reset();
  last.reset();

  const auto recorder = runToEnd(std::move(composite));
  EXPECT_THAT(recorder->states(), ElementsAre(Started, Ended));
  const Dictionary output = recorder->events().back().context[kTaskOutputContext].dictionaryValue();
  EXPECT_TRUE(output.contains("side"));
  const Dictionary input = output["input of last"].dictionaryValue();
  EXPECT_EQ(input["from parent"].integerValue(), 1);
  EXPECT_EQ(input["overridden"].textValue(), "first");
}

TEST_F(TaskEngineTest, DependenciesCloseNoCircleOfAnySizeAndRunEveryOtherGraph) {
  test::CallLog<char> order;
  const auto composite = std::make_shared<VSTask>();
  std::vector<std::shared_ptr<VSTask>> tasks;
  for (const char name : std::string("DCBA")) {  // added in the wrong order
    tasks.insert(tasks.begin(), leaf([&order, name](FunctionTask& self) {
                   order.add(name);
                   self.setState(Ended);
                 }));
    composite->addSubtask(tasks.front());
  }
  const auto depends = [&](std::size_t before, std::size_t after) {
    return composite->addDependencyBetween(tasks[before], tasks[after], nullptr);
  };
  // A before B and C, and these before D: two ways to D are no circle.
  EXPECT_TRUE(depends(0, 1) && depends(1, 2) && depends(1, 3) && depends(2, 3));
  EXPECT_FALSE(depends(0, 0)) << "a circle of one";
  EXPECT_FALSE(depends(2, 0)) << "a circle of three";
  EXPECT_FALSE(depends(3, 0)) << "a circle of four";
  ErrorPtr error;
  EXPECT_FALSE(composite->addDependencyBetween(composite, tasks[0], &error)) << "no subtask";
  EXPECT_NE(error, nullptr);
  EXPECT_FALSE(composite->addDependencyBetween(tasks[0], composite, nullptr)) << "no subtask";
  EXPECT_EQ(runToEnd(composite)->states().back(), Ended);
  EXPECT_THAT(order.calls(), ElementsAre('A', 'B', 'C', 'D'));
}

TEST_F(TaskEngineTest, FailedSubtaskEndsTheCompositeWithItsErrorsAndStartsNothingMore) {
  for (const TaskState end : {Errored, Stopped}) {
    const auto failing = leaf([end](FunctionTask& self) {
      self.output().set("partial", true);
      if (end == Errored) return self.raiseError(someError(self));
      self.setState(end);
    });
    std::atomic<bool> ran{false};
    const auto composite = sequence(failing, leaf([&](FunctionTask&) { ran = true; }));
    const auto recorder = runToEnd(composite);
    EXPECT_EQ(recorder->states().back(), Errored);
    EXPECT_EQ(composite->errors().size(), end == Errored ? 1U : 0U);
    EXPECT_EQ(composite->errorContext().contains(kTaskErrors), end == Errored);
    EXPECT_TRUE(composite->outputContext()["partial"].boolValue());
    EXPECT_FALSE(ran);
  }
}

TEST_F(TaskEngineTest, CompositeStartedAgainRunsSubtasksAnewThatNeverCameToAnEnd) {
  for (const TaskState end : {Paused, Stopped, Errored}) {
    std::atomic<int> runs{0};
    auto waiting = leaf([&](FunctionTask& self) { self.setState(++runs == 1 ? Paused : Ended); });
    auto quick = leafThatEndsWith("quick", true);
    auto composite = std::make_shared<VSTask>();
    composite->addSubtask(waiting);
    composite->addSubtask(quick);
    composite->start();
    ASSERT_TRUE(eventually([&] { return waiting->state() == Paused; }));
    ASSERT_TRUE(eventually([&] { return composite->outputContext().contains("quick"); }));
    composite->setState(end);
    composite->setState(NotStarted);
    const auto recorder = runToEnd(composite);
    EXPECT_THAT(recorder->states(), ElementsAre(Started, Ended));
    EXPECT_EQ(runs, 2);
  }
}

TEST_F(TaskEngineTest, ARestartForgetsTheErrorsOfTheFormerRun) {
  std::atomic<int> runs{0};
  const auto flaky = leaf([&](FunctionTask& self) {
    self.output().set("run", ++runs);
    runs == 1 ? self.raiseError(someError(self)) : self.setState(Ended);
  });
  const auto composite = std::make_shared<VSTask>();
  composite->addSubtask(flaky);
  EXPECT_EQ(runToEnd(composite)->states().back(), Errored);
  EXPECT_EQ(composite->errors().size(), 1U);
  composite->setState(Ended);
  EXPECT_EQ(composite->state(), Errored) << "an ended task must not change its mind";

  const auto recorder = std::make_shared<Recorder>();
  composite->subscribeForTaskUpdates(recorder);
  composite->setState(NotStarted);
  EXPECT_TRUE(composite->errors().empty());
  EXPECT_TRUE(composite->errorContext().empty());
  EXPECT_THAT(runToEnd(composite)->states(), ElementsAre(Started, Ended));
  for (const Recorder::Event& event : recorder->events()) {
    EXPECT_FALSE(event.context.contains(kTaskErrors)) << static_cast<int>(event.to);
  }
  EXPECT_TRUE(flaky->errors().empty() && flaky->errorContext().empty());
  EXPECT_EQ(composite->outputContext()["run"].integerValue(), 2);
}

/// Stays in its call for the end of a task until the test lets it go.
class HoldsTheEnd final : public TaskListener {
 public:
  void task(const std::shared_ptr<VSTask>& /*task*/, TaskState /*from*/, TaskState to,
            const Dictionary& /*context*/) override {
    if (!isFinal(to) || called.exchange(true)) return;
    goOn.wait();
  }
  std::atomic<bool> called{false};
  std::latch goOn{1};
};

TEST_F(TaskEngineTest, TheLateEndOfAFormerRunIsNotTakenForTheNext) {
  std::atomic<int> runs{0};
  const auto subtask = leaf([&](FunctionTask& self) {
    if (++runs == 1) self.setState(Ended);  // the second run ends when the test says so
  });
  const auto composite = std::make_shared<VSTask>();
  composite->addSubtask(subtask);
  const auto held = std::make_shared<HoldsTheEnd>();
  const auto told = std::make_shared<Recorder>();
  subtask->subscribeForTaskUpdates(held);
  subtask->subscribeForTaskUpdates(told);
  composite->start();
  ASSERT_TRUE(eventually([&] { return held->called.load(); }));
  composite->setState(Stopped);
  composite->setState(NotStarted);
  composite->start();
  ASSERT_TRUE(eventually([&] { return runs == 2; }));
  held->goOn.count_down();
  // What is told of the second run is told behind the end of the first.
  ASSERT_TRUE(eventually([&] { return told->states().size() == 3; }));
  EXPECT_THAT(told->states(), ElementsAre(Started, Ended, Started));
  EXPECT_EQ(composite->state(), Started);
  subtask->setState(Ended);
  EXPECT_TRUE(eventually([&] { return composite->state() == Ended; }));
}

TEST_F(TaskEngineTest, ListenersHearOnceOfWhatComesAfterTheirSubscription) {
  class Subscribes final : public TaskListener {
   public:
    void task(const std::shared_ptr<VSTask>& task, TaskState, TaskState,
              const Dictionary&) override {
      task->subscribeForTaskUpdates(other);
      task->subscribeForTaskUpdates(other);
      hasCalled = true;
    }
    const std::shared_ptr<Recorder> other = std::make_shared<Recorder>();
    std::atomic<bool> hasCalled{false};
  };
  const auto first = std::make_shared<Subscribes>();
  const auto task = leaf([](FunctionTask&) {});
  task->subscribeForTaskUpdates(first);
  task->start();
  ASSERT_TRUE(eventually([&] { return first->hasCalled.load(); }));
  const auto last = std::make_shared<Recorder>();
  task->subscribeForTaskUpdates(last);
  task->setState(Ended);
  ASSERT_TRUE(eventually([&] { return !last->states().empty(); }));
  EXPECT_THAT(first->other->states(), ElementsAre(Ended)) << "not of the start, which came before";
}

TEST_F(TaskEngineTest, OutermostHoldDeliversOnItsOwnThreadWhereItSaysSo) {
  const auto task = leaf([](FunctionTask&) {});
  const auto recorder = std::make_shared<Recorder>();
  task->subscribeForTaskUpdates(recorder);
  {
    const DeliveryHold outer(DeliveryHold::Then::kHere);
    {
      const DeliveryHold inner;
      task->setState(Started);
    }
    EXPECT_THAT(recorder->states(), ElementsAre());
  }
  EXPECT_THAT(recorder->states(), ElementsAre(Started));
}

TEST_F(TaskEngineTest, PausedCompositeStillRunsWhatBecomesFree) {
  std::shared_ptr<VSTask> composite;
  const auto first = leaf([&](FunctionTask& self) {
    composite->setState(Paused);
    self.setState(Ended);
  });
  composite = sequence(first, leafThatEndsWith("last", true));
  const auto recorder = runToEnd(composite);
  EXPECT_THAT(recorder->states(), ElementsAre(Started, Paused, Ended));
}

TEST_F(TaskEngineTest, ValuesThatAContextDropsAreDestroyedOutsideItsLock) {
  struct Prober final : Object {
    explicit Prober(Context& probed) : context(probed) {}
    ~Prober() override { (void)context.snapshot(); }
    [[nodiscard]] std::string description() const override { return "prober"; }
    Context& context;
  };
  Context context;
  const auto put = [&] { context.set("value", std::make_shared<Prober>(context)); };
  put();
  put();  // replaced
  context.addEntries({{"value", 1}});
  put();
  context.remove("value");
  put();
  context.replace({});
  EXPECT_TRUE(context.snapshot().empty());
}

class CountingLoop final : public VSAbstractLoopingTask {
 public:
  CountingLoop(const std::shared_ptr<VSTask>& subtask, int iterations, bool forgiving)
      : VSAbstractLoopingTask(subtask, nullptr), iterations_(iterations), forgiving_(forgiving) {}

  bool shouldIterate(TaskState subTaskState) override {
    return VSAbstractLoopingTask::shouldIterate(subTaskState) &&
           _outputContext.get("count").integerValue() < iterations_;
  }
  void transformInputContextForNextIteration() override {
    ++transformations;
    _inputContext.set("count", _outputContext.get("count"));
  }
  bool treatErrorAsSuccess() override { return forgiving_; }

  int transformations = 0;  // touched by the loop's steps, which follow one another

 private:
  const int iterations_;
  const bool forgiving_;
};

std::shared_ptr<FunctionTask> counter() {
  return leaf([](FunctionTask& self) {
    EXPECT_FALSE(self.outputContext().contains("count")) << "each iteration starts afresh";
    self.output().set("count", self.inputContext()["count"].integerValue() + 1);
    self.setState(Ended);
  });
}

TEST_F(TaskEngineTest, LoopIteratesUntilItsConditionFails) {
  for (const int iterations : {1, 2, 1000}) {
    const auto loop = std::make_shared<CountingLoop>(counter(), iterations, false);
    const auto recorder = runToEnd(loop);
    EXPECT_THAT(recorder->states(), ElementsAre(Started, Ended));
    EXPECT_EQ(loop->outputContext()["count"].integerValue(), iterations);
    EXPECT_EQ(loop->transformations, iterations - 1);
  }
}

TEST_F(TaskEngineTest, LoopThatIsEndedWhileItSleepsRunsNoMore) {
  /// Ends the loop when that goes to sleep, and wakes it then.
  struct EndsTheLoop final : Sleeper {
    void wakeAfter(std::chrono::milliseconds /*delay*/, TimerQueue::Job wake) override {
      loop.lock()->setState(Stopped);
      wake(TimerQueue::Reason::kDue);
    }
    std::weak_ptr<VSTask> loop;
  };
  class SleepingLoop final : public VSAbstractLoopingTask {
   public:
    using VSAbstractLoopingTask::VSAbstractLoopingTask;
    void transformInputContextForNextIteration() override {
      sleepBeforeNextIteration(std::chrono::hours(1));
    }
  };
  EndsTheLoop sleep;
  std::atomic<int> runs{0};
  auto step = leaf([&](FunctionTask& self) {
    ++runs;
    self.setState(Ended);
  });
  auto loop = std::make_shared<SleepingLoop>(std::move(step), nullptr, sleep);
  sleep.loop = loop;
  loop->start();
  loop = nullptr;
  ASSERT_TRUE(eventually([&] { return sleep.loop.expired(); })) << "nothing is left to do for it";
  EXPECT_EQ(runs, 1);
}

TEST_F(TaskEngineTest, FailingIterationEndsTheLoopUnlessItCountsAsSuccess) {
  for (const bool forgiving : {false, true}) {
    auto runs = std::make_shared<std::atomic<int>>(0);
    auto failing = leaf([runs](FunctionTask& self) {
      self.output().set("count", ++*runs);
      self.raiseError(someError(self));
    });
    const auto loop = std::make_shared<CountingLoop>(failing, 3, forgiving);
    failing.reset();
    const auto recorder = runToEnd(loop);
    EXPECT_EQ(recorder->states().back(), forgiving ? Ended : Errored);
    EXPECT_EQ(*runs, forgiving ? 3 : 1);
    EXPECT_EQ(loop->errors().size(), forgiving ? 0U : 1U);
  }
}

}  // namespace
}  // namespace varo::platform
