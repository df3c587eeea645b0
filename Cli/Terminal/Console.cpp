#include "Cli/Terminal/Console.h"

#include <algorithm>
#include <utility>

namespace varo::cli {

using platform::MutexLock;

namespace {

/// Back to the first column, and erase to the end of the line.
constexpr std::string_view kEraseLine = "\r\x1b[K";
constexpr std::string_view kUp = "\x1b[A";
constexpr std::string_view kResetStyle = "\x1b[0m";

std::string_view codeOf(Console::Style style) {
  switch (style) {
    case Console::Style::kError:
      return "\x1b[1;31m";
    case Console::Style::kWarning:
      return "\x1b[33m";
    case Console::Style::kFaint:
      return "\x1b[2m";
    case Console::Style::kPlain:
      break;
  }
  return {};
}

}  // namespace

Console::Console(std::ostream& stream, Abilities abilities)
    : abilities_(abilities), stream_(stream) {}

Console::~Console() { setProgressLine({}); }

void Console::eraseLocked() {
  if (progressLine_.empty()) return;
  stream_ << kEraseLine;
  const auto more = std::count(progressLine_.begin(), progressLine_.end(), '\n');
  for (auto i = more; i > 0; --i) stream_ << kUp << kEraseLine;
}

void Console::print(std::string_view text, std::string_view prefix, Style style) {
  MutexLock lock(mutex_);
  eraseLocked();
  const bool coloured = abilities_.colours && style != Style::kPlain;
  if (coloured) stream_ << codeOf(style);
  stream_ << prefix;
  if (coloured) stream_ << kResetStyle;
  stream_ << text << '\n' << progressLine_ << std::flush;
}

void Console::aside(const std::function<void()>& write) {
  MutexLock lock(mutex_);
  eraseLocked();
  // `write` uses the same terminal by another stream, so the bytes of this one go out first.
  stream_ << std::flush;
  write();
  stream_ << progressLine_ << std::flush;
}

void Console::setProgressLine(std::string line) {
  MutexLock lock(mutex_);
  // An unchanged line is not drawn again, which would flicker.
  if (!abilities_.isTerminal || line == progressLine_) return;
  eraseLocked();
  progressLine_ = std::move(line);
  stream_ << progressLine_ << std::flush;
}

}  // namespace varo::cli
