#include "Cli/Program.h"

#include <cstddef>
#include <exception>
#include <span>

int main(int count, char** words) {
  const std::span<char* const> all(words, static_cast<std::size_t>(count));
  try {
    return varo::cli::runProgram({all.begin(), all.end()});
  } catch (const std::exception& error) {
    varo::cli::tellThatNothingBegan(all, error.what());
  } catch (...) {
    varo::cli::tellThatNothingBegan(all, "an exception without words");
  }
  return 1;
}
