#pragma once

#include "Platform/Foundation/Dictionary.h"
#include "Platform/TaskEngine/TaskState.h"

#include <memory>
#include <string_view>

namespace varo::platform {

class VSTask;

/// Key of a notification's context under which the task's output context stands.
inline constexpr std::string_view kTaskOutputContext = "OutputContext";
/// Key under which the array of errors raised in the task or its subtasks stands, in a
/// notification's context and in a task's error context.
inline constexpr std::string_view kTaskErrors = "Errors";

/// Is told of a task's changes of state.
class TaskListener {
 public:
  virtual ~TaskListener() = default;

  /// `task` went from one state to another, or raised a context change (then both are the same).
  /// `context` is what it was at that moment: `kTaskOutputContext`, and `kTaskErrors` where there
  /// are errors. The notifications of one task arrive one at a time and in order, on engine threads
  /// (after the runtime's shutdown on the thread that changes the task), with no lock of ours held.
  /// What it throws is logged and goes no further.
  virtual void task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                    const Dictionary& context) = 0;
};

}  // namespace varo::platform
