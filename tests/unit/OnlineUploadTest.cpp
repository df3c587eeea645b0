#include "Binary/Binary/UploadTask/BytesUploadHandlerTask.h"
#include "Binary/Binary/UploadTask/MultiPartUploaderTask.h"
#include "Binary/Binary/UploadTask/UploadTemplateGetterTask.h"
#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/OnlineUploadFixture.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/SteppingClock.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <thread>

namespace varo::binary {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::HttpHeader;
using platform::HttpMethod;
using platform::HttpRequest;
using platform::LogLevel;
using platform::Value;
using test::answerWith;
using test::eventually;
using test::failWith;
using test::RecordedRequest;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

const std::string kBinary = R"({"uploadMode":"binary","endpointUrl":"http://store/o"})";
const std::string kForm =
    R"({"uploadMode":"multipart","endpointUrl":"http://store/o","requestBody":{"f":"file"}})";
const std::string kWrongStatus =
    "6008 Unable to upload - Unexpected HTTP response code during upload";

using OnlineUploadTest = test::OnlineUploadFixture;

// What goes over the wire.

const Dictionary kS3Params{{"accessKeyID", "AK"},     {"secretAccessKey", "marker-secret"},
                           {"regionName", "r1"},      {"bucketName", "b"},
                           {"objectName", "dir/a b"}, {"fileName", "a b"}};
const std::string kS3Template =
    R"({"opstatus":"0","uploadMode":"binary","endpointUrl":"http://store/b/${fileName}",)"
    R"("method":"PUT","Host":"store","Auth":"HMACDigest",)"
    R"("AuthParameters":{"serviceName":"s3"},"headers":{"X-Own":"1"}})";

/// "yyyyMMdd'T'HHmmss'Z'", in seconds since 1970.
std::int64_t secondsOf(const std::string& amzDate) {
  std::tm time{};
  EXPECT_NE(::strptime(amzDate.c_str(), "%Y%m%dT%H%M%SZ", &time), nullptr);
  return ::timegm(&time);
}

TEST_F(OnlineUploadTest, SignedUploadPutsTheFileWithFiveHeadersAndHandsTheAnswerOn) {
  const test::RecordingLog log;
  template_ = answerWith(200, kS3Template);
  const Dictionary configuration{{"URL", kTemplateUrl},
                                 {"FilePath", writeFile("f", kBytes)},
                                 {"headers", Dictionary{{"A", "b"}}},
                                 {"uploadParams", kS3Params}};
  EXPECT_EQ(outcome(configuration, Dictionary{{"X-Pelmar-Authorization", "marker-token"}}),
            "started, completed stored");
  for (const Call& call : calls()) {
    EXPECT_EQ(call.uploadParams, Value(kS3Params));
    EXPECT_EQ(call.taskName, calls().front().taskName);
  }

  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].method, HttpMethod::kPost);
  EXPECT_EQ(platform::json::parse(*requests[0].body).value(), Value(kS3Params));
  EXPECT_EQ(requests[0].header("A"), "b");
  EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
  EXPECT_EQ(requests[0].headers.size(), 2U);

  EXPECT_EQ(requests[1].method, HttpMethod::kPut);
  EXPECT_EQ(requests[1].url, "http://store/b/a b");
  EXPECT_EQ(requests[1].body, kBytes);
  const test::SteppingClock clock(secondsOf(requests[1].header("X-Amz-Date").value_or("")));
  const Dictionary headers =
      S3HMACGenerator(kS3Params, platform::json::parse(kS3Template).value().dictionaryValue(),
                      Data::fromBytes(kBytes), S3OperationType::kUpload, clock)
          .getRequestHeaders(S3OperationType::kUpload)
          .value();
  Dictionary sent;
  for (const HttpHeader& header : requests[1].headers) sent.set(header.name, header.value);
  EXPECT_EQ(sent, headers);
  EXPECT_EQ(requests[1].headers.size(), 5U);

  EXPECT_EQ(
      log->count(LogLevel::kDebug, "[BytesUploadHandlerTask] file upload completed successfully"),
      1);
  EXPECT_EQ(log->count(LogLevel::kInfo,
                       "[UploadTask VSTaskListener] UploaderTask completed successfully"),
            1);
  for (const auto& line : log->lines()) EXPECT_THAT(line.text, Not(HasSubstr("marker-")));
}

