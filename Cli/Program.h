#pragma once

#include <span>
#include <string>
#include <vector>

namespace varo::cli {

/// The whole program: reads the arguments (without the program's name), does what they ask for, and
/// returns the exit status. Call it once, first thing in `main`.
///
/// What it throws, as for want of memory, was thrown before there was a command to tell its last
/// event of.
[[nodiscard]] int runProgram(const std::vector<std::string>& arguments);

/// Tells of that, on standard error and, where the words of the command line ask for events, as the
/// last event. Allocates nothing.
void tellThatNothingBegan(std::span<char* const> words, const char* reason) noexcept;

}  // namespace varo::cli
