#include "Platform/Logging/LogSink.h"

#include "Platform/Foundation/Text.h"

#include <cstddef>

namespace varo::platform {

std::optional<LogLevel> logLevelNamed(std::string_view name) noexcept {
  for (std::size_t i = 0; i < kLogLevelNames.size(); ++i) {
    if (equalIgnoringCase(kLogLevelNames[i], name)) return static_cast<LogLevel>(i);
  }
  return std::nullopt;
}

}  // namespace varo::platform
