#pragma once

#include "Cli/Terminal/Console.h"
#include "Platform/Logging/LogSink.h"
#include "Platform/Logging/SpdlogSink.h"

namespace varo::cli {

/// The library's log lines, in its own form, kept apart from the progress line.
class ConsoleLogSink final : public platform::LogSink {
 public:
  /// Which log lines of operations to show; they come from the logger "Binary". Usually only fatal
  /// ones: a command tells people in its own words how its operation went.
  enum class OperationLines { kShown, kOnlyFatal };

  /// `console` is that of standard error and outlives this object.
  ConsoleLogSink(Console& console, OperationLines lines) : console_(console), shown_(lines) {}

  void write(std::string_view logger, platform::LogLevel level,
             const platform::LogLocation& location, std::string_view message) override;
  void flush() override { lines_.flush(); }

 private:
  Console& console_;
  const OperationLines shown_;
  platform::SpdlogSink lines_;
};

}  // namespace varo::cli
