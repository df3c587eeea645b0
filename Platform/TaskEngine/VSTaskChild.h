#pragma once

#include "Platform/TaskEngine/VSTask.h"

#include <memory>
#include <vector>

namespace varo::platform {

/// A subtask and what the parent knows of it. Guarded by the parent's mutex.
struct VSTask::Child {
  const VSTask* identity;
  /// Empty while it runs: then it holds its parent, and a circle would keep a tree alive whose work
  /// was dropped.
  std::shared_ptr<VSTask> resting;
  /// Set once it has been run.
  std::weak_ptr<VSTask> running;
  std::vector<const VSTask*> dependencies;
  bool started = false;
  bool ended = false;
};

}  // namespace varo::platform
