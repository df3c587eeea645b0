#pragma once

#include "Cli/Run/Output.h"
#include "Platform/Logging/LogSink.h"

#include <memory>

namespace varo::cli {

/// Passes log lines on from a least level, and tells people, at any level, that the service is
/// still working on what it accepted for later and which attempt to ask for its status this was.
/// The library logs that at info level, so the process has to log from there at least.
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
