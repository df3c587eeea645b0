#include "Binary/Binary/BinaryDataManager/DownloadLists.h"

#include "Binary/Binary/DownloadTask/DownloadTask.h"

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

TaskState stateOf(const DownloadLists::Entry& entry) {
  const TaskState state = entry.task->state();
  const bool atRest = state == TaskState::Paused || platform::isFinal(state);
  return atRest && state != entry.noted ? TaskState::Started : state;
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
}

void DownloadLists::note(const DownloadTask& task, TaskState state) {
  const MutexLock lock(mutex_);
  if (Entry* entry = entryLocked(task)) entry->noted = state;
}

bool DownloadLists::claim(const DownloadTask& task, TaskState from, TaskState to) {
  const MutexLock lock(mutex_);
  Entry* entry = entryLocked(task);
  if (entry == nullptr || entry->noted != from) return false;
  entry->noted = to;
  return true;
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
  if (!contains(content_.schedulingQueue, task)) return nullptr;
  return takeToStartLocked(task, dropped);
}

TaskPtr DownloadLists::takeFirstToStart() {
  std::vector<TaskPtr> dropped;
  const MutexLock lock(mutex_);
  if (content_.schedulingQueue.empty()) return nullptr;
  return takeToStartLocked(content_.schedulingQueue.front(), dropped);
}

TaskPtr DownloadLists::takeToStartLocked(TaskPtr task, std::vector<TaskPtr>& dropped) {
  while (content_.inProgressQueue.size() < parallelJobs_) {
    std::erase(content_.schedulingQueue, task);
    // One that is in progress may not have been started yet by the thread that put it there.
    if (task->state() == TaskState::NotStarted && !contains(content_.inProgressQueue, task)) {
      content_.inProgressQueue.push_back(task);
      return task;
    }
    dropped.push_back(std::move(task));
    if (content_.schedulingQueue.empty()) return nullptr;
    task = content_.schedulingQueue.front();
  }
  return nullptr;
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

}  // namespace varo::binary
