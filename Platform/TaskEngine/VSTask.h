#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/Context.h"
#include "Platform/TaskEngine/Subtasks.h"
#include "Platform/TaskEngine/TaskListener.h"
#include "Platform/TaskEngine/TaskNotifications.h"
#include "Platform/TaskEngine/TaskRunner.h"
#include "Platform/TaskEngine/TaskState.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace varo::platform {

/// A unit of work with an input, an output and an error context, a state and listeners, which may
/// hold subtasks.
///
/// Always owned by `std::shared_ptr`. While it runs, a task is kept alive by what it waits for (a
/// queued job, a completion, a running subtask) and needs no other owner; when it has ended, or
/// when what it waits for is dropped, it is freed with its tree. Thread-safe, unless a subclass
/// says otherwise of its own members.
///
/// A run that has been started comes to exactly one end:
/// - Where its own code throws, or there is no memory to go on, it ends as Errored.
/// - Its listeners and its parent hear of the end even without memory, and after the runtime's
///   shutdown.
/// - After the shutdown there is no engine thread, so what changes a state then calls the listeners
///   itself: never change one with a lock held.
class VSTask : public Object, public TaskListener, public std::enable_shared_from_this<VSTask> {
 public:
  VSTask();
  explicit VSTask(std::string name);
  ~VSTask() override;

  /// Moves a task that is NotStarted to Started and has the engine call `execute`. Returns at once
  /// and calls nobody. Does nothing in any other state. After the runtime's shutdown, and without
  /// memory, the task is Errored.
  void start() noexcept;

  /// Does the work, on an engine thread, called by the engine only. The base runs the subtasks:
  /// those without open dependencies at once, each other when all it depends on have Ended. What it
  /// throws ends the task as Errored.
  virtual void execute();

  [[nodiscard]] TaskState state() const;
  /// Changes the state and notifies the listeners.
  /// - Setting the present state does nothing.
  /// - NotStarted, for a restart, is accepted only by a task that is paused or at its end, and one
  ///   at its end accepts nothing else. A restarted task runs all its subtasks anew, also those
  ///   that have not ended.
  /// - Neither pausing nor ending a task touches its subtasks: a subclass that means them tells
  ///   them.
  /// - A change that there is no memory for makes the task Errored; only one to NotStarted throws
  ///   `std::bad_alloc` instead, with nothing changed.
  void setState(TaskState state);

  [[nodiscard]] Dictionary inputContext() const { return _inputContext.snapshot(); }
  void setInputContext(Dictionary context) { _inputContext.replace(std::move(context)); }
  [[nodiscard]] Dictionary outputContext() const { return _outputContext.snapshot(); }
  [[nodiscard]] Dictionary errorContext() const { return _errorContext.snapshot(); }

  /// Records `error` (under `kTaskErrors` in the error context too) and moves the task to Errored.
  /// In a task that has come to its end it is only recorded. Where there is no memory to record it,
  /// an error of the engine says so in its place.
  void raiseError(ErrorPtr error) noexcept;
  /// Notifies the listeners without a change of state, with the contexts as they are now. Without
  /// memory the task is Errored.
  void raiseContextChangeEvent() noexcept;
  [[nodiscard]] std::vector<ErrorPtr> errors() const;

  /// Adds a listener, which is held weakly; it hears of changes from now on. Adding it twice is
  /// adding it once. Throws `std::bad_alloc`.
  void subscribeForTaskUpdates(const std::shared_ptr<TaskListener>& listener);
  /// Removes it. A notification that is being delivered may still reach it, no later one does.
  void unsubscribeForTaskUpdates(const std::shared_ptr<TaskListener>& listener) noexcept;

  /// Makes `subtask` a child, to be run by `execute`. Before `start` only. A subtask's input is
  /// this task's input, then the outputs of what it depends on.
  void addSubtask(const std::shared_ptr<VSTask>& subtask);
  /// `task2` runs only after `task1` has Ended. False, and an error in `error` unless that is null,
  /// when one is not a subtask of this task or the dependency would close a circle.
  bool addDependencyBetween(const std::shared_ptr<VSTask>& task1,
                            const std::shared_ptr<VSTask>& andTask2, ErrorPtr* error);

  /// Unique in the process.
  [[nodiscard]] std::int64_t ID() const noexcept { return id_; }
  /// Empty for a task made without one.
  [[nodiscard]] const std::string& name() const noexcept { return name_; }

