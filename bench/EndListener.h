#pragma once

#include "Platform/TaskEngine/VSTask.h"
#include "bench/Ends.h"

#include <memory>

namespace varo::bench {

/// Counts the ends of tasks. `ends` outlives it.
class EndListener final : public platform::TaskListener {
 public:
  explicit EndListener(Ends& ends) : ends_(ends) {}
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState /*from*/,
            platform::TaskState to, const platform::Dictionary& /*context*/) override {
    if (to == platform::TaskState::Ended) ends_.succeeded();
    if (to == platform::TaskState::Errored) ends_.failed(task->errorContext());
  }

 private:
  Ends& ends_;
};

}  // namespace varo::bench
