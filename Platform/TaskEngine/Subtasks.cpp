#include "Platform/TaskEngine/Subtasks.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace varo::platform {

void Subtasks::add(const TaskPtr& subtask) {
  children_.push_back(
      {.identity = subtask.get(), .resting = subtask, .running = {}, .dependencies = {}});
}

bool Subtasks::addDependency(const VSTask* before, const VSTask* after) {
  Child* const dependent = find(after);
  if (dependent == nullptr || find(before) == nullptr || dependsOn(before, after)) return false;
  dependent->dependencies.push_back(before);
  return true;
}

/// Whether `dependent` is `task`, or waits for it through any number of dependencies.
bool Subtasks::dependsOn(const VSTask* dependent, const VSTask* task) const {
  // A list and not a recursion: a long chain must not use up the
  // stack. Each task is looked at once.
  std::vector<const VSTask*> open{dependent};
  for (std::size_t i = 0; i < open.size(); ++i) {
    if (open[i] == task) return true;
    for (const Child& child : children_) {
      if (child.identity != open[i]) continue;
      for (const VSTask* next : child.dependencies) {
        if (std::find(open.begin(), open.end(), next) == open.end()) open.push_back(next);
      }
    }
  }
  return false;
}

Subtasks::Child* Subtasks::find(const VSTask* task) noexcept {
  const auto found = std::find_if(children_.begin(), children_.end(),
                                  [task](const Child& child) { return child.identity == task; });
  return found != children_.end() ? &*found : nullptr;
}

std::vector<Subtasks::TaskPtr> Subtasks::resting() const {
  std::vector<TaskPtr> resting;
  for (const Child& child : children_) {
    if (child.resting != nullptr) resting.push_back(child.resting);
  }
  return resting;
}

void Subtasks::beginRun() {
  for (Child& child : children_) {
    child.started = child.ended = false;
    // Left over from a run of the parent that ended before it did: it is run anew.
    if (child.resting == nullptr) child.resting = child.running.lock();
  }
}

Subtasks::Next Subtasks::takeFree() {
  Next next;
  for (Child& child : children_) {
    next.allEnded = next.allEnded && child.ended;
    if (child.started) continue;
    std::vector<TaskPtr> predecessors;
    for (const VSTask* dependency : child.dependencies) {
      const Child* predecessor = find(dependency);
      if (predecessor->ended) predecessors.push_back(predecessor->resting);
    }
    if (predecessors.size() < child.dependencies.size()) continue;
    // Noted in the same hold of the parent's lock: two subtasks that end at once would otherwise
    // both have this one run.
    child.started = true;
    next.free.push_back({child.resting, std::move(predecessors)});
  }
  return next;
}

void Subtasks::setRunning(const TaskPtr& subtask) noexcept {
  Child* const child = find(subtask.get());
  if (child == nullptr) return;
  child->running = subtask;
  child->resting.reset();
}

void Subtasks::setResting(const TaskPtr& subtask) noexcept {
  if (Child* const child = find(subtask.get())) child->resting = subtask;
}

void Subtasks::setEnded(const VSTask* subtask) noexcept {
  if (Child* const child = find(subtask)) child->ended = true;
}

}  // namespace varo::platform
