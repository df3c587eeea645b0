#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCommonUtils.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/Await.h"
#include "tests/support/RecordingLog.h"

#include <gmock/gmock.h>

#include <future>
#include <stdexcept>

namespace varo::binary {
namespace {

using namespace platform;

TEST(BinaryCommonUtilsTest, FiltersJoinTheEntriesInOrderAndSuffixesFindTheirSeparator) {
  const auto filter = &BinaryCommonUtils::generateFilterStringWithMetadata;
  EXPECT_EQ(filter(Dictionary{{"name", "a'.png"}, {"file", true}, {"b", "c"}}),
            "name eq 'a'.png' and file eq 'true' and b eq 'c'");
  Array tags;
  for (int i = 0; i < 2000; ++i) tags.append("long");
  tags.append(Dictionary{{"token", "t"}});
  const std::string whole = filter(Dictionary{{"tags", tags}});
  EXPECT_EQ(whole.size(), 2000 * 7 + 25U) << "neither cut nor redacted";
  EXPECT_THAT(whole, testing::EndsWith(R"("long",{"token":"t"}]')"));
  EXPECT_EQ(BinaryCommonUtils::appendSuffixToUrl("u?a=1", "b=2"), "u?a=1&b=2");
  EXPECT_EQ(BinaryCommonUtils::appendSuffixToUrl("u", "b=2"), "u?b=2");
}

TEST(TemplateUtilTest, ParsesIntoLiteralsAndNamesAndIsFilledWhollyOrAsFarAsItCan) {
  const struct {
    std::string text;
    std::vector<std::string> literals, names;
    std::optional<std::string> filled;  // with x = X, y = 5
    std::string lenient = filled.value_or(text);
  } cases[] = {
      {"", {""}, {}, ""},
      {"plain}", {"plain}"}, {}, "plain}"},
      {"a${x}b${y}", {"a", "b", ""}, {"x", "y"}, "aXb5"},
      {"a${x}b}c", {"a", "b"}, {"x"}, "aXb", "aXb}c"},
      {"${x}${x}", {"", "", ""}, {"x", "x"}, "XX"},
      {"$${x}", {"$", ""}, {"x"}, "$X"},
      {"a${x", {"a${x"}, {}, std::nullopt},
      {"${x}b${", {"", "b${"}, {"x"}, std::nullopt, "Xb${"},
      {"${none}", {"", ""}, {"none"}, std::nullopt},
  };
  for (const auto& item : cases) {
    const TemplateUtil util(item.text);
    EXPECT_EQ(util.formattedStrings(), item.literals) << item.text;
    EXPECT_EQ(util.templateVariables(), item.names) << item.text;
    const Dictionary values{{"x", "X"}, {"y", 5}};
    ErrorPtr error;
    EXPECT_EQ(util.populateJSONTemplate(values, &error), item.filled) << item.text;
    EXPECT_EQ(error != nullptr, !item.filled) << item.text;
    EXPECT_EQ(util.tryPopulateJSONTemplate(values), item.lenient) << item.text;
  }
  ErrorPtr error;
  EXPECT_EQ(TemplateUtil("${x}").populateJSONTemplate({}, &error), std::nullopt);
  EXPECT_EQ(error->domain(), "Template Parsing Error");
  EXPECT_EQ(error->code(), 10003);
  EXPECT_EQ(error->localizedDescription(), "fileParam x is not provided");
  EXPECT_EQ(TemplateUtil("${x}").tryPopulateJSONTemplate({{"x", ""}}), "${x}");
  EXPECT_EQ(TemplateUtil("${x}${y}").tryPopulateJSONTemplate({{"x", "<${y}>"}, {"y", "2"}}),
            "<2>2");
}

TEST(TemplateUtilTest, NoDomainGivesNoEndPointAndAnEmptyTokenIsNone) {
  const Dictionary options{{"domain", "http://own"}};
  const auto endPoint = &TemplateUtil::endPointURLFrom;
  const Dictionary ofService{{"domain", "#middlewaredomain"}, {"relativepath", "/p"}};
  EXPECT_EQ(endPoint(Dictionary{{"relativepath", "p"}}, options), std::nullopt);
  EXPECT_EQ(endPoint(ofService, Dictionary{{"domain", nullptr}}), std::nullopt);
  EXPECT_EQ(endPoint(Dictionary{{"domain", nullptr}, {"relativepath", "p"}}, options),
            std::nullopt);
  EXPECT_EQ(endPoint(std::nullopt, options), std::nullopt);
  EXPECT_EQ(endPoint(ofService, std::nullopt), std::nullopt);
  EXPECT_EQ(endPoint(Dictionary{{"domain", "http://d"}, {"relativepath", nullptr}}, options),
            "http://d");
  const auto inject = &TemplateUtil::injectVaroAuthorizationInto;
  EXPECT_EQ(inject(std::nullopt, Dictionary{{"X-Pelmar-Authorization", ""}}), Dictionary{});
  EXPECT_EQ(inject(Dictionary{{"x-pelmar-authorization", "old"}},
                   Dictionary{{"X-Pelmar-Authorization", "new"}}),
            (Dictionary{{"X-Pelmar-Authorization", "new"}}));
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

TEST(BinaryLoggerTest, SinksThatThrowOrLogThemselvesDoNoHarm) {
  const test::RecordingLog log;
  BinaryLogger& logger = BinaryLogger::sharedInstance();
  log->onWrite = [&](std::string_view name, auto) {
    EXPECT_EQ(name, "Binary");
    logger.logInfo("from inside");
    throw std::runtime_error("the sink is full");
  };
  testing::internal::CaptureStderr();
  logger.logError("message");
  const std::string reported = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log->count(LogLevel::kError, "message"), 1);
  EXPECT_EQ(log->count(LogLevel::kInfo, "from inside"), 0);
  EXPECT_THAT(reported,
              testing::HasSubstr("An Exception occured std::runtime_error , the sink is full\n"));
}

}  // namespace
}  // namespace varo::binary
