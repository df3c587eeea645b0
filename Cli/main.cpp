#include "Cli/Program.h"

#include <cstddef>
#include <exception>
#include <span>

int main(int count, char** words) {
  const std::span<char* const> all(words, static_cast<std::size_t>(count));
  try {
    const auto arguments = all.subspan(all.empty() ? 0 : 1);
    return varo::cli::runProgram({arguments.begin(), arguments.end()});
  } catch (const std::exception& error) {
    varo::cli::tellThatNothingBegan(all, error.what());
  } catch (...) {
    varo::cli::tellThatNothingBegan(all, "an exception without words");
  }
  return 1;
}
