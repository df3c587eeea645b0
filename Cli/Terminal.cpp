#include "Cli/Terminal.h"

#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace varo::cli::terminal {

namespace {

int descriptorOf(Stream stream) {
  return stream == Stream::kOutput ? STDOUT_FILENO : STDERR_FILENO;
}

}  // namespace

bool isTerminal(Stream stream) { return ::isatty(descriptorOf(stream)) == 1; }

std::optional<std::size_t> width(Stream stream) {
  winsize size{};
  if (::ioctl(descriptorOf(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return std::nullopt;
  }
  return size.ws_col;
}

bool mayColour(Stream stream) {
  const char* refused = std::getenv("NO_COLOR");
  const char* kind = std::getenv("TERM");
  if (refused != nullptr && *refused != '\0') return false;
  if (kind == nullptr || std::string_view(kind) == "dumb") return false;
  return isTerminal(stream);
}

}  // namespace varo::cli::terminal