TEST_F(OnlineUploadTest, FormHasItsDataFirstThenTheBytesForEveryTextButFileContent) {
  template_ = answerWith(
      200, R"({"uploadMode":"multipart","domain":"#MiddlewareDomain","relativepath":"/up/${id}",)"
           R"("headers":{"X-Own":"${id}","Content-Type":"text/plain"},"requestBody":{)"
           R"("one":"file","gone":"FILECONTENT","no":5,"meta":{"id":"${id}","n":[1]},)"
           R"("t\"\r\nX: y":"${id}"}})");
  answer_ = answerWith(201, std::nullopt);
  EXPECT_EQ(outcome(config({{"uploadParams", Dictionary{{"id", 7}}}}),
                    Dictionary{{"domain", "http://svc"}, {"X-Pelmar-Authorization", "token"}}),
            "started, completed ");
  const RecordedRequest request = transport_->requests().at(1);
  EXPECT_EQ(request.method, HttpMethod::kPost);
  EXPECT_EQ(request.url, "http://svc/up/7");
  EXPECT_EQ(request.header("X-Own"), "7");
  EXPECT_EQ(request.header("X-Pelmar-Authorization"), "token");
  const std::string type = request.header("Content-Type").value_or("");
  const std::string start = "multipart/form-data; boundary=";
  ASSERT_THAT(type, StartsWith(start));
  const std::string boundary = "--" + type.substr(start.size());
  const std::string file =
      "; filename=\"fileName\"\r\nContent-Type: application/octet-stream\r\n\r\nthe bytes\r\n";
  EXPECT_EQ(request.body, boundary + "\r\nContent-Disposition: form-data; name=\"meta\"\r\n\r\n" +
                              R"({"id":"7","n":[1]})" + "\r\n" + boundary +
                              "\r\nContent-Disposition: form-data; name=\"one\"" + file + boundary +
                              "\r\nContent-Disposition: form-data; name=\"t%22%0D%0AX: y\"" + file +
                              boundary + "--\r\n");
}

/// Answers template and upload, and checks that no body is in memory.
class FileOnlyTransport final : public platform::HttpTransport {
 public:
  explicit FileOnlyTransport(std::string uploadTemplate) : template_(std::move(uploadTemplate)) {}

  std::shared_ptr<platform::HttpTransfer> send(HttpRequest request,
                                               platform::HttpCompletion completion) override {
    const bool isUpload = request.url == "http://store/o";
    for (const Data& piece : request.body.value_or(std::vector<Data>())) {
      if (isUpload && piece.memory()) inMemory += piece.size();
      if (isUpload && piece.file() != nullptr) inFile += piece.size();
    }
    const auto answer = answerWith(200, isUpload ? "" : template_);
    platform::Runtime::shared().pool().postOrRun(
        [answer, completion = std::move(completion)] { completion(answer.response, nullptr); });
    return nullptr;
  }
  void shutdown() override {}

  std::atomic<std::uint64_t> inMemory = 0;
  std::atomic<std::uint64_t> inFile = 0;

 private:
  const std::string template_;
};

TEST_F(OnlineUploadTest, FileLargerThanMemoryIsNeverLoaded) {
  constexpr std::uint64_t kSize = std::uint64_t{1} << 40U;  // bytes, more than there is memory
  const std::string path = writeFile("f", "");
  std::filesystem::resize_file(path, kSize);  // sparse
  for (const std::string& uploadTemplate : {kBinary, kForm}) {
    const auto transport = std::make_shared<FileOnlyTransport>(uploadTemplate);
    platform::VRONetworkUtility::setTransport(transport);
    EXPECT_EQ(outcome({{"URL", kTemplateUrl}, {"FilePath", path}}), "started, completed ");
    EXPECT_EQ(transport->inFile, kSize);
    EXPECT_LT(transport->inMemory, 1000U);
  }
}

// What the template decides.

