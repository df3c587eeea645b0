#include "Binary/Binary/UploadTask/BytesUploadHandlerTask.h"
#include "Binary/Binary/UploadTask/MultiPartUploaderTask.h"
#include "Binary/Binary/UploadTask/UploadTemplateGetterTask.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/OnlineUploadFixture.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/RecordingLog.h"

#include <stdexcept>
#include <sys/stat.h>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kWrongStatus =
    "6008 Unable to upload - Unexpected HTTP response code during upload";

using OnlineUploadFailureTest = test::OnlineUploadFixture;

TEST_F(OnlineUploadFailureTest, ConfigurationThatBreaksARuleIsReportedAndNothingIsSent) {
  const std::string missing = "failed UploadError 6010 Unable to upload file - Missing parameter: ";
  const std::string type =
      "failed UploadError 6011 Unable to upload file - Invalid data type of parameter: ";
  const std::string value =
      "failed UploadError 6012 Unable to upload file - Invalid parameter value: ";
  const Data bytes = Data::fromBytes("b");
  const std::string fifo = home_ / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    Dictionary configuration;
    std::string outcome;
  } cases[] = {
      {{}, missing + "Invalid parameter received for uploadConfig"},
      {{{"rawBytes", bytes}}, missing + "Could not find Url"},
      {{{"URL", 5}}, type + "Invalid datatype found for Url"},
      {{{"URL", ""}}, value + "Empty url string"},
      {{{"URL", "u"}}, missing + "Either FilePath or RawBytes needs to be specified"},
      {{{"URL", "u"}, {"FilePath", writeFile("one", "1")}, {"rawBytes", bytes}},
       value + "Both FilePath and RawBytes cannot be specified"},
      {{{"URL", "u"}, {"FilePath", 5}}, type + "Invalid datatype found for Url"},
      {{{"URL", "u"}, {"FilePath", writeFile("empty", "")}},
       type + "No data present in given file"},
      {{{"URL", "u"}, {"FilePath", home_ / "none"}},
       value + "Could not find File at given FilePath"},
      {{{"URL", "u"}, {"FilePath", writeFile("one", "1") + std::string("\0", 1)}},
       value + "Could not find File at given FilePath"},
      {{{"URL", "u"}, {"FilePath", fifo}}, type + "No data present in given file"},
      {{{"URL", "u"}, {"rawBytes", "text"}}, type + "Invalid datatype found for rawData"},
      {{{"URL", "u"}, {"rawBytes", Data()}}, value + "Null value found for rawData"},
      {config({{"headers", "A: b"}}), type + "Invalid datatype found for headers"},
      {config({{"uploadParams", "a"}}), type + "Invalid datatype found for uploadParams"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(outcome(item.configuration), item.outcome);
    EXPECT_EQ(calls().back().uploadParams, item.configuration["uploadParams"]);
  }
  EXPECT_EQ(OnlineBinaryUploadManager::validateInput(std::nullopt)->code(), 6010);
  EXPECT_EQ(transport_->requestCount(), 0U);
}

TEST_F(OnlineUploadFailureTest, FailedRequestsAreReportedWithTheErrorsOfTheirTask) {
  const std::string lost = "failed BackendUploaderTask 6006 Upload error: lost";
  const struct {
    test::ScriptedAnswer templateAnswer, answer;
    std::string outcome;
  } cases[] = {
      {answerWith(201, "b"), {}, "failed UploadTemplateTask " + kWrongStatus + ": b"},
      {answerWith(500, std::nullopt), {}, "failed UploadTemplateTask " + kWrongStatus + ": "},
      {failWith(7, "lost"), {}, lost},
      {answerWith(401, "the key AK1 is old, not k-e-y"),
       {},
       "failed UploadTemplateTask " + kWrongStatus + ": the key AK1 is old, not <redacted>"},
      {answerWith(200, kBinary), failWith(7, "lost"), "started, " + lost},
      {answerWith(200, kBinary), answerWith(403, "why"),
       "started, failed BackendUploaderTask " + kWrongStatus},
      {answerWith(200, kForm), answerWith(201, "made"), "started, completed made"},
  };
  const Dictionary params{{"p", 1}, {"secretAccessKey", "k-e-y"}};
  for (const auto& item : cases) {
    template_ = item.templateAnswer;
    answer_ = item.answer;
    EXPECT_EQ(outcome(config({{"uploadParams", params}})), item.outcome);
    const Call last = calls().back();
    EXPECT_EQ(last.uploadParams, Value(params));
    const platform::Array* errors = last.error.array();
    if (errors == nullptr) continue;
    // The message, and what the transport said of a request that got no answer.
    const platform::ErrorPtr error = (*errors)[0].error();
    const bool isLost = item.outcome.ends_with(lost);
    EXPECT_EQ(error->userInfo().size(), isLost ? 2U : 1U);
    EXPECT_EQ(platform::firstCause(*error).code(), isLost ? 7 : error->code());
  }
}

