#include "Cli/Program.h"

#include <exception>
#include <iostream>

int main(int count, char** words) {
  try {
    return varo::cli::runProgram({words + (count > 0 ? 1 : 0), words + count});
  } catch (const std::exception& error) {
    std::cerr << "varobinary: " << error.what() << '\n';
  } catch (...) {
    std::cerr << "varobinary: an exception without words\n";
  }
  return 1;
}
