#pragma once

#include <string>
#include <vector>

namespace varo::cli {

/// The whole program: reads the arguments (without the program's name), does what they ask for, and
/// returns the exit status. Call it once, first thing in `main`.
[[nodiscard]] int runProgram(const std::vector<std::string>& arguments);

}  // namespace varo::cli