TEST_F(OnlineUploadTest, TemplateDecidesWhereToAndHowOrEndsTheUpload) {
  const std::string unknown = "failed UploadTask 6013 UploadTask (code 6013)";
  const std::string refused = "failed UploadTask 6006 UploadTask (code 6006)";
  const struct {
    std::string answer, outcome, request;
  } cases[] = {
      {kBinary, "started, completed stored", "PUT http://store/o"},
      {kForm, "started, completed stored", "POST http://store/o"},
      {R"({"uploadMode":"binary","opstatus":0,"domain":"http://d","relativepath":"/p"})",
       "started, completed stored", "PUT http://d/p"},
      {R"({"uploadMode":"binary","domain":"http://d","endpointUrl":"http://store/${n}"})",
       "started, completed stored", "PUT http://store/5"},
      {R"({"uploadMode":"binary","endpointUrl":"http://store/${other}"})",
       "started, completed stored", "PUT http://store/${other}"},
      {R"({"uploadMode":"binary","opstatus":"8009","a":1})", refused, ""},
      {R"({"uploadMode":"binary","opstatus":-1})", refused, ""},
      {R"({"uploadMode":"Binary","a":1})", unknown, ""},
      {R"({"uploadMode":"Multipart"})", unknown, ""},
      {R"({"uploadMode":null})", unknown, ""},
      {R"({"a":1})", unknown, ""},
      {"[]", unknown, ""},
      {"no JSON", unknown, ""},
      {"", unknown, ""},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.answer);
    template_ = answerWith(200, item.answer);
    const std::size_t before = transport_->requestCount();
    const std::string result =
        outcome(config({{"uploadParams", Dictionary{{"n", 5}}}}), Dictionary{});
    EXPECT_EQ(result, item.outcome);
    const auto requests = transport_->requests();
    ASSERT_EQ(requests.size(), before + (item.request.empty() ? 1 : 2));
    if (item.request.empty()) {
      const auto parsed = platform::json::parse(item.answer);
      EXPECT_EQ(calls().back().error.error()->userInfo(),
                parsed ? parsed.value().dictionaryValue() : Dictionary());
    } else {
      const RecordedRequest& request = requests.back();
      EXPECT_EQ((request.method == HttpMethod::kPut ? "PUT " : "POST ") + request.url,
                item.request);
    }
  }
}

// Failures.