TEST_F(OnlineUploadFailureTest, RequestsThatEndWithoutAnAnswerGiveTheirPlacesBack) {
  for (const ScriptedAnswer& end : {endWithNothing(), dropCompletion(), throwFromSend()}) {
    template_ = end;
    for (int i = 0; i < 6; ++i) {
      EXPECT_THAT(outcome(config()), StartsWith("failed BackendUploaderTask 6006 Upload error: "));
    }
  }
}

TEST_F(OnlineUploadFailureTest, PoliciesDifferWhereBytesWouldBeLost) {
  const std::string path = writeFile("f", kBytes);
  const auto vanishing = [&](const std::string& uploadTemplate) {
    (void)writeFile("f", kBytes);
    transport_->setHandler([=, this](const RecordedRequest& request) {
      std::filesystem::remove(path);  // after it was validated
      return request.url == kTemplateUrl ? answerWith(200, uploadTemplate) : answer_;
    });
    return outcome({{"URL", kTemplateUrl}, {"FilePath", path}});
  };
  const std::string lossy = R"({"uploadMode":"multipart","endpointUrl":"http://store/o",)"
                            R"("requestBody":{"f":"fileContent","m":{}}})";
  EXPECT_EQ(vanishing(kBinary), "started, completed stored");
  EXPECT_EQ(transport_->requests().back().body, "");
  template_ = answerWith(200, lossy);
  EXPECT_EQ(vanishing(lossy), "started, completed stored");

  setTransferPolicy(TransferPolicy::kSafe);
  const std::size_t before = transport_->requestCount();
  EXPECT_THAT(vanishing(kBinary),
              StartsWith("failed BackendUploaderTask 6007 Unable to upload file - unknown error "
                         "while uploading: "));
  EXPECT_THAT(vanishing(kForm), StartsWith("failed BackendUploadedTask 6007 "));
  transport_->setHandler([&](const RecordedRequest& request) {
    return request.url == kTemplateUrl ? template_ : answer_;
  });
  EXPECT_EQ(outcome(config()),
            "started, failed BackendUploadedTask 6012 Unable to upload file - Invalid parameter "
            "value: the upload template's requestBody has no part for the file's bytes");
  EXPECT_EQ(transport_->requestCount(), before + 3);  // the templates'

  template_ = answerWith(200, kBinary);
  answer_ = answerWith(403, "the reason, not k-e-y");
  EXPECT_EQ(outcome(config({{"uploadParams", Dictionary{{"secretAccessKey", "k-e-y"}}}})),
            "started, failed BackendUploaderTask " + kWrongStatus);
  const Dictionary userInfo = (*calls().back().error.array())[0].error()->userInfo();
  EXPECT_EQ(userInfo["httpStatusCode"], Value(403));
  EXPECT_EQ(userInfo["responseBody"], Value("the reason, not <redacted>"));
}

