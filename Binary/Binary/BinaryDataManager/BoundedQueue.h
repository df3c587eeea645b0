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

/// Keeps items that wait, in order, and items that run, at most `places` of them.
/// - It neither starts nor watches an item. Whoever takes one starts it, and removes it at its end.
/// - Items are compared by identity and held until they are removed. None may be null.
/// - Thread-safe; each operation is atomic. Nothing is called or destroyed under the lock, so it
///   may be used under any other lock.
template <typename T>
class BoundedQueue {
 public:
  using ItemPtr = std::shared_ptr<T>;

  explicit BoundedQueue(std::size_t places) : places_(places) {}

  /// Appends the item to those that wait. False if it waits already.
  bool schedule(const ItemPtr& item) {
    std::list<ItemPtr> node{item};
    const platform::MutexLock lock(mutex_);
    if (!positions_.try_emplace(item.get(), node.begin()).second) return false;
    waiting_.splice(waiting_.end(), node);
    return true;
  }

  /// Moves the item to those that run. False if it does not wait any more or there is no place.
  [[nodiscard]] bool takeToStart(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    if (!hasPlaceLocked() || !positions_.contains(item.get())) return false;
    enterLocked(item);
    return true;
  }

  /// Moves the item that has waited longest to those that run. Null if there is no place or none
  /// waits.
  [[nodiscard]] ItemPtr takeFirstToStart() {
    const platform::MutexLock lock(mutex_);
    if (!hasPlaceLocked() || waiting_.empty()) return nullptr;
    ItemPtr first = waiting_.front();
    enterLocked(first);
    return first;
  }

  /// Adds an entry for the item to those that run, even beyond `places` and even if it runs
  /// already. It no longer waits.
  void enterRunning(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    enterLocked(item);
  }

  /// Removes all entries of the item. True if there was one, so only one of several callers gets
  /// true.
  bool remove(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    const bool waited = leaveWaitingLocked(item);
    return std::erase(running_, item) != 0 || waited;
  }
  /// As `remove`, but only among those that run.
  bool removeFromRunning(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    return std::erase(running_, item) != 0;
  }
  /// Removes one entry of the item among those that run. True if there was one.
  bool removeOneFromRunning(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    const auto found = std::find(running_.begin(), running_.end(), item);
    if (found == running_.end()) return false;
    running_.erase(found);
    return true;
  }
  /// Removes the item from those that wait. True if it did.
  bool leaveWaiting(const ItemPtr& item) {
    const platform::MutexLock lock(mutex_);
    return leaveWaitingLocked(item);
  }
  /// Takes all that wait out of the queue, oldest first.
  [[nodiscard]] std::vector<ItemPtr> takeAllWaiting() {
    std::list<ItemPtr> taken;
    {
      const platform::MutexLock lock(mutex_);
      taken.swap(waiting_);
      positions_.clear();
    }
    return {taken.begin(), taken.end()};
  }

  /// The item that has waited longest, which stays in the queue. Null if none waits.
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
  /// Those that run. An item with two entries is there twice.
  [[nodiscard]] std::vector<ItemPtr> runningItems() const {
    const platform::MutexLock lock(mutex_);
    return running_;
  }
  [[nodiscard]] std::size_t waiting() const {
    const platform::MutexLock lock(mutex_);
    return waiting_.size();
  }
  /// How many entries run. An item with two entries counts twice.
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

  /// `item` is a pointer of the caller's, so that nothing is destroyed under the lock.
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
