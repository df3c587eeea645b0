#pragma once

#include "Platform/Foundation/JobContext.h"
#include "Platform/Logging/LogSink.h"

#include <memory>
#include <utility>

namespace varo::platform {

/// Where messages go that are logged in this context, and from which level on, instead of to the
/// process's sink. Immutable.
class LogRoute final : public JobContext {
 public:
  /// `sink` gets the messages, from several threads at once; null with `LogLevel::kOff`.
  LogRoute(LogLevel level, std::shared_ptr<LogSink> sink) : level_(level), sink_(std::move(sink)) {}

  [[nodiscard]] bool isEnabled(LogLevel level) const noexcept {
    return level >= level_ && level != LogLevel::kOff && sink_ != nullptr;
  }
  /// Precondition: there is one, as `isEnabled` says.
  [[nodiscard]] LogSink& sink() const noexcept { return *sink_; }

  /// That of this thread; null where messages go to the process's sink.
  [[nodiscard]] static const LogRoute* current() noexcept {
    return dynamic_cast<const LogRoute*>(JobContext::current().get());
  }

 private:
  const LogLevel level_;
  const std::shared_ptr<LogSink> sink_;
};

}  // namespace varo::platform
