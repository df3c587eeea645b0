#include "Binary/Binary/BinaryLogger.h"

#include "Platform/Logging/LogRoute.h"

#include <boost/core/demangle.hpp>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

namespace varo::binary {
namespace {

using platform::LogLevel;
using platform::LogLocation;
using platform::MutexLock;
using platform::VaroNativeFacade;

constexpr std::string_view kLoggerName = "Binary";
constexpr std::string_view kFacadeFailed = "An Exception occured %@ , %@";
/// The facade's caller is this logger; messages belong to the logger's caller.
constexpr int kIndirectionLevel = 1;

/// Whether this thread is inside the sink, whose own messages would need the lock it runs under.
thread_local bool insideSink = false;

class InsideSink {
 public:
  InsideSink() { insideSink = true; }
  ~InsideSink() { insideSink = false; }
  InsideSink(const InsideSink&) = delete;
  InsideSink& operator=(const InsideSink&) = delete;
};

/// Writes to standard error, the one log that is left when the logging itself has failed.
void reportToSystem(std::string_view name, std::string_view reason) noexcept {
  try {
    const std::string text = platform::formatMessage(kFacadeFailed, {name, reason}) + "\n";
    (void)std::fputs(text.c_str(), stderr);  // nowhere is left to report a failure to
  } catch (const std::exception&) {
    (void)std::fputs("Logging failed for lack of memory\n", stderr);
  }
}

}  // namespace

BinaryLogger& BinaryLogger::sharedInstance() {
  // Never destroyed: the last messages of the process come from its other static objects.
  static BinaryLogger& instance = *new BinaryLogger();
  return instance;
}

BinaryLogger::BinaryLogger() : facade_(std::string(kLoggerName), {}) {
  facade_.setIndirectionLevel(kIndirectionLevel);
}

void BinaryLogger::flush() noexcept {
  callFacade([]() { VaroNativeFacade::flush(); });
}

void BinaryLogger::setLogLevel(LogLevel level) noexcept {
  callFacade([level]() { VaroNativeFacade::setLogLevelAndActivateNetworkPersister(level); });
}

void BinaryLogger::write(LogLevel level, std::string_view text,
                         const LogLocation& location) noexcept {
  callFacade([this, level, text, &location]() {
    switch (level) {
      case LogLevel::kTrace:
        return facade_.logTrace(text, location);
      case LogLevel::kDebug:
        return facade_.logDebug(text, location);
      case LogLevel::kInfo:
        return facade_.logInfo(text, location);
      case LogLevel::kWarning:
        return facade_.logWarning(text, location);
      case LogLevel::kError:
        return facade_.logError(text, location);
      case LogLevel::kFatal:
        return facade_.logFatal(text, location);
      case LogLevel::kOff:
        return;
    }
  });
}

void BinaryLogger::callFacade(const std::function<void()>& call) noexcept {
  if (insideSink) return;
  try {
    const InsideSink inside;
    // The log of one client is its own affair: it may take long, or wait for another operation.
    if (platform::LogRoute::current() != nullptr) return call();
    const MutexLock lock(mutex_);
    call();
  } catch (const std::exception& exception) {
    reportToSystem(boost::core::demangle(typeid(exception).name()), exception.what());
  } catch (...) {
    reportToSystem("unknown exception", "no reason given");
  }
}

}  // namespace varo::binary
