#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace varo::platform {

enum class LogLevel : std::int32_t { kTrace, kDebug, kInfo, kWarning, kError, kFatal, kOff };

/// The names of the levels, in their order.
inline constexpr std::array<std::string_view, 7> kLogLevelNames{"trace", "debug", "info", "warning",
                                                                "error", "fatal", "off"};
/// The level of this name, in any letter case; none for another text.
[[nodiscard]] std::optional<LogLevel> logLevelNamed(std::string_view name) noexcept;

/// Where in the program a message was logged. The pointers are to literals.
struct LogLocation {
  const char* file = "";
  int line = 0;
  const char* function = "";

  /// The place of the call that takes this as a default argument.
  [[nodiscard]] static constexpr LogLocation current(const char* file = __builtin_FILE(),
                                                     int line = __builtin_LINE(),
                                                     const char* function = __builtin_FUNCTION()) {
    return {file, line, function};
  }
};

/// Receives log messages. A host installs its own with `VaroNativeFacade::setSink`.
class LogSink {
 public:
  virtual ~LogSink() = default;

  /// Takes one message of the logger `logger`; the views are valid during the call. Called by any
  /// thread, several at once. May throw: the caller catches.
  virtual void write(std::string_view logger, LogLevel level, const LogLocation& location,
                     std::string_view message) = 0;
  /// Writes out what is buffered.
  virtual void flush() = 0;
};

}  // namespace varo::platform
