#include "Platform/Logging/SpdlogSink.h"
#include "Platform/Logging/VaroNativeFacade.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace varo::platform {
namespace {

using namespace testing;

class LoggingTest : public testing::Test {
 protected:
  ~LoggingTest() override {
    VaroNativeFacade::setSink(nullptr);
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kWarning);
  }

  const VaroNativeFacade log_{"Test", {}};
};

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

TEST_F(LoggingTest, OnlyMessagesFromTheLevelUpReachTheSink) {
  std::atomic<int> count{0};
  VaroNativeFacade::setSink(std::make_shared<CountingSink>(count));
  log_.logInfo("below");
  EXPECT_EQ(count, 0);
  log_.logWarning("at");
  log_.logFatal("above");
  EXPECT_EQ(count, 2);
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kOff);
  log_.logFatal("off");
  EXPECT_EQ(count, 2);
}

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

}  // namespace
}  // namespace varo::platform
