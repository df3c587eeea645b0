#pragma once

#include <chrono>

namespace varo::bench {

/// How long one thread or more of this process has been inside a call of SQLite that opens, closes,
/// prepares, steps, executes or gives back; binding values and reading columns do not count. A
/// program that asks for it is linked so that these calls go through this clock (CMakeLists.txt).
/// Thread-safe.
[[nodiscard]] std::chrono::duration<double> timeInSqlite();

}  // namespace varo::bench
