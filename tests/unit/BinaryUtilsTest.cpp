#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCommonUtils.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/Await.h"
#include "tests/support/RecordingLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

namespace varo::binary {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::Error;
using platform::ErrorPtr;
using platform::LogLevel;
using platform::Value;
using testing::ElementsAre;

TEST(BinaryCommonUtilsTest, FiltersJoinTheEntriesInOrderAndSuffixesFindTheirSeparator) {
  const auto filter = &BinaryCommonUtils::generateFilterStringWithMetadata;
  EXPECT_EQ(filter(std::nullopt), "");
  EXPECT_EQ(filter(Dictionary{}), "");
  EXPECT_EQ(filter(Dictionary{{"z", 5}}), "z eq '5'");
  EXPECT_EQ(filter(Dictionary{{"name", "a'.png"}, {"file", true}, {"b", "c"}}),
            "name eq 'a'.png' and file eq 'true' and b eq 'c'");
  EXPECT_EQ(BinaryCommonUtils::appendSuffixToUrl("u?a=1", "b=2"), "u?a=1&b=2");
  EXPECT_EQ(BinaryCommonUtils::appendSuffixToUrl("u", "b=2"), "u?b=2");
}

TEST(CommonUtilsTest, TaskErrorsCarryTheirMessageAlone) {
  const auto error = CommonUtils::getErrorForTask(7, "NetworkError", 6004, "text", "a response");
  EXPECT_EQ(error->taskID(), 7);
  EXPECT_EQ(error->userInfo(), (Dictionary{{"message", "text"}}));

  EXPECT_EQ(CommonUtils::validateResponseforTask(7, "d", {}, Data(), nullptr), nullptr);
  const auto failed = CommonUtils::validateResponseforTask(
      7, "NetworkTask", {}, std::nullopt, Error::make("x", 9, "connection refused"));
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->domain(), "NetworkTask");
  EXPECT_EQ(failed->code(), 6006);
  EXPECT_EQ(failed->userInfo(), (Dictionary{{"message", "Upload error: connection refused"}}));
}

TEST(CommonUtilsTest, WhatIsNotJsonIsMissing) {
  EXPECT_TRUE(CommonUtils::parseJsonString(std::nullopt).isMissing());
  EXPECT_TRUE(CommonUtils::parseJsonString("").isMissing());
  EXPECT_TRUE(CommonUtils::parseJsonString("{").isMissing());
  EXPECT_EQ(CommonUtils::parseJsonString("[1]").array()->size(), 1U);
  EXPECT_TRUE(CommonUtils::jsonObjectFromData(Data::fromBytes("x")).isMissing());
  EXPECT_EQ(CommonUtils::jsonStringFromDictionary({{"a", "b"}, {"c", nullptr}}),
            R"({"a":"b","c":null})");
  EXPECT_EQ(CommonUtils::jsonStringFromDictionary({{"a", Data()}}), std::nullopt);
  EXPECT_EQ(CommonUtils::getResponseString(std::nullopt), "");
  EXPECT_EQ(CommonUtils::getResponseString(Data::fromBytes("a\xFF")), "a\xEF\xBF\xBD");
}

TEST(TemplateUtilTest, ParsesIntoLiteralsAndNames) {
  const struct {
    std::string text;
    std::vector<std::string> literals;
    std::vector<std::string> names;
    std::optional<std::string> filled;  // with x = X, y = 5
  } cases[] = {
      {"", {""}, {}, ""},
      {"plain}", {"plain}"}, {}, "plain}"},
      {"a${x}b${y}", {"a", "b", ""}, {"x", "y"}, "aXb5"},
      {"a${x}b}c", {"a", "b"}, {"x"}, "aXb"},
      {"${x}${x}", {"", "", ""}, {"x", "x"}, "XX"},
      {"$${x}", {"$", ""}, {"x"}, "$X"},
      {"a${x", {"a${x"}, {}, std::nullopt},
      {"${x}b${", {"", "b${"}, {"x"}, std::nullopt},
      {"${none}", {"", ""}, {"none"}, std::nullopt},
  };
  for (const auto& item : cases) {
    const TemplateUtil util(item.text);
    EXPECT_EQ(util.formattedStrings(), item.literals) << item.text;
    EXPECT_EQ(util.templateVariables(), item.names) << item.text;
    ErrorPtr error;
    EXPECT_EQ(util.populateJSONTemplate({{"x", "X"}, {"y", 5}}, &error), item.filled) << item.text;
    EXPECT_EQ(error != nullptr, !item.filled) << item.text;
  }
  ErrorPtr error;
  EXPECT_EQ(TemplateUtil("${x}").populateJSONTemplate({}, &error), std::nullopt);
  EXPECT_EQ(error->domain(), "Template Parsing Error");
  EXPECT_EQ(error->code(), 10003);
  EXPECT_EQ(error->localizedDescription(), "fileParam x is not provided");
}

