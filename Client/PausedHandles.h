#pragma once

#include "Platform/Foundation/Mutex.h"

#include <map>
#include <memory>

namespace varo::detail {

class RunningBase;

/// The handles of this process that were paused. The shutdown resumes them: nobody would do so
/// afterwards, and what runs then fails at once, which is the outcome that those who wait are
/// promised. Thread-safe.
class PausedHandles {
 public:
  /// Never destroyed: the shutdown at exit needs it.
  [[nodiscard]] static PausedHandles& shared();

  /// Before the handle is paused; it stays noted when it is resumed.
  void note(const std::shared_ptr<RunningBase>& handle);
  /// At its end.
  void forget(const RunningBase& handle) noexcept;

 private:
  PausedHandles();
  void resumeAll();

  platform::Mutex mutex_;
  std::map<const RunningBase*, std::weak_ptr<RunningBase>> noted_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
