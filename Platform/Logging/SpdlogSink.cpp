#include "Platform/Logging/SpdlogSink.h"

#include <fmt/format.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/ansicolor_sink.h>

#include <algorithm>
#include <string>

namespace varo::platform {
namespace {

/// Time with milliseconds and zone, level (the only coloured part), logger, message, place.
constexpr const char* kPattern = "%Y-%m-%d %H:%M:%S.%e%z %^%-8l%$ [%n] %v (%s:%#)";

spdlog::level::level_enum spdlogLevel(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::kTrace:
      return spdlog::level::trace;
    case LogLevel::kDebug:
      return spdlog::level::debug;
    case LogLevel::kInfo:
      return spdlog::level::info;
    case LogLevel::kWarning:
      return spdlog::level::warn;
    case LogLevel::kError:
      return spdlog::level::err;
    case LogLevel::kFatal:
      return spdlog::level::critical;
    case LogLevel::kOff:
      break;
  }
  return spdlog::level::off;
}

constexpr bool isHarmless(char c) { return static_cast<unsigned char>(c) >= 0x20U && c != '\x7f'; }

std::string printable(std::string_view message) {
  std::string result;
  result.reserve(message.size());
  for (const char c : message) {
    if (isHarmless(c) || c == '\t') {
      result += c;
    } else if (c == '\n') {
      result += "\n    ";
    } else {
      result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
  }
  return result;
}

}  // namespace

/// Only the sink of the library is used: its loggers would keep a second level and a registry.
class SpdlogSink::Implementation {
 public:
  explicit Implementation(std::FILE* stream) : sink_(stream, spdlog::color_mode::automatic) {
    sink_.set_pattern(kPattern);
  }

  spdlog::sinks::ansicolor_sink<spdlog::details::console_mutex>& sink() noexcept { return sink_; }

 private:
  spdlog::sinks::ansicolor_sink<spdlog::details::console_mutex> sink_;  // locks by itself
};

SpdlogSink::SpdlogSink(std::FILE* stream)
    : implementation_(std::make_unique<Implementation>(stream)) {}

SpdlogSink::~SpdlogSink() = default;

void SpdlogSink::write(std::string_view logger, LogLevel level, const LogLocation& location,
                       std::string_view message) {
  std::string cleaned;
  // Texts of servers get into log lines. An escape in one would steer the terminal, a line break
  // would fake a line.
  if (!std::all_of(message.begin(), message.end(), isHarmless)) {
    cleaned = printable(message);
    message = cleaned;
  }
  const spdlog::source_loc place(location.file, location.line, location.function);
  implementation_->sink().log(spdlog::details::log_msg(
      place, {logger.data(), logger.size()}, spdlogLevel(level), {message.data(), message.size()}));
}

void SpdlogSink::flush() { implementation_->sink().flush(); }

}  // namespace varo::platform