TEST_F(OnlineUploadFailureTest, PoliciesDifferInWhatIsASuccessAndWhichTemplatesAreFollowed) {
  const std::string stored = "started, completed stored";
  const std::string unknown = "failed UploadTask 6013 UploadTask (code 6013)";
  const auto noBytes = [](const std::string& mode, const std::string& method) {
    return "failed UploadTask 6012 Unable to upload file - Invalid parameter value: the upload "
           "template's \"uploadMode\" '" +
           mode + "' and \"method\" '" + method + "' would have no bytes sent";
  };
  const auto target = [](const std::string& mode, const std::string& method) {
    return answerWith(200, R"({"uploadMode":")" + mode + R"(","method":)" + method +
                               R"(,"endpointUrl":"http://store/o","requestBody":{"f":"file"}})");
  };
  const ScriptedAnswer done = answerWith(200, "stored");
  const struct {
    ScriptedAnswer uploadTemplate, answer;
    std::string compatible, safe;
  } cases[] = {
      {answerWith(200, kBinary), answerWith(204, std::nullopt),
       "started, failed BackendUploaderTask " + kWrongStatus, "started, completed "},
      {answerWith(200, kForm), answerWith(299, "stored"),
       "started, failed BackendUploadedTask " + kWrongStatus, stored},
      {answerWith(200, kForm), answerWith(200, std::nullopt), "started, completed ",
       "started, completed "},
      {answerWith(200, kForm), answerWith(300, "stored"),
       "started, failed BackendUploadedTask " + kWrongStatus,
       "started, failed BackendUploadedTask " + kWrongStatus},
      {answerWith(200, std::nullopt), done, unknown,
       "failed UploadTemplateTask 6014 Empty Body Received from Server"},
      {answerWith(200, ""), done, unknown,
       "failed UploadTemplateTask 6014 Empty Body Received from Server"},
      {answerWith(200, "<html>log in</html>"), done, unknown, noBytes("", "")},
      {target("Binary", "null"), done, unknown, noBytes("Binary", "")},
      {target("binary", R"("put")"), done, stored, stored},
      {target("binary", R"("POST")"), done, stored, noBytes("binary", "POST")},
      {target("multipart", R"("Post")"), done, stored, stored},
      {target("multipart", R"("PUT")"), done, stored, noBytes("multipart", "PUT")},
  };
  for (const auto& item : cases) {
    template_ = item.uploadTemplate;
    answer_ = item.answer;
    setTransferPolicy(TransferPolicy::kCompatible);
    EXPECT_EQ(outcome(config()), item.compatible);
    setTransferPolicy(TransferPolicy::kSafe);
    const std::size_t before = transport_->requestCount();
    EXPECT_EQ(outcome(config()), item.safe);
    EXPECT_EQ(transport_->requestCount(), before + (item.safe.starts_with("started") ? 2 : 1));
  }
}

TEST_F(OnlineUploadFailureTest, PathOfATemplateLeadsToNoOtherServerThanItsDomain) {
  for (const TransferPolicy policy : {TransferPolicy::kCompatible, TransferPolicy::kSafe}) {
    setTransferPolicy(policy);
    for (const std::string domain : {"#middlewaredomain", "http://store"}) {
      template_ = answerWith(200, R"({"uploadMode":"binary","domain":")" + domain +
                                      R"(","relativepath":"@evil.test/x"})");
      const std::size_t before = transport_->requestCount();
      EXPECT_THAT(outcome(config(), Dictionary{{"domain", "http://svc:1"}}),
                  StartsWith("failed BackendUploaderTask 6018 "));
      EXPECT_EQ(transport_->requestCount(), before + 1);
    }
  }
}