TEST(TemplateUtilTest, LenientFillReplacesWhatItCan) {
  const struct {
    std::string text;
    Dictionary values;
    std::string filled;
  } cases[] = {
      {"a${x}${y}${x}", {{"x", "1"}}, "a1${y}1"},
      {"a${x}", {}, "a${x}"},
      {"a${x}", {{"y", "1"}}, "a${x}"},
      {"${x}${y}", {{"x", "<${y}>"}, {"y", "2"}}, "<2>2"},
      {"${x}", {{"x", ""}}, "${x}"},
      {"a${x", {{"x", "1"}}, "a${x"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(TemplateUtil(item.text).tryPopulateJSONTemplate(item.values), item.filled);
  }
}

TEST(TemplateUtilTest, EndPointsAndTokensComeFromTheOptions) {
  const Dictionary options{{"domain", "http://own"}, {"X-Pelmar-Authorization", "secret"}};
  const auto endPoint = &TemplateUtil::endPointURLFrom;
  EXPECT_EQ(endPoint(Dictionary{{"domain", "#MiddlewareDomain"}, {"relativepath", "/p"}}, options),
            "http://own/p");
  EXPECT_EQ(endPoint(Dictionary{{"domain", "http://s"}, {"relativepath", "p"}}, options),
            "http://sp");
  EXPECT_EQ(endPoint(Dictionary{{"relativepath", "p"}}, options), std::nullopt);
  EXPECT_EQ(endPoint(std::nullopt, options), std::nullopt);
  EXPECT_EQ(endPoint(Dictionary{{"domain", "http://s"}}, std::nullopt), std::nullopt);
  EXPECT_EQ(
      endPoint(Dictionary{{"domain", "#middlewaredomain"}, {"relativepath", "/p"}}, Dictionary{}),
      std::nullopt);

  const auto inject = &TemplateUtil::injectVaroAuthorizationInto;
  EXPECT_EQ(inject(Dictionary{{"x-pelmar-authorization", "old"}}, options),
            (Dictionary{{"X-Pelmar-Authorization", "secret"}}));
  EXPECT_EQ(inject(std::nullopt, Dictionary{{"X-Pelmar-Authorization", ""}}), Dictionary{});
  EXPECT_EQ(inject(std::nullopt, std::nullopt), Dictionary{});
}

TEST(BinaryLoggerTest, MessagesAreAttributedToTheCallerAndFilledOnlyWhenEnabled) {
  const test::RecordingLog log(LogLevel::kInfo);
  BinaryLogger& logger = BinaryLogger::sharedInstance();
  logger.logDebug("below %@", 1);
  logger.logInfo("a %@ b %@", "text", Dictionary{{"X-Pelmar-Authorization", "secret"}});
  const int line = __LINE__ - 1;
  logger.logPerformance("100%@");
  const auto lines = log->lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[0].text, testing::StartsWith("a text b "));
  EXPECT_THAT(lines[0].text, testing::Not(testing::HasSubstr("secret")));
  EXPECT_EQ(lines[0].file, __FILE__);
  EXPECT_EQ(lines[0].line, line);
  EXPECT_EQ(lines[1].text, "100%@");
}

TEST(BinaryLoggerTest, SinksThatThrowOrLogThemselvesDoNoHarm) {
  const test::RecordingLog log;
  BinaryLogger& logger = BinaryLogger::sharedInstance();
  std::atomic<int> inside{0};
  log->onWrite = [&](std::string_view name) {
    EXPECT_EQ(name, "Binary");
    EXPECT_EQ(++inside, 1);
    logger.logInfo("from inside");
    --inside;
    throw std::runtime_error("the sink is full");
  };
  testing::internal::CaptureStderr();
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int k = 0; k < 50; ++k) logger.logError("message");
      });
    }
  }
  const std::string reported = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log->count(LogLevel::kError, "message"), 200);
  EXPECT_EQ(log->count(LogLevel::kInfo, "from inside"), 0);
  EXPECT_THAT(reported,
              testing::HasSubstr("An Exception occured std::runtime_error , the sink is full\n"));
}

