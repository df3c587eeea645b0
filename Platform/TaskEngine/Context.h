#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"

#include <string>
#include <string_view>

namespace varo::platform {

/// One of a task's dictionaries: written by the task on whatever thread its work runs, read by
/// listeners and parents on others. Readers get copies, which share their storage.
/// What a call drops is destroyed outside the lock: it may hold the last reference to anything, and
/// its destructor may ask this context. A change that there is no memory for throws and changes
/// nothing. Thread-safe; each call is atomic.
class Context {
 public:
  [[nodiscard]] Dictionary snapshot() const {
    const MutexLock lock(mutex_);
    return entries_;
  }
  /// The value under `key`, or the missing value.
  [[nodiscard]] Value get(std::string_view key) const {
    const MutexLock lock(mutex_);
    return entries_[key];
  }
  void set(std::string_view key, Value value) {
    Value dropped;
    const MutexLock lock(mutex_);
    dropped = entries_[key];
    entries_.set(std::string(key), std::move(value));
  }
  void addEntries(const Dictionary& entries) {
    Dictionary changed;  // holds what was there after the swap
    const MutexLock lock(mutex_);
    changed = entries_;
    changed.addEntries(entries);
    std::swap(entries_, changed);
  }
  void remove(std::string_view key) {
    Value dropped;
    const MutexLock lock(mutex_);
    dropped = entries_[key];
    (void)entries_.remove(key);
  }
  void replace(Dictionary entries) noexcept {
    const MutexLock lock(mutex_);
    std::swap(entries_, entries);  // the parameter goes after the lock
  }

 private:
  mutable Mutex mutex_;
  Dictionary entries_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::platform
