#include "Cli/Terminal/ConsoleLogSink.h"

namespace varo::cli {

namespace {

constexpr std::string_view kOperationsLogger = "Binary";

}  // namespace

void ConsoleLogSink::write(std::string_view logger, platform::LogLevel level,
                           const platform::LogLocation& location, std::string_view message) {
  const bool isOperations = logger == kOperationsLogger && level < platform::LogLevel::kFatal;
  if (isOperations && shown_ == OperationLines::kOnlyFatal) return;
  console_.aside([&] { lines_.write(logger, level, location, message); });
}

}  // namespace varo::cli
