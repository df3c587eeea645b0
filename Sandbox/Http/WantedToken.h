#pragma once

#include "Platform/Foundation/Mutex.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace varo::sandbox {

/// What requests must show. Once it is replaced, the one before has expired. Thread-safe.
class WantedToken {
 public:
  enum class Verdict { kGood, kWrong, kExpired };

  /// Of an empty one everything is good, until it is replaced.
  explicit WantedToken(std::string token) : token_(std::move(token)) {}

  [[nodiscard]] bool isEmpty() const {
    const platform::MutexLock lock(mutex_);
    return token_.empty();
  }
  [[nodiscard]] Verdict judge(const std::string& shown) const {
    const platform::MutexLock lock(mutex_);
    if (token_.empty() || shown == token_) return Verdict::kGood;
    const bool isOld = std::find(expired_.begin(), expired_.end(), shown) != expired_.end();
    return isOld ? Verdict::kExpired : Verdict::kWrong;
  }
  void replace(std::string token) {
    const platform::MutexLock lock(mutex_);
    expired_.push_back(std::exchange(token_, std::move(token)));
  }

 private:
  mutable platform::Mutex mutex_;
  std::string token_ VARO_GUARDED_BY(mutex_);
  std::vector<std::string> expired_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::sandbox
