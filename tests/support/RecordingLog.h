#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Logging/VaroNativeFacade.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace varo::test {

/// Keeps what is logged. Thread-safe.
class RecordingSink final : public platform::LogSink {
 public:
  struct Line {
    platform::LogLevel level;
    std::string text, file;
    int line;
  };

  void write(std::string_view logger, platform::LogLevel level,
             const platform::LogLocation& location, std::string_view message) override {
    {
      const platform::MutexLock lock(mutex_);
      lines_.push_back({level, std::string(message), location.file, location.line});
    }
    if (onWrite) onWrite(logger, message);
  }
  void flush() override {}

  [[nodiscard]] std::vector<Line> lines() const {
    const platform::MutexLock lock(mutex_);
    return lines_;
  }
  /// How often exactly this was logged at this level.
  [[nodiscard]] std::ptrdiff_t count(platform::LogLevel level, std::string_view text) const {
    const platform::MutexLock lock(mutex_);
    return std::count_if(lines_.begin(), lines_.end(), [&](const Line& line) {
      return line.level == level && line.text == text;
    });
  }
  void clear() {
    const platform::MutexLock lock(mutex_);
    lines_.clear();
  }

  /// Called for each line with the logger's name and the text; set before the sink is used.
  std::function<void(std::string_view, std::string_view)> onWrite;

 private:
  mutable platform::Mutex mutex_;
  std::vector<Line> lines_ VARO_GUARDED_BY(mutex_);
};

/// Has everything from `level` up recorded, until it goes out of scope.
class RecordingLog {
 public:
  explicit RecordingLog(platform::LogLevel level = platform::LogLevel::kTrace) {
    platform::VaroNativeFacade::setSink(sink_);
    platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(level);
  }
  ~RecordingLog() {
    platform::VaroNativeFacade::setSink(nullptr);
    platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(
        platform::LogLevel::kWarning);
  }
  RecordingLog(const RecordingLog&) = delete;
  RecordingLog& operator=(const RecordingLog&) = delete;

  RecordingSink& operator*() const { return *sink_; }
  RecordingSink* operator->() const { return sink_.get(); }

 private:
  const std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();
};

}  // namespace varo::test
