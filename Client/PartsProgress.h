#pragma once

#include "Platform/Foundation/Mutex.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace varo::detail {

/// How far the parts of one transfer are: those that are whole, and what has moved of the others.
/// Thread-safe.
class PartsProgress {
 public:
  /// Of so many parts, none of which is whole.
  void begin(std::size_t parts) {
    const platform::MutexLock lock(mutex_);
    parts_.assign(parts, {});
    done_ = 0;
  }
  /// What an earlier run has moved of a part moves again. Returns the bytes of the whole ones.
  std::uint64_t beginRun() {
    const platform::MutexLock lock(mutex_);
    for (Part& part : parts_) {
      if (!part.isWhole) done_ -= std::exchange(part.moved, 0);
    }
    return done_;
  }
  /// So much of a part has moved, perhaps less than before. Returns the bytes of all; none where
  /// the part is whole, which a request of an earlier run may tell too late.
  [[nodiscard]] std::optional<std::uint64_t> moved(std::size_t index, std::uint64_t bytes) {
    const platform::MutexLock lock(mutex_);
    if (index >= parts_.size() || parts_[index].isWhole) return std::nullopt;
    set(parts_[index], bytes);
    return done_;
  }
  /// The part is there, with this length. Returns the bytes of all.
  std::uint64_t whole(std::size_t index, std::uint64_t length) {
    const platform::MutexLock lock(mutex_);
    set(parts_[index], length);
    parts_[index].isWhole = true;
    return done_;
  }
  /// Those that are not whole, in their order.
  [[nodiscard]] std::vector<std::size_t> missing() const {
    const platform::MutexLock lock(mutex_);
    std::vector<std::size_t> missing;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
      if (!parts_[i].isWhole) missing.push_back(i);
    }
    return missing;
  }

 private:
  struct Part {
    std::uint64_t moved = 0;
    bool isWhole = false;
  };

  void set(Part& part, std::uint64_t bytes) VARO_REQUIRES(mutex_) {
    done_ += bytes - part.moved;
    part.moved = bytes;
  }

  mutable platform::Mutex mutex_;
  std::vector<Part> parts_ VARO_GUARDED_BY(mutex_);
  std::uint64_t done_ VARO_GUARDED_BY(mutex_) = 0;  // bytes of all parts
};

}  // namespace varo::detail
