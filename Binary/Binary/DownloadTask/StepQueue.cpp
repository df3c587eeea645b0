#include "Binary/Binary/DownloadTask/StepQueue.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/TaskEngine/DeliveryHold.h"

#include <exception>
#include <utility>

namespace varo::binary {

StepQueue::StepQueue(const char* label) : queue_(label) {}

void StepQueue::run(const std::function<Effects()>& step) {
  // Made before the step, so that nothing can fail between a state and what follows from it.
  std::list<Batch> made(1);
  std::uint64_t own = 0;
  const bool isInStep = queue_.runsInThisThread();
  {
    // What the step makes tasks tell their listeners is delivered when this goes, after the step: a
    // listener may call anything.
    const platform::DeliveryHold hold;
    queue_.sync([&] {
      made.front().effects = step();
      // Inside the step, so that their order is that of the steps.
      const MutexLock lock(mutex_);
      own = made.front().number = ++lastNumber_;
      batches_.splice(batches_.end(), made);
    });
  }
  if (!isInStep) runEffects(own);
}

/// An effect that makes a step waits for what comes of it, as any other caller does; what was
/// decided before comes first.
void StepQueue::runEffects(std::uint64_t own) noexcept {
  bool isNested = false;
  {
    const MutexLock lock(mutex_);
    isNested = runner_ == std::this_thread::get_id();
    // The other thread takes these effects too: it gives `runner_` up under the lock under which it
    // has found nothing more to do.
    if (!isNested && runner_ != std::thread::id()) return;
    runner_ = std::this_thread::get_id();
  }
  while (true) {
    std::list<Batch> due;
    {
      const MutexLock lock(mutex_);
      // What came after its own step is left to the loop that called the nested effect.
      const bool isDone = batches_.empty() || (isNested && batches_.front().number > own);
      if (isDone) {
        if (!isNested) runner_ = {};
        return;
      }
      due.splice(due.begin(), batches_, batches_.begin());
    }
    runAll(due.front().effects);
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
