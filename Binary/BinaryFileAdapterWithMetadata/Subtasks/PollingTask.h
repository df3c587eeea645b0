#pragma once

#include "Platform/Foundation/Random.h"
#include "Platform/TaskEngine/VSAbstractLoopingTask.h"

#include <cstdint>
#include <memory>

namespace varo::binary {

class CancellableSleeper;

/// Asks for the status of an accepted operation until it is finished: runs a `StatusCheckerTask`,
/// whose input is the loop's, as PollingSchedule.h says. Between two attempts it sleeps for a
/// random time whose bound grows, without holding a thread; a cancellation of the operation wakes
/// it at once.
///
/// Ends as Ended when the operation is finished, as Errored when an attempt failed or the last one
/// found it unfinished, or with the runtime's shutdown.
class PollingTask final : public platform::VSAbstractLoopingTask {
 public:
  /// `error` is set, unless it is null, where the loop cannot be made. `random` and `sleeper` must
  /// outlive the loop.
  explicit PollingTask(platform::ErrorPtr* error = nullptr,
                       platform::Random& random = platform::Random::system(),
                       platform::Sleeper& sleeper = platform::Sleeper::shared());

  ~PollingTask() override;

  void execute() override;

  [[nodiscard]] bool shouldIterate(platform::TaskState subTaskState) override;
  void transformInputContextForNextIteration() override;
  [[nodiscard]] bool treatErrorAsSuccess() override;

 private:
  PollingTask(platform::ErrorPtr* error, platform::Random& random,
              std::unique_ptr<CancellableSleeper> sleeper);
  void exponentialBackoffDelay();

  const std::unique_ptr<CancellableSleeper> sleeper_;
  platform::Random& random_;
  /// The number of the attempt, from 1. Touched by the loop's steps, which follow one another.
  std::int32_t retryIndex = 1;
};

}  // namespace varo::binary
