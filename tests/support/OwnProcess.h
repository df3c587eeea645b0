#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace varo::test {

/// Ends such a process where something is not as it should be.
inline void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "Not so: %s\n", what);
  std::_Exit(3);
}

/// Runs `body` in a process of its own, where the runtime, which can be shut down once a process,
/// has not been used, and expects it to return and the process to exit well.
inline void inOwnProcess(const std::function<void()>& body) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(body(); std::exit(0), testing::ExitedWithCode(0), "");
}

}  // namespace varo::test
