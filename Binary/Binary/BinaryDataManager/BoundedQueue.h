#pragma once

#include "Platform/Foundation/Mutex.h"

#include <algorithm>
#include <cstddef>
#include <list>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace varo::binary {

/// Which items wait, in their order, and which of them run, of which there are at most `places`.
/// It starts nothing and watches nothing: who takes an item starts it, and removes it when it has
/// come to its end. Items are told apart by identity and held until they are removed; none may be
/// null. Each operation is atomic. Thread-safe.
///
/// The lock is a leaf: nothing is destroyed and nobody is called under it.
template <typename T>
class BoundedQueue {
 public:
  using ItemPtr = std::shared_ptr<T>;

  explicit BoundedQueue(std::size_t places) : places_(places) {}

  /// Puts the item behind those that wait. False where it waits already.
  bool schedule(const ItemPtr& item) {
    std::list<ItemPtr> node{item};
    const platform::MutexLock lock(mutex_);
    if (!positions_.try_emplace(item.get(), node.begin()).second) return false;
    waiting_.splice(waiting_.end(), node);
    return true;
  }

  /// Moves the item to those that run, if it still waits and there is a place. Whether it did.
  [[nodiscard]] bool takeToStart(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    if (!hasPlaceLocked() || !positions_.contains(item.get())) return false;
    enterLocked(item);
    return true;
  }

  /// Moves the one that has waited longest to those that run. Null where there is no place or none
  /// waits.
  [[nodiscard]] ItemPtr takeFirstToStart() {
    const platform::MutexLock lock(mutex_);
    if (!hasPlaceLocked() || waiting_.empty()) return nullptr;
    ItemPtr first = waiting_.front();
    enterLocked(first);
    return first;
  }

  /// Enters the item among those that run, whatever their number, once more where it is one of
  /// them; it no longer waits.
  void enterRunning(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    enterLocked(item);
  }

  /// Removes all entries of the item. Whether there was one: of several callers one is told so.
  bool remove(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    const bool waited = leaveWaitingLocked(item);
    return std::erase(running_, item) != 0 || waited;
  }
  /// The same of those that run alone.
  bool removeFromRunning(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    return std::erase(running_, item) != 0;
  }
  /// One entry of the item among those that run. Whether there was one.
  bool removeOneFromRunning(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    const auto found = std::find(running_.begin(), running_.end(), item);
    if (found == running_.end()) return false;
    running_.erase(found);
    return true;
  }
  /// Those that wait, oldest first, which the queue then holds no more.
  [[nodiscard]] std::vector<ItemPtr> takeAllWaiting() {
    std::list<ItemPtr> taken;
    {
      const platform::MutexLock lock(mutex_);
      taken.swap(waiting_);
      positions_.clear();
    }
    return {taken.begin(), taken.end()};
  }

  /// The one that has waited longest, which stays where it is; null when none waits.
  [[nodiscard]] ItemPtr firstWaiting() const {
    const platform::MutexLock lock(mutex_);
    return waiting_.empty() ? nullptr : waiting_.front();
  }
  [[nodiscard]] bool isWaiting(const ItemPtr& item) const {
    const platform::MutexLock lock(mutex_);
    return positions_.contains(item.get());
  }
  [[nodiscard]] bool isRunning(const ItemPtr& item) const {
    const platform::MutexLock lock(mutex_);
    return std::find(running_.begin(), running_.end(), item) != running_.end();
  }
  /// Those that run; an item that was entered twice stands there twice.
  [[nodiscard]] std::vector<ItemPtr> runningItems() const {
    const platform::MutexLock lock(mutex_);
    return running_;
  }
  [[nodiscard]] std::size_t waiting() const {
    const platform::MutexLock lock(mutex_);
    return waiting_.size();
  }
  /// How many entries run; an item that was entered twice counts twice.
  [[nodiscard]] std::size_t running() const {
    const platform::MutexLock lock(mutex_);
    return running_.size();
  }
  [[nodiscard]] bool hasPlace() const {
    const platform::MutexLock lock(mutex_);
    return hasPlaceLocked();
  }

 private:
  [[nodiscard]] bool hasPlaceLocked() const VARO_REQUIRES(mutex_) {
    return running_.size() < places_;
  }

  void enterLocked(const ItemPtr& item) VARO_REQUIRES(mutex_) {
    running_.push_back(item);
    leaveWaitingLocked(item);
  }

  /// `item` is not the queue's own pointer, so that nothing is destroyed.
  bool leaveWaitingLocked(const ItemPtr& item) VARO_REQUIRES(mutex_) {
    const auto position = positions_.find(item.get());
    if (position == positions_.end()) return false;
    waiting_.erase(position->second);
    positions_.erase(position);
    return true;
  }

  const std::size_t places_;

  mutable platform::Mutex mutex_;
  /// Oldest first; none is there twice. As many as the application asks for.
  std::list<ItemPtr> waiting_ VARO_GUARDED_BY(mutex_);
  /// Where in `waiting_` an item is.
  std::unordered_map<const T*, typename std::list<ItemPtr>::iterator> positions_
      VARO_GUARDED_BY(mutex_);
  std::vector<ItemPtr> running_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