  /// Does nothing: listeners override it.
  void task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
            const Dictionary& context) override;

  [[nodiscard]] std::string description() const override;

  /// How many tasks exist in the process, for leak checks. Who sees that one is gone also sees all
  /// that it did, and may free what it used.
  [[nodiscard]] static std::size_t liveCount() noexcept;

 protected:
  /// Called on an engine thread when a subtask has come to its end and its listeners have heard of
  /// it. The base gathers the subtask's output into this task's, starts what has become free, ends
  /// as Ended when all subtasks have, and as Errored when this one has not Ended. A task whose own
  /// listener decides overrides it.
  virtual void subtaskFinished(const std::shared_ptr<VSTask>& subtask, TaskState state);

  /// Runs `subtask`, a child that does not run, with `input`: a fresh state, empty output and
  /// errors. It keeps this task alive until it has come to its end; then `subtaskFinished` is
  /// called.
  /// With `Where::kHere` its `execute` is called on this thread, an engine thread, before this
  /// returns.
  enum class Where { kPool, kHere };
  void runSubtask(const std::shared_ptr<VSTask>& subtask, Dictionary input,
                  Where where = Where::kPool);

  /// Puts `subtask`, which has paused or come to its end, back to Started without calling its
  /// `execute` and with its contexts as they are; it keeps this task alive again.
  void resumeSubtask(const std::shared_ptr<VSTask>& subtask);
  /// A paused subtask waits for nothing, so it no longer keeps this task alive.
  void restSubtask(const std::shared_ptr<VSTask>& subtask);

  /// Takes over what a failed subtask left (errors, error context) and moves to Errored.
  void failWith(const VSTask& subtask) noexcept;

  /// The children that do not run now; a running one is held by what it waits for.
  [[nodiscard]] std::vector<std::shared_ptr<VSTask>> restingSubtasks() const;

  /// Runs `step`, a part of this task's work; what it throws, `std::bad_alloc` too, ends the task
  /// as Errored. For whatever is called outside of `execute`: completions of requests, timers.
  void guarded(const std::function<void()>& step) noexcept;
  /// The same without a copy of `step`, which could throw before it is guarded.
  template <typename Step>
  requires std::invocable<const Step&>
  void guarded(const Step& step) noexcept { guarded(std::function<void()>(std::cref(step))); }

  /// This task as the class that it is.
  template <typename T>
  [[nodiscard]] std::shared_ptr<T> self() {
    return std::static_pointer_cast<T>(shared_from_this());
  }

  Context _inputContext;
  Context _outputContext;
  Context _errorContext;

 private:
  /// Delivers what waits. In the pool or held back once at a time, since one delivery is under way
  /// at a time.
  class Delivery final : public ThreadPool::Work {
   public:
    explicit Delivery(VSTask& task) : task_(task) {}
    void run() override { task_.deliverAll(); }

   private:
    VSTask& task_;
  };
  /// What to do where there is no memory for a notification.
  enum class Memory { kNeeded, kSpared };

  // States.
  void change(TaskState to, Memory memory);
  [[nodiscard]] bool changeStateLocked(TaskState to, Memory memory) VARO_REQUIRES(mutex_);
  [[nodiscard]] bool becomeStarted() noexcept;
  void record(const Array& errors) noexcept;
  void failWithoutMemory() noexcept;

  // Notifications.
  [[nodiscard]] bool notifyLocked(TaskState from, TaskState to, Memory memory)
      VARO_REQUIRES(mutex_);
  void scheduleDelivery() noexcept;
  void deliverAll() noexcept;
  void deliver(const TaskNotifications::Notification& notification) noexcept;
  [[nodiscard]] std::shared_ptr<TaskListener> nextListener(std::uint64_t& after,
                                                           std::uint64_t before) const noexcept;

  // Runs of subtasks, as the parent and as the subtask.
  void startFreeSubtasks();
  void takeBack(const std::shared_ptr<VSTask>& subtask) noexcept;
  void beginRunFor(std::shared_ptr<VSTask> runner, Dictionary input);
  void continueRunFor(std::shared_ptr<VSTask> runner);
  void reportEndToRunner(std::uint64_t run, TaskState state) noexcept;

  const std::int64_t id_;
  const std::string name_;

  /// Never held while other code is called, nor together with another task's; a context's own may
  /// be taken inside it.
  mutable Mutex mutex_;
  TaskState state_ VARO_GUARDED_BY(mutex_) = TaskState::NotStarted;
  Array errors_ VARO_GUARDED_BY(mutex_);
  TaskNotifications notifications_ VARO_GUARDED_BY(mutex_);
  Subtasks subtasks_ VARO_GUARDED_BY(mutex_);
  TaskRunner runner_ VARO_GUARDED_BY(mutex_);
  Delivery delivery_{*this};
};

}  // namespace varo::platform
