#include "Cli/Run/WaitNotices.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingSchedule.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

#include <utility>

namespace varo::cli {

WaitNotices::WaitNotices(std::shared_ptr<platform::LogSink> lines, platform::LogLevel leastLevel,
                         std::shared_ptr<Output> output)
    : lines_(std::move(lines)), leastLevel_(leastLevel), output_(std::move(output)) {}

void WaitNotices::write(std::string_view logger, platform::LogLevel level,
                        const platform::LogLocation& location, std::string_view message) {
  if (level >= leastLevel_) lines_->write(logger, level, location, message);
  // The library's log is where it says that a service still works on a delete.
  if (level == platform::LogLevel::kInfo && message.starts_with(binary::kServiceStillWorking)) {
    output_->note(fmt::format("{} of {}", printable(message), binary::polling::kMaxStatusRequests));
  }
}

}  // namespace varo::cli
