#pragma once

#include "Cli/Run/Output.h"
#include "Platform/Logging/LogSink.h"

#include <memory>

namespace varo::cli {

/// Passes log lines of at least one level on. Beside that it tells people, whatever the level, that
/// the service still works on what it accepted for later, and the number of the status request that
/// said so. The library logs that at info level, so its log level must be info or below.
class WaitNotices final : public platform::LogSink {
 public:
  WaitNotices(std::shared_ptr<platform::LogSink> lines, platform::LogLevel leastLevel,
              std::shared_ptr<Output> output);

  void write(std::string_view logger, platform::LogLevel level,
             const platform::LogLocation& location, std::string_view message) override;
  void flush() override { lines_->flush(); }

 private:
  const std::shared_ptr<platform::LogSink> lines_;
  const platform::LogLevel leastLevel_;
  const std::shared_ptr<Output> output_;
};

}  // namespace varo::cli
