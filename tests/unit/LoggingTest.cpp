#include "Platform/Common/NetworkError.h"
#include "Platform/Logging/SpdlogSink.h"
#include "Platform/Logging/VaroNativeFacade.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace varo::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class RecordingSink final : public LogSink {
 public:
  void write(std::string_view logger, LogLevel level, const LogLocation& location,
             std::string_view message) override {
    lines.push_back(std::string(logger) + "/" + std::to_string(static_cast<int>(level)) + "/" +
                    std::string(message));
    lastLocation = location;
  }
  void flush() override { ++flushes; }

  std::vector<std::string> lines;
  LogLocation lastLocation;
  int flushes = 0;
};

class LoggingTest : public testing::Test {
 protected:
  ~LoggingTest() override {
    VaroNativeFacade::setSink(nullptr);
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kWarning);
  }

  const VaroNativeFacade log_{"Test", {}};
};

TEST_F(LoggingTest, MessagesFromTheLevelUpReachTheSinkWithTheirPlace) {
  const auto sink = std::make_shared<RecordingSink>();
  VaroNativeFacade::setSink(sink);
  const auto logAll = [this] {
    log_.logTrace("t");
    log_.logDebug("d");
    log_.logInfo("i");
    log_.logWarning("w");
    log_.logError("e");
    log_.logFatal("f");
  };
  logAll();
  EXPECT_THAT(sink->lines, ElementsAre("Test/3/w", "Test/4/e", "Test/5/f"));
  sink->lines.clear();
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kTrace);
  logAll();
  EXPECT_EQ(sink->lines.size(), 6U);
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kOff);
  logAll();
  EXPECT_EQ(sink->lines.size(), 6U);
  EXPECT_FALSE(VaroNativeFacade::isEnabled(LogLevel::kOff));

  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kInfo);
  log_.logInfo("here");
  EXPECT_EQ(sink->lastLocation.line, __LINE__ - 1);
  EXPECT_STREQ(sink->lastLocation.file, __FILE__);
  VaroNativeFacade::flush();
  EXPECT_EQ(sink->flushes, 1);
}

class ThrowingSink final : public LogSink {
 public:
  void write(std::string_view, LogLevel, const LogLocation&, std::string_view) override {
    throw std::runtime_error("full");
  }
  void flush() override { throw std::runtime_error("full"); }
};

TEST_F(LoggingTest, WhatTheSinkThrowsLeavesTheFacadeUsable) {
  VaroNativeFacade::setSink(std::make_shared<ThrowingSink>());
  EXPECT_THROW(log_.logError("lost"), std::runtime_error);
  EXPECT_THROW(VaroNativeFacade::flush(), std::runtime_error);
  EXPECT_NO_THROW(log_.logInfo("below the level"));
  const auto sink = std::make_shared<RecordingSink>();
  VaroNativeFacade::setSink(sink);
  log_.logError("kept");
  EXPECT_THAT(sink->lines, ElementsAre("Test/4/kept"));
}

class CountingSink final : public LogSink {
 public:
  explicit CountingSink(std::atomic<int>& count) : count_(count) {}
  void write(std::string_view, LogLevel, const LogLocation&, std::string_view) override {
    ++count_;
  }
  void flush() override {}

 private:
  std::atomic<int>& count_;
};

TEST_F(LoggingTest, NoMessageIsLostWhileSinksAreSwapped) {
  constexpr int kMessages = 2000;
  std::atomic<int> count{0};
  VaroNativeFacade::setSink(std::make_shared<CountingSink>(count));
  std::atomic<bool> done{false};
  std::thread swapper([&count, &done] {
    while (!done) VaroNativeFacade::setSink(std::make_shared<CountingSink>(count));
  });
  const auto logMany = [this] {
    for (int i = 0; i < kMessages; ++i) log_.logWarning("x");
  };
  std::thread other(logMany);
  logMany();
  other.join();
  done = true;
  swapper.join();
  EXPECT_EQ(count, 2 * kMessages);
}

TEST(SpdlogSinkTest, LineNamesLevelLoggerAndPlaceAndShowsControlCharacters) {
  std::FILE* stream = std::tmpfile();
  ASSERT_NE(stream, nullptr);
  {
    SpdlogSink sink(stream);
    sink.write("Binary", LogLevel::kError, {"dir/file.cpp", 12, "f"},
               "bad \x1b[2J\r{}\n2024 forged");
    sink.flush();
  }
  std::string text(512, '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  EXPECT_THAT(text,
              HasSubstr("error    [Binary] bad \\x1b[2J\\x0d{}\n    2024 forged (file.cpp:12)\n"));
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));  // no colours either: this is no terminal
}

TEST(CallStackTest, NamesItsCallersFromTheInnermostOn) {
  const std::vector<std::string> stack = currentCallStack();
  ASSERT_FALSE(stack.empty());
  EXPECT_LE(stack.size(), 32U);
  for (const std::string& frame : stack) {
    EXPECT_FALSE(frame.empty());
    EXPECT_THAT(frame, Not(HasSubstr("currentCallStack")));
  }
}

}  // namespace
}  // namespace varo::platform
