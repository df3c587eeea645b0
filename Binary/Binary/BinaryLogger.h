#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"

#include <concepts>
#include <functional>
#include <string_view>

namespace varo::binary {

/// The library's one logger, named "Binary": a thin guard around the platform's logging facade.
///
/// The log functions take a text, or a pattern and the values for its placeholders ("%@" a value's
/// description, "%ld" and its like its integer), which is filled only when the level is enabled. A
/// message is attributed to the caller. Whatever the host's sink throws is reported on standard
/// error and goes no further, so logging never fails.
///
/// Thread-safe. One lock serialises everything that goes to the process's sink, which is therefore
/// called by one thread at a time; it is the one place where foreign code runs under a lock of the
/// library. Messages of a `LogRoute` go to it without the lock. Messages that a sink itself logs
/// through this logger are dropped: there is nowhere for them to go.
class BinaryLogger {
 public:
  /// A text or pattern and the place that logs it, made where a log function is called.
  struct Message {
    template <std::convertible_to<std::string_view> Text>
    Message(const Text& message,  // NOLINT(google-explicit-constructor)
            platform::LogLocation place = platform::LogLocation::current())
        : text(message), location(place) {}

    std::string_view text;
    platform::LogLocation location;
  };

  /// The process's one logger, made at the first call and never destroyed.
  [[nodiscard]] static BinaryLogger& sharedInstance();

  template <typename... Args>
  void logTrace(Message message, const Args&... args) {
    log(platform::LogLevel::kTrace, message, args...);
  }
  template <typename... Args>
  void logDebug(Message message, const Args&... args) {
    log(platform::LogLevel::kDebug, message, args...);
  }
  template <typename... Args>
  void logInfo(Message message, const Args&... args) {
    log(platform::LogLevel::kInfo, message, args...);
  }
  template <typename... Args>
  void logWarning(Message message, const Args&... args) {
    log(platform::LogLevel::kWarning, message, args...);
  }
  template <typename... Args>
  void logError(Message message, const Args&... args) {
    log(platform::LogLevel::kError, message, args...);
  }
  template <typename... Args>
  void logFatal(Message message, const Args&... args) {
    log(platform::LogLevel::kFatal, message, args...);
  }
  /// As `logInfo`.
  template <typename... Args>
  void logPerformance(Message message, const Args&... args) {
    log(platform::LogLevel::kInfo, message, args...);
  }

  /// Whether a message of this level would be written: for callers to whom making one is work.
  [[nodiscard]] static bool isEnabled(platform::LogLevel level) noexcept {
    return platform::VaroNativeFacade::isEnabled(level);
  }

  /// Has the sink write out what it buffers.
  void flush() noexcept;
  /// Sets the least level that is written, for the whole process.
  void setLogLevel(platform::LogLevel level) noexcept;

  BinaryLogger(const BinaryLogger&) = delete;
  BinaryLogger& operator=(const BinaryLogger&) = delete;

 private:
  BinaryLogger();
  ~BinaryLogger() = default;

  template <typename... Args>
  void log(platform::LogLevel level, const Message& message, const Args&... args) {
    if (!isEnabled(level)) return;
    if constexpr (sizeof...(args) == 0) {
      write(level, message.text, message.location);
    } else {
      write(level, platform::formatLogMessage(message.text, {platform::Value(args)...}),
            message.location);
    }
  }
  void write(platform::LogLevel level, std::string_view text,
             const platform::LogLocation& location) noexcept;
  void callFacade(const std::function<void()>& call) noexcept;

  /// Held while the process's sink is called.
  platform::Mutex mutex_;
  platform::VaroNativeFacade facade_;  // thread-safe
};

}  // namespace varo::binary
