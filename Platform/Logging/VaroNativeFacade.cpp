#include "Platform/Logging/VaroNativeFacade.h"

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Logging/LogRoute.h"
#include "Platform/Logging/SpdlogSink.h"

#include <atomic>
#include <utility>

namespace varo::platform {
namespace {

/// The lowest level that is written. Relaxed: a change need not be seen at once.
std::atomic<LogLevel> threshold{LogLevel::kWarning};

/// The sink in force. Callers work on a shared copy outside the lock, so that a slow sink holds up
/// no one else and a replaced one lives until its last message is written.
class SinkSlot {
 public:
  [[nodiscard]] std::shared_ptr<LogSink> get() {
    const MutexLock lock(mutex_);
    if (sink_ == nullptr) sink_ = std::make_shared<SpdlogSink>();
    return sink_;
  }

  void set(std::shared_ptr<LogSink> sink) {
    const MutexLock lock(mutex_);
    sink_.swap(sink);  // the old one is destroyed after the lock is released, with the parameter
  }

 private:
  Mutex mutex_;
  std::shared_ptr<LogSink> sink_ VARO_GUARDED_BY(mutex_);  // null: the default, not made yet
};

SinkSlot& sinkSlot() {
  // Never destroyed: destructors of other static objects may log.
  static SinkSlot* const slot = std::make_unique<SinkSlot>().release();
  return *slot;
}

}  // namespace

VaroNativeFacade::VaroNativeFacade(std::string logger, const Dictionary& /*config*/)
    : logger_(std::move(logger)) {}

void VaroNativeFacade::logTrace(std::string_view message, LogLocation location) const {
  log(LogLevel::kTrace, message, location);
}

void VaroNativeFacade::logDebug(std::string_view message, LogLocation location) const {
  log(LogLevel::kDebug, message, location);
}

void VaroNativeFacade::logInfo(std::string_view message, LogLocation location) const {
  log(LogLevel::kInfo, message, location);
}

void VaroNativeFacade::logWarning(std::string_view message, LogLocation location) const {
  log(LogLevel::kWarning, message, location);
}

void VaroNativeFacade::logError(std::string_view message, LogLocation location) const {
  log(LogLevel::kError, message, location);
}

void VaroNativeFacade::logFatal(std::string_view message, LogLocation location) const {
  log(LogLevel::kFatal, message, location);
}

void VaroNativeFacade::flush() { sinkSlot().get()->flush(); }

void VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel level) {
  threshold.store(level, std::memory_order_relaxed);
}

bool VaroNativeFacade::isEnabled(LogLevel level) noexcept {
  if (const LogRoute* route = LogRoute::current()) return route->isEnabled(level);
  return level >= threshold.load(std::memory_order_relaxed) && level != LogLevel::kOff;
}

void VaroNativeFacade::setSink(std::shared_ptr<LogSink> sink) { sinkSlot().set(std::move(sink)); }

void VaroNativeFacade::log(LogLevel level, std::string_view message,
                           const LogLocation& location) const {
  if (!isEnabled(level)) return;
  const std::string text = redactSecrets(message);
  if (const LogRoute* route = LogRoute::current()) {
    return route->sink().write(logger_, level, location, text);
  }
  sinkSlot().get()->write(logger_, level, location, text);
}

}  // namespace varo::platform
