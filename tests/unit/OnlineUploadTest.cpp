#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/OnlineUploadFixture.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/SteppingClock.h"

#include <ctime>
#include <future>
#include <stdexcept>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

using OnlineUploadTest = test::OnlineUploadFixture;

// What goes over the wire.

const Dictionary kS3Params{{"accessKeyID", "AK"},     {"secretAccessKey", "marker-secret"},
                           {"regionName", "r1"},      {"bucketName", "b"},
                           {"objectName", "dir/a b"}, {"fileName", "a b"}};
const std::string kS3Template =
    R"({"opstatus":"0","uploadMode":"binary","endpointUrl":"http://store/b/${fileName}",)"
    R"("method":"PUT","Host":"store","Auth":"HMACDigest",)"
    R"("AuthParameters":{"serviceName":"s3"},"headers":{"X-Own":"1"}})";

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
  std::tm sentAt{};
  const std::string date = requests[1].header("X-Amz-Date").value_or("");
  ASSERT_NE(::strptime(date.c_str(), "%Y%m%dT%H%M%SZ", &sentAt), nullptr);
  const test::SteppingClock clock(::timegm(&sentAt));
  const Dictionary headers =
      S3HMACGenerator(kS3Params, platform::json::parse(kS3Template).value().dictionaryValue(),
                      Data::fromBytes(kBytes), S3OperationType::kUpload, clock)
          .getRequestHeaders(S3OperationType::kUpload)
          .value();
  Dictionary sent;
  for (const HttpHeader& header : requests[1].headers) sent.set(header.name, header.value);
  EXPECT_EQ(sent, headers);
  EXPECT_EQ(requests[1].headers.size(), 5U);

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

TEST_F(OnlineUploadTest, ParametersFillTemplatesAsTextAndLogsShowNoneThatIsSecret) {
  const Dictionary params{{"id", "a\",\"endpointUrl\":\"http://evil/\\\r\n"},
                          {"secretAccessKey", "marker-key"}};
  const std::string target = R"("endpointUrl":"http://u:marker-#@s@s/${secretAccessKey}",)";
  for (const char* mode : {"binary", "multipart"}) {
    const test::RecordingLog log;
    template_ = answerWith(200, R"({"uploadMode":")" + std::string(mode) + "\"," + target +
                                    R"("requestBody":{"f":"file","m":{"a":"${id}"},)"
                                    R"("n":{"b":"${secretAccessKey}"}}})");
    EXPECT_EQ(outcome(config({{"uploadParams", params}})), "started, completed stored");
    const RecordedRequest request = transport_->requests().back();
    EXPECT_EQ(request.url, "http://u:marker-#@s@s/marker-key");
    const std::string name =
        mode == std::string("binary") ? "BytesUploadHandler" : "BackendUploader";
    EXPECT_EQ(log->count(LogLevel::kDebug, "[" + name + "Task] url: http://s/<redacted>"), 1);
    for (const auto& line : log->lines()) EXPECT_THAT(line.text, Not(HasSubstr("marker-")));
    if (name == "BytesUploadHandler") continue;
    const auto part = platform::json::serialize(Dictionary{{"a", params["id"]}});
    EXPECT_THAT(*request.body, HasSubstr("\r\n\r\n" + part.value() + "\r\n"));
    EXPECT_THAT(*request.body, HasSubstr(R"({"b":"marker-key"})"));
  }
}

TEST_F(OnlineUploadTest, FileLargerThanMemoryIsNeverLoaded) {
  constexpr std::uint64_t kSize = std::uint64_t{1} << 40U;  // bytes, more than there is memory
  const std::string path = writeFile("f", "");
  std::filesystem::resize_file(path, kSize);  // sparse
  for (const char* uploadTemplate : {kBinary, kForm}) {
    template_ = answerWith(200, uploadTemplate);
    EXPECT_EQ(outcome({{"URL", kTemplateUrl}, {"FilePath", path}}), "started, completed stored");
    const RecordedRequest request = transport_->requests().back();
    EXPECT_GE(request.bodySize, kSize);
    EXPECT_LT(request.bodySize, kSize + 1000);
    // What was read out: all that is not the file.
    EXPECT_THAT(*request.body, HasSubstr("<unreadable: "));
    EXPECT_LT(request.body->size(), 1000U);
  }
}