TEST_F(OnlineUploadFailureTest, TokenStaysWithItsServersUnderTheSafePolicy) {
  const Dictionary options{{"domain", "http://svc"}, {"X-Pelmar-Authorization", "token"}};
  const struct {
    std::string target;
    bool isOwn;
  } cases[] = {{R"("endpointUrl":"http://store/o")", false},
               {R"("endpointUrl":"http://backend/o")", true},
               {R"("endpointUrl":"http://BACKEND:80/o")", true},
               {R"("endpointUrl":"https://backend/o")", false},
               {R"("endpointUrl":"http://backend:8080/o")", false},
               {R"("domain":"#middlewaredomain","relativepath":"/o")", true},
               {R"("domain":"http://store","relativepath":"/o")", false}};
  for (const auto& item : cases) {
    for (const TransferPolicy policy : {TransferPolicy::kCompatible, TransferPolicy::kSafe}) {
      setTransferPolicy(policy);
      template_ = answerWith(200, R"({"uploadMode":"binary",)" + item.target + "}");
      EXPECT_EQ(outcome(config(), options), "started, completed stored");
      EXPECT_EQ(transport_->requests().back().header("X-Pelmar-Authorization").has_value(),
                item.isOwn || policy == TransferPolicy::kCompatible)
          << item.target;
    }
  }
}

TEST_F(OnlineUploadFailureTest, AnswersAreLimitedAndSettingsAndCancellationAreTheUploadsOwn) {
  // What a changed setting of the process, after the start, does not reach.
  const auto other = std::make_shared<FakeHttpTransport>();
  other->setHandler([](const RecordedRequest& request) {
    setTransferPolicy(TransferPolicy::kCompatible);
    return request.url == kTemplateUrl ? answerWith(200, kBinary) : answerWith(204, std::nullopt);
  });
  setTransferPolicy(TransferPolicy::kSafe);
  auto settings = std::make_shared<OperationSettings>();
  settings->transport = other;
  EXPECT_EQ(outcome(config(), Dictionary{{"settings", settings}}), "started, completed ");
  EXPECT_EQ(other->requestCount(), 2U);
  EXPECT_EQ(transport_->requestCount(), 0U);
  for (const RecordedRequest& request : other->requests()) {
    EXPECT_EQ(request.limits.success, std::uint64_t{1} << 20U);
    EXPECT_EQ(request.limits.error, std::uint64_t{64} << 10U);
  }

  transport_->hold();
  const auto cancellation = std::make_shared<platform::Cancellation>();
  upload(config(), Dictionary{{"cancellation", cancellation}});
  awaitHeld(1);
  cancellation->cancel();
  awaitEnds(2);
  EXPECT_THAT(calls().back().summary, StartsWith("failed BackendUploaderTask 6006 "));
  EXPECT_EQ(platform::firstCause(*(*calls().back().error.array())[0].error()).code(), 1009);
}

TEST_F(OnlineUploadFailureTest, MisspelledKeysAreWarnedOfAndSecretsOfATemplateStandInNoError) {
  setTransferPolicy(TransferPolicy::kSafe);
  const test::RecordingLog log;
  template_ = answerWith(200, R"({"opstatus":1,"a":[{"secretAccessKey":"marker-1"}],)"
                              R"("headers":{"Authorization":"marker-2","X":"y"}})");
  EXPECT_THAT(outcome(config({{"uploadParam", Dictionary()}}), Dictionary{{"Domain", "d"}}),
              StartsWith("failed UploadTask 6006"));
  const auto info = platform::json::serialize(calls().back().error.error()->userInfo());
  EXPECT_THAT(info.value(),
              testing::AllOf(HasSubstr(R"("X":"y")"), testing::Not(HasSubstr("marker-"))));
  EXPECT_EQ(log->count(LogLevel::kWarning,
                       "Nothing reads \"uploadParam\" in the configuration; did "
                       "you mean \"uploadParams\"?"),
            1);
  EXPECT_EQ(log->count(LogLevel::kWarning,
                       "Nothing reads \"Domain\" in the options; did you mean \"domain\"?"),
            1);
  // An error of the configuration is logged whole.
  (void)outcome({{"URL", "u"}});
  EXPECT_EQ(
      log->count(LogLevel::kError,
                 "Input validations failed for uploadTask: UploadError 6010: Unable to upload "
                 "file - Missing parameter: Either FilePath or RawBytes needs to be specified"),
      1);
}

TEST_F(OnlineUploadFailureTest, PoliciesDifferWhereATemplateOrAnAnswerCannotBeRead) {
  const Dictionary params{{R"(a":"b)", "no JSON"}};
  template_ = answerWith(200, R"({"uploadMode":"binary","endpointUrl":"http://s","${a":"b}"})");
  const auto ofLongAnswer = [] {
    const auto task = std::make_shared<MultiPartUploaderTask>("task");
    const auto response = std::make_shared<platform::HttpResponseInfo>(200, Dictionary());
    constexpr std::uint64_t kTooLong = (std::uint64_t{64} << 20U) + 1;  // bytes
    const Data answer = Data::fromFileRegion(test::inFile("a").file(), 0, kTooLong);
    task->processNetworkResponse({{"httpResponse", response}}, answer);
    return task->outputContext()["fileDetails"].description() +
           OnlineUploadFixture::textOf(task->errorContext()["Errors"]);
  };
  EXPECT_EQ(outcome(config({{"uploadParams", params}})), "started, completed stored");
  EXPECT_EQ(transport_->requests().back().url, "");  // which no real transport takes
  EXPECT_EQ(ofLongAnswer(), "");
  setTransferPolicy(TransferPolicy::kSafe);
  EXPECT_EQ(outcome(config({{"uploadParams", params}})),
            "failed BackendUploaderTask 6012 Unable to upload file - Invalid parameter value: "
            "the upload template is no JSON object once it is filled");
  EXPECT_THAT(ofLongAnswer(), HasSubstr(" BackendUploadedTask 6006 Upload error: "));
}

struct ThrowingClock final : platform::Clock {
  [[nodiscard]] std::chrono::system_clock::time_point now() const override {
    throw std::runtime_error("no time");
  }
  [[nodiscard]] std::chrono::steady_clock::time_point steadyNow() const override { return {}; }
};

TEST_F(OnlineUploadFailureTest, ExceptionsWhileStartingAreReported) {
  const ThrowingClock clock;
  manager_ = std::make_shared<OnlineBinaryUploadManager>(clock);
  EXPECT_EQ(outcome(config({{"uploadParams", Dictionary{{"p", 1}}}})),
            "failed UploadError 6006 Upload error, Exception occured  : no time");
  EXPECT_EQ(calls()[0].uploadParams, Value(Dictionary{{"p", 1}}));
}

TEST_F(OnlineUploadFailureTest, ShutdownTellsEveryUploadAndRefusesWhatFollows) {
  inOwnProcess([this] {
    transport_->hold();
    for (int i = 0; i < 20; ++i) upload(config());
    awaitHeld(5);
    platform::Runtime::shared().shutdown();
    require(calls().size() == 20, "every upload was told");
    upload(config());
    const char* refused = "failed UploadError 6006 Upload error: The library has been shut down";
    require(calls().size() == 21 && calls()[20].summary == refused, "what follows is refused");
    std::_Exit(0);  // without the checks of this fixture
  });
}

}  // namespace
}  // namespace varo::binary
