#include "Client/ClientLog.h"

#include "Platform/Logging/LogRoute.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace varo::detail {

using platform::LogLocation;
using platform::LogRoute;

namespace {

/// Hands messages to an application's function.
class ClientLog final : public platform::LogSink {
 public:
  explicit ClientLog(std::function<void(const LogRecord&)> log) : log_(std::move(log)) {}

  void write(std::string_view logger, platform::LogLevel level, const LogLocation& location,
             std::string_view message) override {
    // Both enumerations have the same values; "off" is the level of no message.
    const LogRecord record{static_cast<LogLevel>(level), std::string(message), std::string(logger),
                           location.file, location.line};
    try {
      log_(record);
    } catch (...) {  // an application's code may throw anything; there is nowhere to tell it
    }
  }
  void flush() override {}

 private:
  const std::function<void(const LogRecord&)> log_;
};

}  // namespace

platform::JobContext::Ptr logContextOf(const Options& options) {
  if (options.log == nullptr) {
    return std::make_shared<LogRoute>(platform::LogLevel::kOff, nullptr);
  }
  return std::make_shared<LogRoute>(static_cast<platform::LogLevel>(options.logLevel),
                                    std::make_shared<ClientLog>(options.log));
}

}  // namespace varo::detail
