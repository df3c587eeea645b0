#pragma once

#include "Platform/TaskEngine/VSTask.h"

#include <memory>

namespace varo::binary {

/// Holds the place of a step that encrypts what is stored: ends at once and changes nothing. No
/// download has it.
class CipherTask final : public platform::VSTask {
 public:
  using VSTask::VSTask;

  void execute() override;

  /// Only logs what it is told; `execute` tells it of its own end.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;
};

}  // namespace varo::binary
