#include "Platform/Logging/SpdlogSink.h"
#include "tests/support/RecordingLog.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace varo::platform {
namespace {

using namespace testing;

TEST(LoggingTest, OnlyMessagesFromTheLevelUpReachTheSink) {
  const test::RecordingLog log(LogLevel::kWarning);
  const VaroNativeFacade logger("Test", {});
  logger.logInfo("below");
  logger.logWarning("at");
  logger.logWarning("Cookie: hush");
  logger.logFatal("above");
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kOff);
  logger.logFatal("off");
  EXPECT_EQ(log->lines().size(), 3U);
  EXPECT_EQ(log->count(LogLevel::kWarning, "at"), 1);
  EXPECT_EQ(log->count(LogLevel::kWarning, "Cookie: <redacted>"), 1);
}

TEST(LoggingTest, NoMessageIsLostWhileSinksAreSwapped) {
  constexpr int kMessages = 2000;
  const test::RecordingLog setBackAtTheEnd(LogLevel::kWarning);
  const VaroNativeFacade logger("Test", {});
  std::atomic<int> count{0};
  const auto setNewSink = [&count] {
    const auto sink = std::make_shared<test::RecordingSink>();
    sink->onWrite = [&count](std::string_view, std::string_view) { ++count; };
    VaroNativeFacade::setSink(sink);
  };
  setNewSink();
  std::atomic<bool> done{false};
  std::thread swapper([&setNewSink, &done] {
    while (!done) setNewSink();
  });
  const auto logMany = [&logger] {
    for (int i = 0; i < kMessages; ++i) logger.logWarning("x");
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

}  // namespace
}  // namespace varo::platform
