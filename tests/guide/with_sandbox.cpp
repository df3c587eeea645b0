#include "Sandbox/SandboxServer.h"
#include "tests/support/TemporaryDirectory.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

/// Runs a program of the guide as its page says, with the address of a sandbox and a file:
///   with_sandbox PROGRAM
int main(int count, char** words) {
  if (count != 2) return 2;
  const varo::test::TemporaryDirectory directory;
  varo::sandbox::SandboxOptions options;
  options.dataDirectory = directory / "sandbox";
  varo::sandbox::SandboxServer server(options);
  if (const auto error = server.start()) {
    std::cerr << error->message << '\n';
    return 1;
  }
  const std::string photo = directory / "photo.jpg";
  std::ofstream(photo) << std::string(300'000, 'p');
  const std::string command = std::string(words[1]) + " " + server.url() + " " + photo;
  const int status = std::system(command.c_str());
  // The page's program uploads the file.
  return status == 0 && server.serviceStats().requests > 2 ? 0 : 1;
}
