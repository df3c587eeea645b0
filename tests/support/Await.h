#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace varo::test {

/// Waits until `condition` holds. False when it still does not after `limit`, which is generous: it
/// is reached only by a test that fails.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace varo::test
