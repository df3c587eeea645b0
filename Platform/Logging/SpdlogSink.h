#pragma once

#include "Platform/Logging/LogSink.h"

#include <cstdio>
#include <memory>

namespace varo::platform {

/// Writes messages to a stream: time, level, logger, message, place in the program. Level names are
/// coloured where the stream is a terminal. What a peer sent may stand in a message: its further
/// lines are indented, so that none passes for a message of its own, and control characters are
/// shown as "\\x1b". Thread-safe.
class SpdlogSink final : public LogSink {
 public:
  /// `stream` must outlive the sink and is not closed by it.
  explicit SpdlogSink(std::FILE* stream = stderr);
  ~SpdlogSink() override;

  void write(std::string_view logger, LogLevel level, const LogLocation& location,
             std::string_view message) override;
  void flush() override;

 private:
  class Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace varo::platform
