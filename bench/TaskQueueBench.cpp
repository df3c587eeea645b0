// Question: what does TaskQueueManager take of 8 threads: how many of its operations are done a
// second, and how fast do 100,000 tasks get through it, beside tasks that are started at once?
//
//   varo_task_queue_bench operations|through|direct COUNT
//
// Prints one JSON object: the operations or tasks a second and, of tasks, how many ran and ended.

#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"

#include <fmt/format.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <functional>
#include <memory>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using varo::binary::TaskQueueManager;
using varo::platform::Dictionary;
using varo::platform::TaskState;
using varo::platform::VSTask;
using Clock = std::chrono::steady_clock;

constexpr int kThreads = 8;

/// Runs `work` on every thread with its share of `count`; the seconds until all are done.
double onAllThreads(int count, const std::function<void(int from, int to)>& work) {
  const auto start = Clock::now();
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      const auto share = [count](int number) {
        return static_cast<int>(static_cast<std::int64_t>(count) * number / kThreads);
      };
      threads.emplace_back(
          [&work, from = share(thread), to = share(thread + 1)] { work(from, to); });
    }
  }
  return std::chrono::duration<double>(Clock::now() - start).count();
}

class EndingTask final : public VSTask {
 public:
  EndingTask(std::string name, std::atomic<int>& runs) : VSTask(std::move(name)), runs_(runs) {}
  void execute() override {
    ++runs_;
    setState(TaskState::Ended);
  }

 private:
  std::atomic<int>& runs_;
};

/// What the manager asks of its owner; without a manager, only counts.
class Owner final : public varo::platform::TaskListener {
 public:
  Owner(TaskQueueManager* manager, int expected) : manager_(manager), expected_(expected) {}

  void task(const std::shared_ptr<VSTask>& task, TaskState /*from*/, TaskState to,
            const Dictionary& /*context*/) override {
    if (!isFinal(to)) return;
    if (manager_ != nullptr) {
      manager_->removeTaskFromInProgressQueue(task);
      manager_->removeKey(task->name());
      manager_->startNextScheduledTask();
    }
    if (++ended == expected_) allEnded.release();
  }

  std::atomic<int> ended{0};
  std::binary_semaphore allEnded{0};

 private:
  TaskQueueManager* const manager_;
  const int expected_;
};

/// Tasks through the manager, or each started by who made it.
int runTasks(bool throughManager, int count) {
  TaskQueueManager manager;
  std::atomic<int> runs{0};
  const auto owner = std::make_shared<Owner>(throughManager ? &manager : nullptr, count);
  const auto start = Clock::now();
  (void)onAllThreads(count, [&](int from, int to) {
    for (int number = from; number < to; ++number) {
      const auto task = std::make_shared<EndingTask>(std::to_string(number), runs);
      task->subscribeForTaskUpdates(owner);
      if (throughManager) {
        manager.addTaskAndCheckStartExecution(task, task->name());
      } else {
        task->start();
      }
    }
  });
  const bool isComplete = owner->allEnded.try_acquire_for(std::chrono::seconds(120));
  const std::chrono::duration<double> took = Clock::now() - start;
  const bool isEmpty =
      manager.getInProgressQueueLength() == 0 && manager.getNextScheduledTask() == nullptr;
  fmt::print("{{\"rate\": {}, \"runs\": {}, \"ended\": {}}}\n", count / took.count(), runs.load(),
             owner->ended.load());
  return isComplete && isEmpty ? 0 : 1;
}

/// Six operations on a task of its own and, the last, on all: register, look up, schedule, ask for
/// the first, forget. Nothing is started, so that nothing but the manager is measured.
int runOperations(int count) {
  constexpr int kRound = 6;
  TaskQueueManager manager;
  std::atomic<int> wrong{0};
  std::atomic<int> runs{0};
  std::atomic<std::int64_t> done{0};
  const double seconds = onAllThreads(count, [&](int from, int to) {
    const auto task = std::make_shared<EndingTask>(std::to_string(from), runs);
    for (int number = from; number < to; number += kRound) {
      manager.addTask(task, task->name());
      if (manager.get(task->name()) != task) ++wrong;
      manager.addTaskToInProgressQueue(task);
      if (manager.getInProgressQueueLength() == 0) ++wrong;
      manager.removeTaskFromInProgressQueue(task);
      manager.removeKey(task->name());
      done += kRound;
    }
  });
  fmt::print("{{\"rate\": {}}}\n", static_cast<double>(done) / seconds);
  return wrong == 0 && manager.getInProgressQueueLength() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  const std::string_view argument = argc > 2 ? argv[2] : "";
  int count = 0;
  std::from_chars(argument.begin(), argument.end(), count);
  if (argc == 3 && count > 0) {
    if (mode == "operations") return runOperations(count);
    if (mode == "through" || mode == "direct") return runTasks(mode == "through", count);
  }
  fmt::print(stderr, "usage: varo_task_queue_bench operations|through|direct COUNT\n");
  return 2;
}
