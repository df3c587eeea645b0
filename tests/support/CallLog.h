#pragma once

#include "Platform/Foundation/Mutex.h"

#include <utility>
#include <vector>

namespace varo::test {

/// What blocks or listeners were called with, in the order of the calls. Thread-safe.
template <typename Call>
class CallLog {
 public:
  void add(Call call) {
    const platform::MutexLock lock(mutex_);
    calls_.push_back(std::move(call));
  }
  [[nodiscard]] std::vector<Call> calls() const {
    const platform::MutexLock lock(mutex_);
    return calls_;
  }

 private:
  mutable platform::Mutex mutex_;
  std::vector<Call> calls_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::test