TEST(BinaryCallbackTest, ReportsHaveTheShapesThatTheApplicationKnows) {
  std::promise<Value> success;
  std::promise<Value> failure;
  std::vector<Value> progress;
  const auto callback = BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(
      [&](const Value& value) { success.set_value(value); },
      [&](const Value& value) { failure.set_value(value); },
      [&](const Value& value) { progress.push_back(value); });

  BinaryCallbackUtils::executeProgressCallback(callback, OperationState::kUploadStarted, {});
  BinaryCallbackUtils::executeProgressCallback(callback, OperationState::kLastChunkUploaded,
                                               Dictionary{{"chunkId", 1}});
  EXPECT_THAT(
      progress,
      ElementsAre(Value(Dictionary{{"state", 0}}),
                  Value(Dictionary{{"state", 2}, {"progressData", Dictionary{{"chunkId", 1}}}})));

  BinaryCallbackUtils::executeSuccessCallback(callback, {});
  EXPECT_TRUE(success.get_future().get().isMissing());

  BinaryCallbackUtils::executeFailureCallback(
      callback, CommonUtils::getErrorForTask(1, "NetworkTask", 6003, "text", std::nullopt));
  EXPECT_EQ(failure.get_future().get(),
            Value(Dictionary{{"code", "6003"},
                             {"domain", "NetworkTask"},
                             {"userInfo", Dictionary{{"message", "text"}}}}));
  failure = {};
  BinaryCallbackUtils::executeFailureCallback(callback, Error::make("D", -1, "text"));
  EXPECT_EQ(failure.get_future().get(),
            Value(Dictionary{{"code", "-1"},
                             {"localizedDescription", "text"},
                             {"domain", "D"},
                             {"userInfo", Dictionary{{"NSLocalizedDescription", "text"}}}}));

  BinaryCallbackUtils::executeFailureCallback(nullptr, nullptr);  // no holder: nothing happens
}

TEST(BinaryCallbackTest, WhatIsNotThereIsLoggedAtWarningLevel) {
  const test::RecordingLog log;
  const auto callback =
      BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(nullptr, nullptr, nullptr);
  callback->executeSuccessWithResult("r");
  callback->executeFailureWithError({});
  callback->executeProgressWithCurrentStatus("p");
  callback->executeProgressWithCurrentStatus({});
  callback->executeWithCallback(static_cast<CallbackType>(3), "x");
  BinaryCallback bare;
  bare.executeSuccessWithResult("r");
  bare.executeFailureWithError("e");
  bare.executeProgressWithCurrentStatus("p");
  const std::string_view expected[] = {
      "Success callback not defined",
      "Failure callback not defined",
      "Progress callback not defined",
      "Trying to invoke success callback with result r. Callbacks are not provided",
      "Trying to invoke failure callback with error (none). Callbacks are not provided",
      "Trying to invoke progress callback with progress p. Callbacks are not provided",
      "Error sent is nil or undefined for FailureCallback",
      "Progress sent is nil or undefined for ProgressCallback",
      "callbackType not found.",
      "Success callback is not defined.",
      "Failure callback is not defined.",
      "Progress callback is not defined",
  };
  for (const std::string_view text : expected) {
    EXPECT_TRUE(test::eventually([&] { return log->count(LogLevel::kWarning, text) == 1; }))
        << text;
  }
  EXPECT_EQ(log->lines().size(), std::size(expected));
}

TEST(BinaryCallbackTest, ProgressHoldsTheReporterAndSuccessDoesNot) {
  const auto reporter = std::this_thread::get_id();
  std::promise<void> release;
  std::promise<std::thread::id> ran;
  std::thread::id progressThread;
  const auto callback = BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(
      [&, released = release.get_future().share()](const Value&) {
        released.wait();
        ran.set_value(std::this_thread::get_id());
      },
      [](const Value&) { throw 5; },
      [&](const Value& value) {
        progressThread = std::this_thread::get_id();
        if (value == Value("throw")) throw std::runtime_error("mine");
      });
  const test::RecordingLog log;
  callback->executeSuccessWithResult("r");
  callback->executeFailureWithError("e");
  callback->executeProgressWithCurrentStatus("throw");
  EXPECT_EQ(progressThread, reporter);
  EXPECT_EQ(log->count(LogLevel::kError, "A callback of the application threw, exception : mine"),
            1);
  EXPECT_TRUE(test::eventually([&] {
    return log->count(LogLevel::kError,
                      "A callback of the application threw, exception : not a std::exception") == 1;
  }));
  release.set_value();
  EXPECT_NE(ran.get_future().get(), reporter);
}

}  // namespace
}  // namespace varo::binary
