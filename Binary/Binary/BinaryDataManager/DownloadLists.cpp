#include "Binary/Binary/BinaryDataManager/DownloadLists.h"

#include "Binary/Binary/Utils/TransferPolicy.h"

#include <algorithm>
#include <utility>

namespace varo::binary {

using platform::MutexLock;
using platform::TaskState;

namespace {

using TaskPtr = DownloadLists::TaskPtr;

bool contains(const std::vector<TaskPtr>& list, const TaskPtr& task) {
  return std::find(list.begin(), list.end(), task) != list.end();
}

bool isAtRest(TaskState state) { return state == TaskState::Paused || platform::isFinal(state); }

TaskState stateOf(const DownloadLists::Entry& entry) {
  if (entry.claims > 0) return entry.noted;
  const TaskState state = entry.task->state();
  return isAtRest(state) && state != entry.noted ? TaskState::Started : state;
}

/// Whether bytes may come in for it.
bool runs(const DownloadLists::Entry& entry) {
  return stateOf(entry) == TaskState::Started && !entry.task->isStopped();
}

}  // namespace

DownloadLists::Found DownloadLists::find(const std::string& blobId) const {
  const MutexLock lock(mutex_);
  const auto found = content_.tasks.find(blobId);
  if (found == content_.tasks.end()) return {nullptr, TaskState::NotStarted, generation_};
  return {found->second.task, stateOf(found->second), generation_};
}

void DownloadLists::add(const TaskPtr& task) {
  Entry entry{task};  // destroyed after the lock, as what it was swapped with
  const MutexLock lock(mutex_);
  std::swap(content_.tasks[task->name()], entry);
  if (entry.task != nullptr && runs(entry)) content_.replaced.push_back(entry);
}

void DownloadLists::note(const DownloadTask& task, TaskState state) {
  Entry forgotten;  // destroyed after the lock
  const MutexLock lock(mutex_);
  if (Entry* entry = entryLocked(task)) {
    entry->noted = state;
  } else if (Entry* former = replacedLocked(task); former != nullptr && isAtRest(state)) {
    std::swap(*former, content_.replaced.back());
    std::swap(forgotten, content_.replaced.back());
    content_.replaced.pop_back();
  }
}

bool DownloadLists::claimRestart(const DownloadTask& task, TaskState from) {
  const MutexLock lock(mutex_);
  return claimLocked(task, from, TaskState::NotStarted);
}

std::optional<DownloadBlock> DownloadLists::claimResume(DownloadTask& task) {
  const MutexLock lock(mutex_);
  if (!claimLocked(task, TaskState::Paused, TaskState::Started)) return std::nullopt;
  return task.takeStartDownloadTaskCompletionBlock();
}

bool DownloadLists::claimLocked(const DownloadTask& task, TaskState from, TaskState to) {
  Entry* entry = entryLocked(task);
  if (entry == nullptr || entry->noted != from) return false;
  entry->noted = to;
  ++entry->claims;
  return true;
}

bool DownloadLists::leavePauseToResume(const DownloadTask& task) {
  const MutexLock lock(mutex_);
  Entry* entry = keptLocked(task);
  if (entry == nullptr || entry->claims == 0 || entry->noted != TaskState::Started) return false;
  entry->isPauseLeft = true;
  return true;
}

bool DownloadLists::settle(const DownloadTask& task) {
  const MutexLock lock(mutex_);
  Entry* entry = keptLocked(task);
  if (entry == nullptr || --entry->claims > 0) return false;
  return std::exchange(entry->isPauseLeft, false);
}

bool DownloadLists::isCurrent(std::uint64_t generation) const {
  const MutexLock lock(mutex_);
  return generation == generation_;
}

bool DownloadLists::schedule(const TaskPtr& task, std::uint64_t generation) {
  const MutexLock lock(mutex_);
  if (generation != generation_) return false;
  if (!contains(content_.schedulingQueue, task)) content_.schedulingQueue.push_back(task);
  return true;
}

bool DownloadLists::hasScheduled() const {
  const MutexLock lock(mutex_);
  return !content_.schedulingQueue.empty();
}

std::vector<TaskPtr> DownloadLists::takeScheduled() {
  const MutexLock lock(mutex_);
  return std::exchange(content_.schedulingQueue, {});
}

TaskPtr DownloadLists::takeToStart(const TaskPtr& task) {
  std::vector<TaskPtr> dropped;  // destroyed after the lock
  const MutexLock lock(mutex_);
  std::vector<TaskPtr>& waiting = content_.schedulingQueue;
  const auto place = std::find(waiting.begin(), waiting.end(), task);
  if (place == waiting.end()) return nullptr;
  switch (fitnessLocked(task)) {
    case Fitness::kMustWait:
      return nullptr;
    case Fitness::kNever:
      dropped.push_back(task);
      waiting.erase(place);
      return takeFirstLocked(dropped);
    case Fitness::kStartable:
      break;
  }
  if (content_.inProgressQueue.size() >= parallelJobs_) return nullptr;
  content_.inProgressQueue.push_back(task);
  waiting.erase(place);
  return task;
}

TaskPtr DownloadLists::takeFirstToStart() {
  std::vector<TaskPtr> dropped;
  const MutexLock lock(mutex_);
  return takeFirstLocked(dropped);
}

TaskPtr DownloadLists::takeFirstLocked(std::vector<TaskPtr>& dropped) {
  std::vector<TaskPtr>& waiting = content_.schedulingQueue;
  auto next = waiting.begin();
  while (next != waiting.end() && content_.inProgressQueue.size() < parallelJobs_) {
    const Fitness fitness = fitnessLocked(*next);
    if (fitness == Fitness::kMustWait) {
      ++next;
      continue;
    }
    TaskPtr task = std::move(*next);
    next = waiting.erase(next);
    if (fitness == Fitness::kStartable) {
      content_.inProgressQueue.push_back(task);
      return task;
    }
    dropped.push_back(std::move(task));
  }
  return nullptr;
}

DownloadLists::Fitness DownloadLists::fitnessLocked(const TaskPtr& task) const {
  // One that is in progress may not have been started yet by the thread that put it there.
  if (task->state() != TaskState::NotStarted || contains(content_.inProgressQueue, task)) {
    return Fitness::kNever;
  }
  if (transferPolicy() != TransferPolicy::kSafe) return Fitness::kStartable;
  if (task->isStopped()) return Fitness::kNever;
  return anotherRunsLocked(task) ? Fitness::kMustWait : Fitness::kStartable;
}

bool DownloadLists::anotherRunsLocked(const TaskPtr& task) const {
  const auto isRival = [&task](const TaskPtr& other) {
    return other != task && other->name() == task->name() && !other->isStopped();
  };
  const auto isRunningRival = [&](const Entry& entry) {
    return isRival(entry.task) && runs(entry);
  };
  const auto isAmong = [&isRival](const std::vector<TaskPtr>& list) {
    return std::any_of(list.begin(), list.end(), isRival);
  };
  const auto current = content_.tasks.find(task->name());
  return isAmong(content_.inProgressQueue) || isAmong(content_.finishedQueue) ||
         (current != content_.tasks.end() && isRunningRival(current->second)) ||
         std::any_of(content_.replaced.begin(), content_.replaced.end(), isRunningRival);
}

bool DownloadLists::isInProgress(const std::string& blobId) const {
  const MutexLock lock(mutex_);
  return std::any_of(content_.inProgressQueue.begin(), content_.inProgressQueue.end(),
                     [&blobId](const TaskPtr& task) { return task->name() == blobId; });
}

void DownloadLists::removeFromInProgress(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  std::erase(content_.inProgressQueue, task);
}

void DownloadLists::moveToFinished(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  std::erase(content_.inProgressQueue, task);
  content_.finishedQueue.push_back(task);
}

void DownloadLists::removeFromFinished(const TaskPtr& task) {
  const MutexLock lock(mutex_);
  std::erase(content_.finishedQueue, task);
}

std::map<std::string, DownloadLists::Entry> DownloadLists::tasks() const {
  const MutexLock lock(mutex_);
  return content_.tasks;
}

DownloadLists::Content DownloadLists::takeAll() {
  Content taken;
  const MutexLock lock(mutex_);
  ++generation_;
  std::swap(content_, taken);
  return taken;
}

DownloadLists::Entry* DownloadLists::entryLocked(const DownloadTask& task) {
  const auto found = content_.tasks.find(task.name());
  const bool isOfThis = found != content_.tasks.end() && found->second.task.get() == &task;
  return isOfThis ? &found->second : nullptr;
}

DownloadLists::Entry* DownloadLists::keptLocked(const DownloadTask& task) {
  Entry* entry = entryLocked(task);
  return entry != nullptr ? entry : replacedLocked(task);
}

DownloadLists::Entry* DownloadLists::replacedLocked(const DownloadTask& task) {
  const auto found =
      std::find_if(content_.replaced.begin(), content_.replaced.end(),
                   [&task](const Entry& entry) { return entry.task.get() == &task; });
  return found != content_.replaced.end() ? &*found : nullptr;
}

}  // namespace varo::binary
