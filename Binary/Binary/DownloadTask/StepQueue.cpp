#include "Binary/Binary/DownloadTask/StepQueue.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/TaskEngine/DeliveryHold.h"

#include <exception>
#include <utility>

namespace varo::binary {

using platform::MutexLock;

StepQueue::StepQueue(std::string label) : queue_(std::move(label)) {}

void StepQueue::run(const std::function<Effects()>& step) {
  // Made before the step, so that nothing can fail between a state and what follows from it.
  std::list<Effects> made(1);
  const bool isInStep = queue_.runsInThisThread();
  // An effect that makes a step waits for what comes of it, as any other caller does.
  const bool isNested = !isInStep && runsEffectsHere();
  {
    const platform::DeliveryHold hold;
    queue_.sync([&] {
      made.front() = step();
      if (isNested) return;
      // Inside the step, so that their order is that of the steps.
      const MutexLock lock(mutex_);
      effects_.splice(effects_.end(), made);
    });
  }
  if (isNested) return runAll(made.front());
  if (!isInStep) runEffects();
}

bool StepQueue::runsEffectsHere() const {
  const MutexLock lock(mutex_);
  return runner_ == std::this_thread::get_id();
}

void StepQueue::runEffects() noexcept {
  while (true) {
    std::list<Effects> due;
    {
      const MutexLock lock(mutex_);
      const bool isAnother = runner_ != std::thread::id() && runner_ != std::this_thread::get_id();
      if (isAnother) return;
      if (effects_.empty()) {
        runner_ = {};
        return;
      }
      runner_ = std::this_thread::get_id();
      due.splice(due.begin(), effects_, effects_.begin());
    }
    runAll(due.front());
  }
}

void StepQueue::runAll(Effects& effects) const noexcept {
  for (Effect& effect : effects) {
    runEffect(effect);
    effect = nullptr;  // what it holds goes before the next one runs
  }
}

void StepQueue::runEffect(const Effect& effect) const noexcept {
  try {
    effect();
  } catch (const std::exception& exception) {
    tell(exception.what());
  } catch (...) {
    tell(kUnknownException);
  }
}

void StepQueue::tell(std::string_view what) const noexcept {
  if (onThrow_) platform::ThreadPool::runHere([&] { onThrow_(what); });
}

}  // namespace varo::binary
