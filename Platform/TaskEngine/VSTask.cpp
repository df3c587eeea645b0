#include "Platform/TaskEngine/VSTask.h"

#include "Platform/Foundation/Runtime.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/TaskEngine/DeliveryHold.h"
#include "Platform/TaskEngine/EngineErrors.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

namespace varo::platform {
namespace {

std::atomic<std::int64_t> nextId{1};
std::atomic<std::size_t> liveTasks{0};

/// A log sink is the host's code: what it throws must not end the delivery of notifications.
void logListenerFailure(const VSTask& task, std::string_view what) noexcept {
  try {
    static const auto& log = *new VaroNativeFacade("TaskEngine", {});  // used until the very end
    log.logError(fmt::format("A listener of {} threw: {}", task.description(), what));
  } catch (...) {
    std::fputs("varo: a listener and then the log threw\n", stderr);
  }
}

}  // namespace

VSTask::VSTask() : VSTask(std::string()) {}

VSTask::VSTask(std::string name)
    : id_(nextId.fetch_add(1, std::memory_order_relaxed)), name_(std::move(name)) {
  // Made here at the latest, where a failure reaches the task's creator.
  (void)outOfMemory();
  (void)Runtime::shared();
  liveTasks.fetch_add(1, std::memory_order_relaxed);
}

VSTask::~VSTask() { liveTasks.fetch_sub(1, std::memory_order_release); }

std::size_t VSTask::liveCount() noexcept { return liveTasks.load(std::memory_order_acquire); }

std::string VSTask::description() const {
  return name_.empty() ? fmt::format("task {}", id_) : fmt::format("task {} ({})", id_, name_);
}

void VSTask::task(const std::shared_ptr<VSTask>& /*task*/, TaskState /*from*/, TaskState /*to*/,
                  const Dictionary& /*context*/) {}

// States.

TaskState VSTask::state() const {
  const MutexLock lock(mutex_);
  return state_;
}

std::vector<ErrorPtr> VSTask::errors() const {
  Array recorded;
  {
    const MutexLock lock(mutex_);
    recorded = errors_;
  }
  std::vector<ErrorPtr> errors;
  for (const Value& error : recorded) errors.push_back(error.error());
  return errors;
}

// All of these change under the lock and schedule the delivery without it: after the runtime's
// shutdown the listeners are called right there, on this thread, and may change the task.

/// False in any state but NotStarted.
bool VSTask::becomeStarted() noexcept {
  try {
    bool deliver = false;
    {
      const MutexLock lock(mutex_);
      if (state_ != TaskState::NotStarted) return false;
      deliver = changeStateLocked(TaskState::Started, Memory::kNeeded);
    }
    if (deliver) scheduleDelivery();
    return true;
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
    return false;
  }
}

void VSTask::start() noexcept {
  if (!becomeStarted()) return;
  guarded([this] {
    ThreadPool::Job run = [self = shared_from_this()] { self->guarded([&] { self->execute(); }); };
    if (Runtime::shared().pool().post(std::move(run))) return;
    raiseError(engineError(*this, kEngineShutDown, "The task engine has been shut down"));
  });
}

void VSTask::setState(TaskState state) {
  if (state == TaskState::NotStarted) return change(state, Memory::kNeeded);
  try {
    change(state, Memory::kNeeded);
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
  }
}

/// Throws `std::bad_alloc` with nothing changed, unless `memory` is spared.
void VSTask::change(TaskState to, Memory memory) {
  Array forgotten;  // destroyed after the lock is released
  bool restarted = false;
  bool deliver = false;
  {
    const MutexLock lock(mutex_);
    restarted = to == TaskState::NotStarted && mayChange(state_, to);
    if (restarted) {
      // All that may throw comes before the state changes.
      notifications_.keepSpare();
      std::swap(errors_, forgotten);
    }
    try {
      deliver = changeStateLocked(to, memory);
    } catch (...) {
      if (restarted) std::swap(errors_, forgotten);
      throw;
    }
  }
  if (restarted && !forgotten.empty()) _errorContext.replace({});
  if (deliver) scheduleDelivery();
}

void VSTask::raiseError(ErrorPtr error) noexcept {
  try {
    // First, so that the notification of the end has it.
    record({std::move(error)});
    change(TaskState::Errored, Memory::kNeeded);
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
  }
}

/// Adds to the errors; where there is no memory for that they stay as they are, and are not empty.
void VSTask::record(const Array& errors) noexcept {
  Value former;  // destroyed after the lock is released
  try {
    const MutexLock lock(mutex_);
    Array recorded = errors_;
    for (const Value& error : errors) recorded.append(error);
    if (recorded.empty()) return;
    std::swap(errors_, recorded);
    // Under the task's lock, so that errors raised at once stand in both in the same order.
    former = _errorContext.get(kTaskErrors);
    _errorContext.set(kTaskErrors, errors_);
  } catch (const std::bad_alloc&) {
    const OutOfMemory& fallback = outOfMemory();
    bool isFirst = false;
    {
      const MutexLock lock(mutex_);
      isFirst = errors_.empty();
      if (isFirst) errors_ = fallback.errors;
    }
    if (isFirst || !_errorContext.get(kTaskErrors).isArray()) {
      _errorContext.replace(fallback.errorContext);
    }
  }
}

/// The end of a task for which there is no memory: what it needs is there already.
void VSTask::failWithoutMemory() noexcept {
  record(outOfMemory().errors);
  change(TaskState::Errored, Memory::kSpared);
}

void VSTask::raiseContextChangeEvent() noexcept {
  try {
    bool deliver = false;
    {
      const MutexLock lock(mutex_);
      deliver = notifyLocked(state_, state_, Memory::kNeeded);
    }
    if (deliver) scheduleDelivery();
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
  }
}

/// Where a task changes its own state. Whether a delivery is to be scheduled. As `change`.
bool VSTask::changeStateLocked(TaskState to, Memory memory) {
  if (!mayChange(state_, to)) return false;
  // First, since it may throw: then nothing has changed.
  const bool deliver = notifyLocked(state_, to, memory);
  state_ = to;
  return deliver;
}

/// Under the lock that the state changes under, so that notifications have the order of the
/// changes.
bool VSTask::notifyLocked(TaskState from, TaskState to, Memory memory) {
  const bool endsRun = from != to && isFinal(to);
  const bool hasListeners = notifications_.hasListeners();
  TaskNotifications::Notification notification;
  notification.from = from;
  notification.to = to;
  if (endsRun) notification.endedRun = runner_.current();
  if (!hasListeners && notification.endedRun == TaskRunner::kNoRun) return false;
  if (memory == Memory::kSpared) {
    notification.context = outOfMemory().notification;
    return notifications_.addSpare(std::move(notification));
  }
  if (hasListeners) {
    Dictionary& context = notification.context;
    context.set(std::string(kTaskOutputContext), _outputContext.snapshot());
    if (!errors_.empty()) context.set(std::string(kTaskErrors), errors_);
  }
  return notifications_.add(std::move(notification));
}

void VSTask::scheduleDelivery() noexcept {
  // Shares the ownership of the task; a pool that refuses it has it run here.
  DeliveryHold::deliver(std::shared_ptr<ThreadPool::Work>(shared_from_this(), &delivery_));
}

/// Runs on one thread at a time, which is what keeps the order.
void VSTask::deliverAll() noexcept {
  while (true) {
    TaskNotifications::Taken next;
    {
      const MutexLock lock(mutex_);
      next = notifications_.takeNext();
    }
    if (next.empty()) return;
    deliver(next.front());
    next.front() = {};  // its context goes before the lock is taken
    const MutexLock lock(mutex_);
    notifications_.giveBack(next);
  }
}

/// The lock is taken anew for each listener and held in none of their calls. The runner is told
/// last: its step may run this task again, and its listeners have then heard of the former end.
void VSTask::deliver(const TaskNotifications::Notification& notification) noexcept {
  std::uint64_t after = 0;
  while (const auto listener = nextListener(after, notification.number)) {
    try {
      listener->task(shared_from_this(), notification.from, notification.to, notification.context);
    } catch (const std::exception& exception) {
      logListenerFailure(*this, exception.what());
    } catch (...) {
      logListenerFailure(*this, "an unknown exception");
    }
  }
  if (notification.endedRun != TaskRunner::kNoRun) {
    reportEndToRunner(notification.endedRun, notification.to);
  }
}

/// Two levels, since what describes the failure of a step may run out of memory itself.
void VSTask::guarded(const std::function<void()>& step) noexcept {
  try {
    try {
      step();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& exception) {
      raiseError(engineError(*this, kStepThrew, exception.what()));
    } catch (...) {
      raiseError(engineError(*this, kStepThrew, "An unknown exception"));
    }
  } catch (const std::bad_alloc&) {
    failWithoutMemory();
  }
}

void VSTask::subscribeForTaskUpdates(const std::shared_ptr<TaskListener>& listener) {
  if (listener == nullptr) return;
  const MutexLock lock(mutex_);
  notifications_.subscribe(listener);
}

void VSTask::unsubscribeForTaskUpdates(const std::shared_ptr<TaskListener>& listener) noexcept {
  const MutexLock lock(mutex_);
  notifications_.unsubscribe(listener);
}

std::shared_ptr<TaskListener> VSTask::nextListener(std::uint64_t& after,
                                                   std::uint64_t before) const noexcept {
  const MutexLock lock(mutex_);
  return notifications_.nextListener(after, before);
}

}  // namespace varo::platform
