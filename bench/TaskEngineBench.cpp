// Question: what do a leaf task and a loop iteration cost beside the bare hand-overs between
// threads that each needs? A leaf needs two (start to execute, end to listener), an iteration one
// (end of the subtask to the loop). The goal is at most three times the bare ones, whether these
// run on the runtime's own pool or on Boost.Asio's.

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

/// Posts `count` jobs, each from the one before; the last releases `done`.
void handOver(int count, int number, std::binary_semaphore& done) {
  (void)Runtime::shared().pool().post([count, number, &done] {
    if (number + 1 == count) {
      done.release();
    } else {
      handOver(count, number + 1, done);
    }
  });
}

/// The same with a pool of Boost.Asio.
void asioHandOver(boost::asio::thread_pool& pool, int count, int number,
                  std::binary_semaphore& done) {
  boost::asio::post(pool, [&pool, count, number, &done] {
    if (number + 1 == count) {
      done.release();
    } else {
      asioHandOver(pool, count, number + 1, done);
    }
  });
}

void BareHandOversOfALeaf(benchmark::State& state) {
  std::binary_semaphore done{0};
  while (state.KeepRunning()) {
    handOver(2, 0, done);
    done.acquire();
  }
}
BENCHMARK(BareHandOversOfALeaf)->UseRealTime();

void BareAsioHandOversOfALeaf(benchmark::State& state) {
  boost::asio::thread_pool pool(4);
  std::binary_semaphore done{0};
  while (state.KeepRunning()) {
    asioHandOver(pool, 2, 0, done);
    done.acquire();
  }
}
BENCHMARK(BareAsioHandOversOfALeaf)->UseRealTime();

void LeafFromStartToListener(benchmark::State& state) {
  const auto signal = std::make_shared<EndSignal>();
  while (state.KeepRunning()) {
    const auto task = std::make_shared<EndingTask>();
    task->subscribeForTaskUpdates(signal);
    task->start();
    signal->seen.acquire();
  }
}
BENCHMARK(LeafFromStartToListener)->UseRealTime();

void BareHandOversOfAnIteration(benchmark::State& state) {
  std::binary_semaphore done{0};
  while (state.KeepRunning()) {
    handOver(kIterations, 0, done);
    done.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kIterations);
}
BENCHMARK(BareHandOversOfAnIteration)->UseRealTime();

void BareAsioHandOversOfAnIteration(benchmark::State& state) {
  boost::asio::thread_pool pool(4);
  std::binary_semaphore done{0};
  while (state.KeepRunning()) {
    asioHandOver(pool, kIterations, 0, done);
    done.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kIterations);
}
BENCHMARK(BareAsioHandOversOfAnIteration)->UseRealTime();

void LoopIteration(benchmark::State& state) {
  const auto signal = std::make_shared<EndSignal>();
  while (state.KeepRunning()) {
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
