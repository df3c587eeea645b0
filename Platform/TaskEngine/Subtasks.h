#pragma once

#include <memory>
#include <vector>

namespace varo::platform {

class VSTask;

/// What a task knows of its subtasks: which of them rest, run and have ended, and what each waits
/// for.
///
/// - A subtask is held while it rests and not while it runs: then it holds its parent
///   (`TaskRunner`), and a circle would keep a tree alive whose work was dropped.
/// - Dependencies close no circle, so in every run each subtask becomes free at some time.
///
/// Not thread-safe: the parent's mutex guards it. Nothing here calls a subtask.
class Subtasks {
 public:
  using TaskPtr = std::shared_ptr<VSTask>;

  void add(const TaskPtr& subtask);
  /// `after` runs only after `before` has Ended. False where one is not a subtask, or where
  /// `before` waits for `after`, through any number of dependencies.
  [[nodiscard]] bool addDependency(const VSTask* before, const VSTask* after);

  /// Those that do not run now.
  [[nodiscard]] std::vector<TaskPtr> resting() const;

  /// A run of the parent begins: every subtask is run anew.
  void beginRun();

  struct Free {
    TaskPtr subtask;  // null where it was dropped while it ran
    std::vector<TaskPtr> predecessors;
  };
  struct Next {
    std::vector<Free> free;  // in the order in which they were added
    bool allEnded = true;
  };
  /// Those that wait for nothing any more and have not been handed out in this run.
  [[nodiscard]] Next takeFree();

  // A task that is not a subtask changes nothing.
  void setRunning(const TaskPtr& subtask) noexcept;
  void setResting(const TaskPtr& subtask) noexcept;
  void setEnded(const VSTask* subtask) noexcept;

 private:
  struct Child {
    const VSTask* identity;
    TaskPtr resting;                // empty while it runs
    std::weak_ptr<VSTask> running;  // set once it has been run
    std::vector<const VSTask*> dependencies;
    bool started = false;
    bool ended = false;
  };

  [[nodiscard]] Child* find(const VSTask* task) noexcept;
  [[nodiscard]] bool dependsOn(const VSTask* dependent, const VSTask* task) const;

  std::vector<Child> children_;
};

}  // namespace varo::platform
