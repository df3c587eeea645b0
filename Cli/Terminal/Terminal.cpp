#include "Cli/Terminal/Terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace varo::cli::terminal {

namespace {

int descriptorOf(Stream stream) {
  switch (stream) {
    case Stream::kInput:
      return STDIN_FILENO;
    case Stream::kOutput:
      return STDOUT_FILENO;
    case Stream::kError:
      break;
  }
  return STDERR_FILENO;
}

}  // namespace

bool isTerminal(Stream stream) { return ::isatty(descriptorOf(stream)) == 1; }

bool canReplaceLines(Stream stream) {
  const char* kind = std::getenv("TERM");
  return kind != nullptr && std::string_view(kind) != "dumb" && isTerminal(stream);
}

std::optional<std::size_t> width(Stream stream) {
  winsize size{};
  if (::ioctl(descriptorOf(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return std::nullopt;
  }
  return size.ws_col;
}

bool mayColour(Stream stream) {
  const char* refused = std::getenv("NO_COLOR");
  // The convention of no-color.org: set and not empty, whatever its value.
  if (refused != nullptr && *refused != '\0') return false;
  return canReplaceLines(stream);
}

void occupyClosedStreams() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) != -1) continue;
    // The lowest that is free, which is this one; opened for what nobody does with it. So reads and
    // writes there still fail, as they would on a closed stream.
    const int flags = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    (void)::open("/dev/null", flags);
  }
}

}  // namespace varo::cli::terminal
