#pragma once

#include "Sandbox/Files/DeleteKind.h"

#include <mutex>

namespace varo::sandbox {

/// How files are deleted that wish for nothing themselves; a tester may change it while the sandbox
/// runs. Thread-safe.
class DeleteDefault {
 public:
  explicit DeleteDefault(DeleteKind kind) : initial_(kind), kind_(kind) {}

  [[nodiscard]] DeleteKind get() const {
    const std::lock_guard lock(mutex_);
    return kind_;
  }
  void set(DeleteKind kind) {
    const std::lock_guard lock(mutex_);
    kind_ = kind;
  }
  /// Back to what it was at the beginning.
  void reset() { set(initial_); }

  /// What `set` changes entries of.
  [[nodiscard]] DeleteKind initial() const { return initial_; }

 private:
  const DeleteKind initial_;
  mutable std::mutex mutex_;
  DeleteKind kind_;  // guarded by mutex_
};

}  // namespace varo::sandbox
