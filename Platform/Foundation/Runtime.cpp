#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace varo::platform {
namespace {

ThreadPool::Options poolOptions() {
  // Jobs are short or wait for the disk; two threads a core keep a small machine busy, and more
  // than eight only add hand-overs.
  const std::size_t threads = 2 * static_cast<std::size_t>(std::thread::hardware_concurrency());
  return {.name = "varo-work", .coreThreads = std::clamp<std::size_t>(threads, 2, 6)};
}

}  // namespace

Runtime& Runtime::shared() {
  static Runtime* const instance = [] {
    auto* runtime = new Runtime();  // never destroyed: threads may outlive static objects
    static const pid_t owner = ::getpid();
    std::atexit([] {
      // A forked child has the objects without their threads: to join those would never end.
      if (::getpid() == owner) shared().shutdown();
    });
    return runtime;
  }();
  return *instance;
}

Runtime::Runtime() : pool_(poolOptions(), growth_) {}

void Runtime::onShutdown(std::function<void()> step) {
  const MutexLock lock(mutex_);
  steps_.push_back(std::move(step));
}

void Runtime::shutdown() {
  // A job of the pool that asks for the shutdown: the pool's end would wait for this very job.
  if (pool_.runsInThisThread()) return endWaits();
  const MutexLock oneAtATime(shutdownMutex_);
  // First, since jobs may be in these waits, and the pool's end waits for them.
  endWaits();
  pool_.shutdown();
  growth_.shutdown();
}

void Runtime::endWaits() {
  std::vector<std::function<void()>> steps;
  {
    const MutexLock lock(mutex_);
    shutDown_ = true;
    // Run without the lock: a step may ask `isShutDown`, or register another.
    steps.swap(steps_);
  }
  std::for_each(steps.rbegin(), steps.rend(), [](const auto& step) {
    ThreadPool::runHere(step);
  });  // one that throws ends no other
  timers_.shutdown();
}

bool Runtime::isShutDown() const {
  const MutexLock lock(mutex_);
  return shutDown_;
}

}  // namespace varo::platform
