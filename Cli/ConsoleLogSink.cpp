#include "Cli/ConsoleLogSink.h"

namespace varo::cli {

void ConsoleLogSink::write(std::string_view logger, platform::LogLevel level,
                           const platform::LogLocation& location, std::string_view message) {
  console_.aside([&] { lines_.write(logger, level, location, message); });
}

}  // namespace varo::cli
