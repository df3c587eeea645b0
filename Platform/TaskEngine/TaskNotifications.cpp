#include "Platform/TaskEngine/TaskNotifications.h"

#include <algorithm>
#include <utility>

namespace varo::platform {
namespace {

/// Compared by owner: locking the weak pointer could make this the listener's last owner, and its
/// destructor would run under the task's lock.
bool sameListener(const std::weak_ptr<TaskListener>& weak,
                  const std::shared_ptr<TaskListener>& listener) {
  return !weak.owner_before(listener) && !listener.owner_before(weak);
}

}  // namespace

void TaskNotifications::subscribe(const std::shared_ptr<TaskListener>& listener) {
  std::erase_if(listeners_, [](const Listener& other) { return other.listener.expired(); });
  const bool isKnown = std::any_of(
      listeners_.begin(), listeners_.end(),
      [&listener](const Listener& other) { return sameListener(other.listener, listener); });
  if (!isKnown) listeners_.push_back({listener, ++lastNumber_});
}

void TaskNotifications::unsubscribe(const std::shared_ptr<TaskListener>& listener) noexcept {
  std::erase_if(listeners_, [&listener](const Listener& other) {
    return sameListener(other.listener, listener);
  });
}

bool TaskNotifications::add(Notification notification) {
  Taken added(1);
  return queue(added, std::move(notification));
}

bool TaskNotifications::addSpare(Notification notification) noexcept {
  Taken added;
  added.splice(added.begin(), spare_, spare_.begin());
  return queue(added, std::move(notification));
}

bool TaskNotifications::queue(Taken& added, Notification&& notification) noexcept {
  added.front() = std::move(notification);
  added.front().number = ++lastNumber_;
  waiting_.splice(waiting_.end(), added);
  return !std::exchange(delivering_, true);
}

void TaskNotifications::keepSpare() {
  if (spare_.empty()) spare_.emplace_back();
}

TaskNotifications::Taken TaskNotifications::takeNext() noexcept {
  Taken next;
  if (waiting_.empty()) {
    // In the same hold of the lock that finds nothing: what is added from now on is delivered anew.
    delivering_ = false;
  } else {
    next.splice(next.begin(), waiting_, waiting_.begin());
  }
  return next;
}

void TaskNotifications::giveBack(Taken& delivered) noexcept {
  if (spare_.empty()) spare_.splice(spare_.begin(), delivered);
}

std::shared_ptr<TaskListener> TaskNotifications::nextListener(std::uint64_t& after,
                                                              std::uint64_t before) const noexcept {
  for (const Listener& entry : listeners_) {
    if (entry.number <= after || entry.number > before) continue;
    after = entry.number;
    if (auto listener = entry.listener.lock()) return listener;
  }
  return nullptr;
}

}  // namespace varo::platform
