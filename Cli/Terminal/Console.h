#pragma once

#include "Platform/Foundation/Mutex.h"

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace varo::cli {

/// Standard error as people see it: whole lines, and a progress display at the bottom
/// that is replaced in place. Everything that goes to standard error goes through
/// here, so that log lines and the progress line do not tear each other. Thread-safe.
class Console {
 public:
  struct Abilities {
    /// Lines can be replaced in place.
    bool isTerminal = false;
    bool colours = false;
  };
  enum class Style { kPlain, kError, kWarning, kFaint };

  /// `stream` outlives this object.
  Console(std::ostream& stream, Abilities abilities);
  /// Leaves the cursor at the start of an empty line.
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  [[nodiscard]] bool isTerminal() const noexcept { return abilities_.isTerminal; }

  /// Prints `text` and a newline above the progress line. `prefix` stands in front, in its style.
  void print(std::string_view text, std::string_view prefix = {}, Style style = Style::kPlain);

  /// Runs `write`, which writes to the same terminal on its own, with the progress line away.
  void aside(const std::function<void()>& write);

  /// Replaces the progress line, which may be several with newlines between them; empty takes it
  /// away. Does nothing where there is no terminal.
  void setProgressLine(std::string line);

 private:
  void eraseLocked() VARO_REQUIRES(mutex_);

  const Abilities abilities_;
  platform::Mutex mutex_;
  std::ostream& stream_ VARO_GUARDED_BY(mutex_);
  std::string progressLine_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::cli
