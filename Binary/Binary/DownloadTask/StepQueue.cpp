#include "Binary/Binary/DownloadTask/StepQueue.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <exception>
#include <iterator>
#include <utility>

namespace varo::binary {

using platform::MutexLock;

StepQueue::StepQueue(std::string label)
    : queue_(std::make_shared<platform::SerialQueue>(std::move(label))) {}

void StepQueue::run(const std::function<Effects()>& step) {
  // An effect that makes a step waits for what comes of it, as any other caller does.
  const bool isNested = runsEffectsHere();
  Effects own;
  queue_->sync([&] {
    Effects effects = step();
    if (isNested) return own.swap(effects);
    // Inside the step, so that their order is that of the steps.
    const MutexLock lock(mutex_);
    effects_.insert(effects_.end(), std::make_move_iterator(effects.begin()),
                    std::make_move_iterator(effects.end()));
  });
  if (!isNested) return runEffects();
  for (const Effect& effect : own) runEffect(effect);
}

bool StepQueue::runsEffectsHere() const {
  const MutexLock lock(mutex_);
  return runner_ == std::this_thread::get_id();
}

void StepQueue::runEffects() {
  while (true) {
    Effect effect;
    {
      const MutexLock lock(mutex_);
      const bool isAnother = runner_ != std::thread::id() && runner_ != std::this_thread::get_id();
      if (isAnother) return;
      if (effects_.empty()) {
        runner_ = {};
        return;
      }
      runner_ = std::this_thread::get_id();
      effect = std::move(effects_.front());
      effects_.pop_front();
    }
    runEffect(effect);
  }
}

void StepQueue::runEffect(const Effect& effect) const {
  try {
    effect();
  } catch (const std::exception& exception) {
    if (onThrow_) onThrow_(exception.what());
  } catch (...) {
    if (onThrow_) onThrow_(kUnknownException);
  }
}

}  // namespace varo::binary
