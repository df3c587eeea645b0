#pragma once

#include "Cli/Console.h"
#include "Platform/Logging/LogSink.h"
#include "Platform/Logging/SpdlogSink.h"

namespace varo::cli {

/// The library's log lines, in its own form, kept apart from the progress line.
class ConsoleLogSink final : public platform::LogSink {
 public:
  /// `console` is that of standard error and outlives this object.
  explicit ConsoleLogSink(Console& console) : console_(console) {}

  void write(std::string_view logger, platform::LogLevel level,
             const platform::LogLocation& location, std::string_view message) override;
  void flush() override { lines_.flush(); }

 private:
  Console& console_;
  platform::SpdlogSink lines_;
};

}  // namespace varo::cli