// What the template decides.

TEST_F(OnlineUploadTest, TemplateDecidesWhereToAndHowOrEndsTheUpload) {
  const std::string unknown = "failed UploadTask 6013 UploadTask (code 6013)";
  const std::string refused = "failed UploadTask 6006 UploadTask (code 6006)";
  const struct {
    std::string answer, outcome, request;
  } cases[] = {
      {R"({"uploadMode":"binary","opstatus":0,"domain":"http://d","relativepath":"/p"})",
       "started, completed stored", "PUT http://d/p"},
      {R"({"uploadMode":"binary","domain":"http://d","relativepath":"/p","endpointUrl":null})",
       "started, completed stored", "PUT http://d/p"},
      {R"({"uploadMode":"binary","domain":"http://d","endpointUrl":"http://store/${n}"})",
       "started, completed stored", "PUT http://store/5"},
      {R"({"uploadMode":"binary","endpointUrl":"http://store/${other}"})",
       "started, completed stored", "PUT http://store/${other}"},
      {R"({"uploadMode":"binary","opstatus":"8009","a":1})", refused, ""},
      {R"({"uploadMode":"binary","opstatus":-1})", refused, ""},
      {R"({"uploadMode":"Binary","a":1})", unknown, ""},
      {R"({"a":1})", unknown, ""},
      {"no JSON", unknown, ""},
  };
  for (const auto& item : cases) {
    template_ = answerWith(200, item.answer);
    const std::size_t before = transport_->requestCount();
    EXPECT_EQ(outcome(config({{"uploadParams", Dictionary{{"n", 5}}}}), Dictionary{}), item.outcome)
        << item.answer;
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

// Many at once, and from inside blocks.

TEST_F(OnlineUploadTest, BlocksMayStartUploadsWaitForThemAndThrow) {
  template_ = answerWith(200, kBinary);
  std::atomic<int> returned = 0;
  const auto uploadAndWait = [this, &returned] {
    auto end = std::make_shared<std::promise<void>>();
    Blocks inner;
    inner.completed = [end](const auto&, const auto&, const Value&) { end->set_value(); };
    uploadWith(inner, config());
    EXPECT_EQ(end->get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    ++returned;
    throw std::runtime_error("of the application");
  };
  const Blocks all = blocks(uploadAndWait);
  uploadWith(all, config());
  uploadWith(all, {});
  awaitEnds(2);
  EXPECT_TRUE(eventually([&] { return returned == 3; }));
  EXPECT_EQ(transport_->requestCount(), 8U);  // two an upload: one outer, three inner
  uploadWith({}, config());
  uploadWith({}, {});
  EXPECT_TRUE(eventually([&] { return transport_->requestCount() == 10; }));
}

TEST_F(OnlineUploadTest, SixthUploadStartsWhenOneHasEndedWhoseBlockWaitsForIt) {
  template_ = answerWith(200, R"({"uploadMode":"none"})");
  transport_->hold();
  std::promise<void> lastEnded;
  const std::shared_future<void> end = lastEnded.get_future().share();
  std::atomic<int> returned = 0;
  const Blocks waiting = blocks([&] {
    EXPECT_EQ(end.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    ++returned;
  });
  for (int i = 0; i < 5; ++i) uploadWith(waiting, config());
  uploadWith(blocks([&] { lastEnded.set_value(); }), config());
  awaitHeld(5);
  upload({});
  awaitEnds(1);  // which was behind the sixth
  EXPECT_EQ(transport_->requestCount(), 5U);
  transport_->releaseAll();
  awaitEnds(7);
  EXPECT_TRUE(eventually([&] { return returned == 5; }));
}

TEST_F(OnlineUploadTest, SessionIsNamedByLocalTimeOfTwelveHoursAndAUuid) {
  std::tm local{};
  ASSERT_NE(::strptime("2026-03-04 13:00:09", "%Y-%m-%d %H:%M:%S", &local), nullptr);
  local.tm_isdst = -1;
  const SteppingClock clock(std::mktime(&local), 0, std::chrono::milliseconds(7));
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
