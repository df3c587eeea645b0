#pragma once

#include "Platform/Foundation/Value.h"
#include "Platform/Logging/LogSink.h"

#include <memory>
#include <string>
#include <string_view>

namespace varo::platform {

/// The platform's logging facade: a named logger over the process's one sink and level, or over
/// those of the `LogRoute` that this thread works in.
///
/// A message below the level costs a comparison. The default sink writes to standard error, the
/// default level is warning. What the sink throws leaves the log functions and `flush`.
/// Thread-safe.
class VaroNativeFacade {
 public:
  /// `config` is reserved; none is fine.
  VaroNativeFacade(std::string logger, const Dictionary& config);

  /// How many callers of the facade wrap it and are to be skipped when a message is attributed. It
  /// changes nothing here, where the location travels with each message.
  void setIndirectionLevel(int /*level*/) noexcept {}

  void logTrace(std::string_view message, LogLocation location = LogLocation::current()) const;
  void logDebug(std::string_view message, LogLocation location = LogLocation::current()) const;
  void logInfo(std::string_view message, LogLocation location = LogLocation::current()) const;
  void logWarning(std::string_view message, LogLocation location = LogLocation::current()) const;
  void logError(std::string_view message, LogLocation location = LogLocation::current()) const;
  void logFatal(std::string_view message, LogLocation location = LogLocation::current()) const;

  static void flush();
  static void setLogLevelAndActivateNetworkPersister(LogLevel level);
  /// Whether a message of this level would be written.
  [[nodiscard]] static bool isEnabled(LogLevel level) noexcept;

  /// Replaces the sink; null restores the default. Messages that are being written end in the old
  /// one.
  static void setSink(std::shared_ptr<LogSink> sink);

 private:
  void log(LogLevel level, std::string_view message, const LogLocation& location) const;

  const std::string logger_;
};

}  // namespace varo::platform
