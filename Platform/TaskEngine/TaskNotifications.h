#pragma once

#include "Platform/Foundation/Dictionary.h"
#include "Platform/TaskEngine/TaskListener.h"
#include "Platform/TaskEngine/TaskRunner.h"

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

namespace varo::platform {

/// The listeners of one task, and what they have not been told yet.
///
/// - Order: notifications leave in the order in which they were added. Whoever gets true from `add`
///   delivers until `takeNext` has none; meanwhile `add` answers false, so that one thread at a
///   time delivers.
/// - Who hears what: subscriptions and notifications are numbered in one sequence, and a listener
///   hears of what was added after its subscription.
/// - The spare: a notification that was made in advance, so that the end of a run can be told
///   without memory. There is one wherever the task has not come to its end: `addSpare` uses it up
///   for that end, a delivered notification takes its place, and `keepSpare` makes one before a
///   new run.
///
/// Not thread-safe: the task's mutex guards it. Nothing here calls a listener.
class TaskNotifications {
 public:
  struct Notification {
    TaskState from = TaskState::NotStarted;
    TaskState to = TaskState::NotStarted;
    Dictionary context;
    std::uint64_t endedRun = TaskRunner::kNoRun;  // which run for a runner this ended, or none
    std::uint64_t number = 0;                     // set by `add`
  };
  /// None or one: the element of a list changes its place without memory.
  using Taken = std::list<Notification>;

  /// With a spare. Throws `std::bad_alloc`.
  TaskNotifications() : spare_(1) {}

  /// Holds `listener` weakly; a second time is as once. Throws `std::bad_alloc`.
  void subscribe(const std::shared_ptr<TaskListener>& listener);
  void unsubscribe(const std::shared_ptr<TaskListener>& listener) noexcept;
  [[nodiscard]] bool hasListeners() const noexcept { return !listeners_.empty(); }

  /// Queues a notification. True: the caller sees to a delivery. Throws `std::bad_alloc`, with
  /// nothing queued.
  [[nodiscard]] bool add(Notification notification);
  /// The same in the place of the spare, without memory.
  [[nodiscard]] bool addSpare(Notification notification) noexcept;
  /// Before a task that has come to its end runs anew. Throws `std::bad_alloc`.
  void keepSpare();

  /// The next one to deliver. Empty: there is none, and this delivery is over.
  [[nodiscard]] Taken takeNext() noexcept;
  /// Makes what has been delivered the spare where there is none.
  void giveBack(Taken& delivered) noexcept;

  /// The first listener whose number is between the two, and `after` becomes its number; null when
  /// there is none. One at a time, since a listener may unsubscribe another.
  [[nodiscard]] std::shared_ptr<TaskListener> nextListener(std::uint64_t& after,
                                                           std::uint64_t before) const noexcept;

 private:
  struct Listener {
    std::weak_ptr<TaskListener> listener;
    std::uint64_t number;
  };

  [[nodiscard]] bool queue(Taken& added, Notification&& notification) noexcept;

  std::vector<Listener> listeners_;
  /// At most a few states and, for a task that raises context changes, as many as its own flow
  /// control lets it raise.
  std::list<Notification> waiting_;
  std::list<Notification> spare_;  // none or one
  std::uint64_t lastNumber_ = 0;
  bool delivering_ = false;
};

}  // namespace varo::platform
