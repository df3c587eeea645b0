#pragma once

#include <cstdint>

namespace varo::platform {

/// What a task is doing. The numbers are part of the platform's interface.
enum class TaskState : std::uint32_t {
  NotStarted = 0,
  Started = 1,
  Paused = 3,
  Ended = 6,
  Errored = 7,
  Stopped = 8,
};

/// Whether a task in this state has come to its end: Ended, Errored or Stopped.
[[nodiscard]] constexpr bool isFinal(TaskState state) noexcept {
  return state == TaskState::Ended || state == TaskState::Errored || state == TaskState::Stopped;
}

/// The changes of state that `VSTask::setState` makes:
///
/// - what has come to its end or has paused may go back to NotStarted, for a restart;
/// - what has not come to its end may go to any other state.
[[nodiscard]] constexpr bool mayChange(TaskState from, TaskState to) noexcept {
  if (from == to) return false;
  if (to == TaskState::NotStarted) return isFinal(from) || from == TaskState::Paused;
  return !isFinal(from);
}

}  // namespace varo::platform
