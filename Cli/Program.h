#pragma once

#include <span>
#include <string>
#include <vector>

namespace varo::cli {

/// The whole program: reads the command line (its name first, if there is any), does what it asks
/// for, and returns the exit status. Call it once, first thing in `main`.
///
/// It throws only before there is a command, for want of memory above all: see
/// `tellThatNothingBegan`.
[[nodiscard]] int runProgram(const std::vector<std::string>& words);

/// Reports what `runProgram` has thrown: on standard error and, where the words of the command line
/// ask for events, as the last event. Allocates nothing.
void tellThatNothingBegan(std::span<char* const> words, const char* reason) noexcept;

}  // namespace varo::cli
