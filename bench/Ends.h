#pragma once

#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <latch>

namespace varo::bench {

/// Counts the ends of operations and remembers whether one failed. Thread-safe.
class Ends {
 public:
  explicit Ends(std::ptrdiff_t count) : left_(count) {}

  void succeeded() { left_.count_down(); }
  void failed(const platform::Value& error) {
    fmt::print(stderr, "{}\n", error.description());
    anyFailed_ = true;
    left_.count_down();
  }
  /// Waits for all; true when every one succeeded.
  [[nodiscard]] bool await() {
    left_.wait();
    return !anyFailed_;
  }

 private:
  std::latch left_;
  std::atomic<bool> anyFailed_ = false;
};

}  // namespace varo::bench
