#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/CancellableSleeper.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingSchedule.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/StatusCheckerTask.h"

#include <chrono>
#include <memory>
#include <utility>

namespace varo::binary {

PollingTask::PollingTask(platform::ErrorPtr* error, platform::Random& random,
                         platform::Sleeper& sleeper)
    : PollingTask(error, random, std::make_unique<CancellableSleeper>(sleeper)) {}

PollingTask::PollingTask(platform::ErrorPtr* error, platform::Random& random,
                         std::unique_ptr<CancellableSleeper> sleeper)
    : VSAbstractLoopingTask(std::make_shared<StatusCheckerTask>(error), error, *sleeper),
      sleeper_(std::move(sleeper)),
      random_(random) {}

PollingTask::~PollingTask() = default;

void PollingTask::execute() {
  sleeper_->setCancellation(OperationSettings::of(inputContext())->cancellation);
  VSAbstractLoopingTask::execute();
}

bool PollingTask::shouldIterate(TaskState subTaskState) {
  return VSAbstractLoopingTask::shouldIterate(subTaskState) && subTaskState != TaskState::Errored &&
         !_outputContext.get(keys::kPollingStatus).boolValue() &&
         retryIndex <= polling::kMaxStatusRequests;
}

void PollingTask::transformInputContextForNextIteration() {
  exponentialBackoffDelay();
  ++retryIndex;
  _inputContext.set(keys::kCurrentIteration, retryIndex);
}

/// Draws whole seconds, each number of them up to the longest wait as likely as the others.
void PollingTask::exponentialBackoffDelay() {
  const std::int64_t greatest = polling::longestWaitAfter(retryIndex).count();
  sleepBeforeNextIteration(std::chrono::seconds(random_.integer(0, greatest)));
}

bool PollingTask::treatErrorAsSuccess() { return false; }

}  // namespace varo::binary
