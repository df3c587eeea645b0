// Question: what do a leaf task and a loop iteration cost beside the bare hand-overs between
// threads that each needs? A leaf needs two (start to execute, end to listener), an iteration three
// (execute, end of the subtask, step). The goal is at most three times the bare ones, whether these
// run on the runtime's own pools or on Boost.Asio's.

#include "Platform/Foundation/Runtime.h"
#include "Platform/TaskEngine/VSAbstractLoopingTask.h"
#include "Platform/TaskEngine/VSTask.h"

#include <benchmark/benchmark.h>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <functional>
#include <memory>
#include <semaphore>

namespace varo::platform {
namespace {

constexpr int kIterations = 1000;

class EndingTask final : public VSTask {
 public:
  void execute() override { setState(TaskState::Ended); }
};

class Loop final : public VSAbstractLoopingTask {
 public:
  Loop() : VSAbstractLoopingTask(std::make_shared<EndingTask>(), nullptr) {}
  bool shouldIterate(TaskState state) override {
    return VSAbstractLoopingTask::shouldIterate(state) && ++done_ < kIterations;
  }

 private:
  int done_ = 0;
};

class EndSignal final : public TaskListener {
 public:
  void task(const std::shared_ptr<VSTask>&, TaskState, TaskState to, const Dictionary&) override {
    if (isFinal(to)) seen.release();
  }
  std::binary_semaphore seen{0};
};

/// Posts `count` jobs, each from the one before, to one pool or to two in turn, and waits for the
/// last.
void handOver(int count, int number, std::binary_semaphore& done) {
  Runtime& runtime = Runtime::shared();
  ThreadPool& pool = number % 3 == 2 ? runtime.loopSteps() : runtime.pool();
  (void)pool.post([count, number, &done] {
    if (number + 1 == count) {
      done.release();
    } else {
      handOver(count, number + 1, done);
    }
  });
}

/// The same with pools of Boost.Asio.
struct AsioPools {
  boost::asio::thread_pool tasks{4};
  boost::asio::thread_pool loopSteps{1};
};

void asioHandOver(AsioPools& pools, int count, int number, std::binary_semaphore& done) {
  boost::asio::thread_pool& pool = number % 3 == 2 ? pools.loopSteps : pools.tasks;
  boost::asio::post(pool, [&pools, count, number, &done] {
    if (number + 1 == count) {
      done.release();
    } else {
      asioHandOver(pools, count, number + 1, done);
    }
  });
}

void BareHandOversOfALeaf(benchmark::State& state) {
  std::binary_semaphore done{0};
  for (auto _ : state) {
    handOver(2, 0, done);
    done.acquire();
  }
}
BENCHMARK(BareHandOversOfALeaf)->UseRealTime();

void BareAsioHandOversOfALeaf(benchmark::State& state) {
  AsioPools pools;
  std::binary_semaphore done{0};
  for (auto _ : state) {
    asioHandOver(pools, 2, 0, done);
    done.acquire();
  }
}
BENCHMARK(BareAsioHandOversOfALeaf)->UseRealTime();

void LeafFromStartToListener(benchmark::State& state) {
  const auto signal = std::make_shared<EndSignal>();
  for (auto _ : state) {
    const auto task = std::make_shared<EndingTask>();
    task->subscribeForTaskUpdates(signal);
    task->start();
    signal->seen.acquire();
  }
}
BENCHMARK(LeafFromStartToListener)->UseRealTime();

void BareHandOversOfAnIteration(benchmark::State& state) {
  std::binary_semaphore done{0};
  for (auto _ : state) {
    handOver(3 * kIterations, 0, done);
    done.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kIterations);
}
BENCHMARK(BareHandOversOfAnIteration)->UseRealTime();

void BareAsioHandOversOfAnIteration(benchmark::State& state) {
  AsioPools pools;
  std::binary_semaphore done{0};
  for (auto _ : state) {
    asioHandOver(pools, 3 * kIterations, 0, done);
    done.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kIterations);
}
BENCHMARK(BareAsioHandOversOfAnIteration)->UseRealTime();

void LoopIteration(benchmark::State& state) {
  const auto signal = std::make_shared<EndSignal>();
  for (auto _ : state) {
    const auto loop = std::make_shared<Loop>();
    loop->subscribeForTaskUpdates(signal);
    loop->start();
    signal->seen.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kIterations);
}
BENCHMARK(LoopIteration)->UseRealTime();

}  // namespace
}  // namespace varo::platform

BENCHMARK_MAIN();