TEST_F(OnlineUploadTest, ConfigurationThatBreaksARuleIsReportedAndNothingIsSent) {
  const std::string missing = "failed UploadError 6010 Unable to upload file - Missing parameter: ";
  const std::string type =
      "failed UploadError 6011 Unable to upload file - Invalid data type of parameter: ";
  const std::string value =
      "failed UploadError 6012 Unable to upload file - Invalid parameter value: ";
  const Data bytes = Data::fromBytes("b");
  const struct {
    Dictionary configuration;
    std::string outcome;
  } cases[] = {
      {{}, missing + "Invalid parameter received for uploadConfig"},
      {{{"rawBytes", bytes}}, missing + "Could not find Url"},
      {{{"URL", 5}}, type + "Invalid datatype found for Url"},
      {{{"URL", nullptr}}, type + "Invalid datatype found for Url"},
      {{{"URL", ""}}, value + "Empty url string"},
      {{{"URL", "u"}}, missing + "Either FilePath or RawBytes needs to be specified"},
      {{{"URL", "u"}, {"FilePath", writeFile("one", "1")}, {"rawBytes", bytes}},
       value + "Both FilePath and RawBytes cannot be specified"},
      {{{"URL", "u"}, {"FilePath", 5}}, type + "Invalid datatype found for Url"},
      {{{"URL", "u"}, {"FilePath", writeFile("empty", "")}},
       type + "No data present in given file"},
      {{{"URL", "u"}, {"FilePath", directory_ / "none"}},
       value + "Could not find File at given FilePath"},
      {{{"URL", "u"}, {"rawBytes", "text"}}, type + "Invalid datatype found for rawData"},
      {{{"URL", "u"}, {"rawBytes", Data()}}, value + "Null value found for rawData"},
      {config({{"headers", "A: b"}}), type + "Invalid datatype found for headers"},
      {config({{"uploadParams", "a"}}), type + "Invalid datatype found for uploadParams"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(outcome(item.configuration), item.outcome);
    EXPECT_EQ(calls().back().uploadParams, item.configuration["uploadParams"]);
    EXPECT_EQ(OnlineBinaryUploadManager::validateInput(item.configuration)->domain(),
              "UploadError");
  }
  EXPECT_EQ(OnlineBinaryUploadManager::validateInput(std::nullopt)->code(), 6010);
  EXPECT_EQ(transport_->requestCount(), 0U);
}

TEST_F(OnlineUploadTest, FailedRequestsAreReportedWithTheErrorsOfTheirTask) {
  const std::string lost = "failed BackendUploaderTask 6006 Upload error: lost";
  const struct {
    test::ScriptedAnswer templateAnswer, answer;
    std::string outcome;
  } cases[] = {
      {answerWith(201, "b"), {}, "failed UploadTemplateTask " + kWrongStatus + ": b"},
      {answerWith(500, std::nullopt), {}, "failed UploadTemplateTask " + kWrongStatus + ": "},
      {answerWith(401, R"({"secretAccessKey":"s","a":1})"),
       {},
       "failed UploadTemplateTask " + kWrongStatus + R"(: {"secretAccessKey":<redacted>,"a":1})"},
      {failWith(7, "lost"), {}, lost},
      {answerWith(200, kBinary), failWith(7, "lost"), "started, " + lost},
      {answerWith(200, kForm), failWith(7, "lost"), "started, " + lost},
      {answerWith(200, kBinary), answerWith(403, "why"),
       "started, failed BackendUploaderTask " + kWrongStatus},
      {answerWith(200, kBinary), answerWith(204, std::nullopt),
       "started, failed BackendUploaderTask " + kWrongStatus},
      {answerWith(200, kForm), answerWith(302, "why"),
       "started, failed BackendUploadedTask " + kWrongStatus},
      {answerWith(200, kForm), answerWith(201, "made"), "started, completed made"},
  };
  const Dictionary params{{"p", 1}};
  for (const auto& item : cases) {
    template_ = item.templateAnswer;
    answer_ = item.answer;
    EXPECT_EQ(outcome(config({{"uploadParams", params}})), item.outcome);
    EXPECT_EQ(calls().back().uploadParams, Value(params));
    if (const platform::Array* errors = calls().back().error.array()) {
      EXPECT_EQ((*errors)[0].error()->userInfo().size(), 1U);  // the message alone
    }
  }
}

/// What a task raises for an error without an answer. Checks that it raises no second one after an
/// answer that was one.
template <typename Task>
std::string errorsOf(const std::string& log, const test::RecordingLog& recorded) {
  const auto response = [](int status) {
    return Dictionary{{std::string(platform::kHttpResponse),
                       std::make_shared<platform::HttpResponseInfo>(status, Dictionary())}};
  };
  const auto lost = platform::Error::make("d", 1, "lost");
  const auto told = std::make_shared<Task>("told");
  told->checkForErrors(nullptr);
  told->checkForErrors(lost);
  const auto answered = std::make_shared<Task>("answered");
  answered->processNetworkResponse(response(500), std::nullopt);
  answered->checkForErrors(lost);
  EXPECT_EQ(answered->errors().size(), 1U);
  EXPECT_EQ(recorded->count(LogLevel::kError, log), 2);
  return test::OnlineUploadFixture::textOf(told->errorContext()["Errors"]);
}

TEST_F(OnlineUploadTest, PoliciesDifferWhereBytesWouldBeLost) {
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
  answer_ = answerWith(403, "the reason");
  EXPECT_EQ(outcome(config()), "started, failed BackendUploaderTask " + kWrongStatus);
  const Dictionary userInfo = (*calls().back().error.array())[0].error()->userInfo();
  EXPECT_EQ(userInfo["httpStatusCode"], Value(403));
  EXPECT_EQ(userInfo["responseBody"], Value("the reason"));
}

TEST_F(OnlineUploadTest, ErrorBesideAnAnswerIsRaisedUnlessTheAnswerWasOne) {
  const test::RecordingLog log;
  EXPECT_EQ(errorsOf<UploadTemplateGetterTask>("[UploadTemplateGetterTask] request failed", log),
            " UploadTemplateTask 6006 Upload error: lost");
  EXPECT_EQ(
      errorsOf<MultiPartUploaderTask>("[BackendUploaderTask] received error after uploadCall", log),
      " BackendUploadedTask 6006 Upload error: lost");
  EXPECT_EQ(errorsOf<BytesUploadHandlerTask>(
                "[BytesUploadHandlerTask] received error after uploadCall", log),
            " BackendUploaderTask 6006 Upload error: lost");
}

/// Is copied by the thread that made it alone.
struct ThrowsWhenCopiedElsewhere {
  ThrowsWhenCopiedElsewhere() = default;
  ThrowsWhenCopiedElsewhere(const ThrowsWhenCopiedElsewhere& other) : thread(other.thread) {
    if (std::this_thread::get_id() != thread) throw std::runtime_error("a copy");
  }
  void operator()(const std::string& /*name*/, const Value& /*params*/) const {}
  std::thread::id thread = std::this_thread::get_id();
};

TEST_F(OnlineUploadTest, ExceptionWhileStartingIsReported) {
  UploadBlocks all = blocks();
  manager_->createAndStartOnlineUploadTaskFor(config({{"uploadParams", Dictionary{{"p", 1}}}}),
                                              ThrowsWhenCopiedElsewhere(), nullptr, nullptr,
                                              all.onUploadFailureCompletionBlock, std::nullopt);
  awaitEnds(1);
  EXPECT_EQ(calls()[0].summary,
            "failed UploadError 6006 Upload error, Exception occured  : a copy");
  EXPECT_EQ(calls()[0].uploadParams, Value(Dictionary{{"p", 1}}));
}

// Many at once, and from inside blocks.

TEST_F(OnlineUploadTest, SixthUploadStartsWhenOneOfFiveHasEnded) {
  template_ = answerWith(200, R"({"uploadMode":"none"})");
  transport_->hold();
  for (int i = 0; i < 6; ++i) upload(config({{"uploadParams", Dictionary{{"n", i}}}}));
  awaitHeld(5);
  manager_->createAndStartOnlineUploadTaskFor({}, {}, {}, {},
                                              blocks().onUploadFailureCompletionBlock, {});
  awaitEnds(1);  // which was behind the sixth
  EXPECT_EQ(transport_->requestCount(), 5U);
  transport_->release();
  awaitEnds(2);
  awaitHeld(5);
  EXPECT_EQ(transport_->requests().back().body, R"({"n":5})");
  transport_->releaseAll();
  awaitEnds(7);
}

TEST_F(OnlineUploadTest, BlocksMayStartUploadsWaitForThemAndThrow) {
  template_ = answerWith(200, kBinary);
  const auto uploadAndWait = [this] {
    auto end = std::make_shared<std::promise<void>>();
    manager_->createAndStartOnlineUploadTaskFor(
        config(), nullptr, nullptr,
        [end](const std::string&, const std::string&, const Value&) { end->set_value(); }, nullptr,
        std::nullopt);
    EXPECT_EQ(end->get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    throw std::runtime_error("of the application");
  };
  const UploadBlocks all = blocks(uploadAndWait);
  for (const Dictionary& configuration : {config(), Dictionary()}) {
    manager_->createAndStartOnlineUploadTaskFor(configuration,
                                                all.onBytesUploadStartedCompletionBlock, nullptr,
                                                all.onBytesUploadCompletedCompletionBlock,
                                                all.onUploadFailureCompletionBlock, std::nullopt);
  }
  awaitEnds(2);
  awaitEndOfTasks();
  EXPECT_EQ(transport_->requestCount(), 8U);  // two an upload: one outer, three inner
  for (const Dictionary& configuration : {config(), Dictionary()}) {  // without any block
    manager_->createAndStartOnlineUploadTaskFor(configuration, {}, {}, {}, {}, std::nullopt);
  }
  EXPECT_TRUE(eventually([&] { return transport_->requestCount() == 10; }));
}

struct FixedClock final : platform::Clock {
  [[nodiscard]] std::chrono::system_clock::time_point now() const override { return time; }
  [[nodiscard]] std::chrono::steady_clock::time_point steadyNow() const override { return {}; }
  std::chrono::system_clock::time_point time;
};

TEST_F(OnlineUploadTest, SessionIsNamedByLocalTimeOfTwelveHoursAndAUuid) {
  std::tm local{};
  local.tm_year = 126;
  local.tm_mon = 2;
  local.tm_mday = 4;
  local.tm_hour = 13;
  local.tm_sec = 9;
  local.tm_isdst = -1;
  FixedClock clock;
  clock.time =
      std::chrono::system_clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(7);
  manager_ = std::make_shared<OnlineBinaryUploadManager>(clock);
  EXPECT_THAT(outcome({}), StartsWith("failed"));
  EXPECT_THAT(outcome({}), StartsWith("failed"));
  const std::string hex = "[0-9A-F]";
  EXPECT_THAT(calls()[0].taskName, MatchesRegex("2026_03_04_01_00_09\\.007_" + hex + "{8}(-" + hex +
                                                "{4}){3}-" + hex + "{12}"));
  EXPECT_NE(calls()[0].taskName, calls()[1].taskName);
}

}  // namespace
}  // namespace varo::binary
