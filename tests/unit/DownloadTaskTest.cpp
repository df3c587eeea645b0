#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/ContentRange.h"
#include "Platform/Foundation/Base64.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/RecordingLog.h"

#include <map>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

using enum TransferPolicy;
using DownloadTaskTest = test::DownloadFixture;

TEST(ContentRangeTest, OnlyWellFormedFieldsAreRead) {
  const auto text = [](std::string_view field) -> std::string {
    const auto range = ContentRange::parse(field);
    if (!range) return "refused";
    return (range->span ? fmt::format("{}-{}", range->span->first, range->span->last) : "none") +
           (range->total ? fmt::format(" of {}", *range->total) : " of ?");
  };
  const std::pair<const char*, const char*> wellFormed[] = {
      {"bytes 0-9/10", "0-9 of 10"},
      {" Bytes 5-5/9223372036854775807 ", "5-5 of 9223372036854775807"},
      {"bytes 0-9/*", "0-9 of ?"},
      {"bytes */10", "none of 10"},
  };
  for (const auto& [field, expected] : wellFormed) EXPECT_EQ(text(field), expected);
  for (const char* field :
       {"bytes */*", "bytes 0-10/10", "bytes 9-0/10", "bytes -1-3/10", "bytes +1-3/10",
        "bytes 0-9/-1", "bytes 0-9/9223372036854775808", "bytes 0-9/", "bytes 0-9/10, 10-19/20",
        "bytes=0-9/10", "items 0-9/10", "bytes", ""}) {
    EXPECT_EQ(text(field), "refused") << field;
  }
}

TEST_F(DownloadTaskTest, ObjectsOfEverySizeArriveWholeInExactRanges) {
  const struct {
    std::size_t size;
    bool statesSize;
    const char* ranges;
  } cases[] = {
      {1, true, "bytes=0-999"},
      {1000, true, "bytes=0-999"},
      {1001, true, "bytes=0-999 bytes=1000-1000"},
      {2500, true, "bytes=0-999 bytes=1000-1999 bytes=2000-2499"},
      {999, false, "bytes=0-999 bytes=999-1998"},
      {2000, false, "bytes=0-999 bytes=1000-1999 bytes=2000-2999"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    object_ = RangedObject::ofSize(c.size);
    object_.statesSize = c.statesSize;
    const std::size_t before = transport_->requestCount();
    const auto task = runTo(TaskState::Ended);
    EXPECT_EQ(fileBytes(), object_.bytes);
    EXPECT_EQ(rangesSince(before), c.ranges);
    Dictionary output{{kBlobId, "7"}, {kFilePath, path()}};
    if (c.statesSize) output.set(kTotalFileSize, c.size);
    EXPECT_EQ(Value(task->outputContext()), Value(output));
  }
  object_.bytes.clear();
  for (const bool statesSize : {true, false}) {
    object_.statesSize = statesSize;
    answerNth(statesSize ? 1 : 99, answerWith(200, ""));
    EXPECT_EQ(errorCode(*runTo(TaskState::Errored)), 6014);
  }
}

TEST_F(DownloadTaskTest, RequestNamesTheRecordAndCarriesTheHeaders) {
  object_ = RangedObject::ofSize(10);
  const Dictionary keys{{"id", 1}, {"na me", "a&b=c"}};
  const std::string longKey(5000, 'k');
  const std::pair<Dictionary, std::string> cases[] = {
      {{{kPrimaryKeys, keys}}, "http://h/Scope/Object/binary?id=1&na%20me=a%26b%3Dc&type=bytes"},
      {{{kPrimaryKeys, Dictionary{{"id", longKey}}}},
       "http://h/Scope/Object/binary?id=" + longKey + "&type=bytes"},
      {{{kClientID, "c1"}, {kSessionID, "s1"}},
       "http://h/Scope/Object/binary?id=1&type=bytes&clientid=c1&varosyncsessionid=s1"},
  };
  for (const auto& [input, url] : cases) {
    runTo(TaskState::Ended, input);
    EXPECT_EQ(transport_->requests().back().url, url);
  }
  runTo(TaskState::Ended, {{kDownloadHeaders, Dictionary{{"X-One", 1}, {"range", "bytes=5-6"}}}});
  EXPECT_EQ(transport_->requests().back().header("x-one"), "1");
  EXPECT_EQ(transport_->requests().back().header("Range"), "bytes=0-999");
}

TEST_F(DownloadTaskTest, InputWithoutAnIdentifierOrAScopeIsRefused) {
  for (const auto& [key, context, half] : {std::tuple(kBlobId, kDownloadError, "download"),
                                           std::tuple(kScopeName, kNetworkError, "network")}) {
    const auto task = DownloadTask::create("7");
    Dictionary incomplete = input();
    incomplete.remove(key);
    task->setInputContext(incomplete);
    task->start();
    ASSERT_TRUE(reaches(task, TaskState::Errored));
    EXPECT_EQ(errorMessage(*task, context),
              Value(fmt::format("Invalid inputs provided to the {} task.", half)));
  }
  EXPECT_EQ(transport_->requestCount(), 0U);
}

TEST_F(DownloadTaskTest, AnswersThatDoNotBelongAreErrorsAndNeverWritten) {
  const auto range = [](const std::string& bytes, const char* field, const char* tag = "\"1\"") {
    return answerWith(206, bytes, {{"Content-Range", field}, {"ETag", tag}});
  };
  const std::string piece(1000, 'x');
  const std::string notReceived =
      "The Content-Range of the answer is missing or malformed, or is not of the range asked for.";
  const std::string changed = "Integrity check failed";
  const ScriptedAnswer error = answerWith(200, R"({"d":{"error":true,"msg":"gone"}})",
                                          {{"Content-Type", "application/JSON; charset=utf-8"}});
  const ScriptedAnswer silent =
      answerWith(200, R"({"d":{"error":true}})", {{"Content-Type", "application/json"}});
  const struct {
    std::string name;
    ScriptedAnswer second;
    std::int64_t code;
    std::string message;
    std::size_t left;  // bytes in the file afterwards
  } cases[] = {
      {"none", answerWith(206, piece), 6004, notReceived, 1000},
      {"malformed", range(piece, "bytes 1000-"), 6004, notReceived, 1000},
      {"shifted", range(piece, "bytes 999-1998/2500"), 6004, notReceived, 1000},
      {"longer than said", range(piece + "x", "bytes 1000-1999/2500"), 6004, notReceived, 1000},
      {"shorter than said", range("x", "bytes 1000-1999/2500"), 6004, notReceived, 1000},
      {"empty", range("", "bytes 1000-1999/2500"), 6004, notReceived, 1000},
      {"another size", range(piece, "bytes 1000-1999/2501"), 1019, changed, 0},
      {"another tag", range(piece, "bytes 1000-1999/2500", "\"2\""), 1019, changed, 0},
      {"empty object", answerWith(200, ""), 6014, "Empty Body Received from Server", 1000},
      {"416", answerWith(416, ""), 999, "Other issues.", 1000},
      {"lost", failWith(7, "no route"), 6006, "Upload error: no route", 1000},
      {"error", error, 999, "gone", 1000},
      {"error without a message", silent, 999, "", 1000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    answerNth(2, c.second);
    const auto task = runTo(TaskState::Errored);
    EXPECT_EQ(errorCode(*task), c.code);
    EXPECT_EQ(errorMessage(*task, kNetworkError), c.message.empty() ? Value() : Value(c.message));
    EXPECT_EQ(fileBytes(), object_.bytes.substr(0, c.left));
    EXPECT_EQ(task->outputContext()[kFilePath], Value(path()));

    // A new start goes on and ends well.
    task->setState(TaskState::NotStarted);
    task->start();
    ASSERT_TRUE(reaches(task, TaskState::Ended));
    task->releaseFile();
    EXPECT_TRUE(fileBytes() == object_.bytes);
  }
}

TEST_F(DownloadTaskTest, AnswersThatAreGoodOtherwiseEndWell) {
  const std::string& bytes = object_.bytes;
  const std::string base64 = R"({"d":{"results":")" + base64::encode(bytes) + "\"}}";
  const struct {
    std::string name;
    ScriptedAnswer second;
    Dictionary input;
  } cases[] = {
      {"whole object", answerWith(200, bytes), {}},
      {"weak tags",
       answerWith(206, bytes.substr(1000, 1000),
                  {{"Content-Range", "bytes 1000-1999/2500"}, {"ETag", "W/\"2\""}}),
       {}},
      {"short range",
       answerWith(206, bytes.substr(1000, 1), {{"Content-Range", "bytes 1000-1000/2500"}}),
       {}},
      {"Base64", answerWith(200, base64), {{kResponseType, "Base64"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    answerNth(2, c.second);
    runTo(TaskState::Ended, c.input);
    EXPECT_EQ(fileBytes(), bytes);
  }
}

TEST_F(DownloadTaskTest, EndOfUnknownSizeIsBelievedOnlyWhereItFits) {
  struct Case {
    std::map<int, std::string> fields;  // instead of the object's own, by request
    std::int64_t code;                  // 0: it ends well
    bool pauses = false;                // before the end, which is asked for again then
  };
  object_.statesSize = false;
  for (const Case& c :
       std::vector<Case>{{{{4, ""}}, 0},
                         {{{5, ""}}, 0, true},
                         {{{4, "Bytes */2500"}}, 0},
                         {{{2, "bytes 1000-1999/2500"}}, 0},
                         {{{1, ""}}, 6004},
                         {{{4, "bytes */2501"}}, 6004},
                         {{{4, "bytes 2500-3499/*"}}, 6004},
                         {{{4, "none/*"}}, 6004},
                         {{{2, "bytes 1000-1999/5000"}}, 6004},
                         {{{2, "bytes 1000-1999/5000"}}, 6004, true},
                         {{{2, "bytes 1000-1999/5000"}, {3, "bytes 2000-2499/4000"}}, 1019}}) {
    SCOPED_TRACE(c.fields.begin()->second);
    std::filesystem::remove(path());
    if (c.pauses) transport_->hold();
    transport_->setHandler(
        [this, c, count = std::make_shared<std::atomic<int>>(0)](const RecordedRequest& request) {
          ScriptedAnswer answer = object_.answer(request);
          const auto field = c.fields.find(++*count);
          if (field != c.fields.end()) answer.response->headers[0].value = field->second;
          return answer;
        });
    const auto task = makeTask();
    task->start();
    if (c.pauses) {
      release(3);
      awaitHeld(1);
      task->pauseDownload();
      ASSERT_TRUE(reaches(task, TaskState::Paused));
      resumeFromFile(task);
      transport_->releaseAll();
    }
    ASSERT_TRUE(reaches(task, c.code == 0 ? TaskState::Ended : TaskState::Errored));
    EXPECT_EQ(errorCode(*task), c.code);
    EXPECT_EQ(fileBytes(),
              object_.bytes.substr(0, c.fields.contains(1) || c.code == 1019 ? 0 : 2500));
  }
}

TEST_F(DownloadTaskTest, RunStartsAtItsOffsetWhateverTheFileHas) {
  const std::string junk(4000, 'j');
  const std::string& bytes = object_.bytes;
  const std::string rest = "bytes=1000-1999 bytes=2000-2499";
  const struct {
    std::string name, leftOver;
    std::int64_t offset;
    TransferPolicy policy;
    bool ends;
    std::string ranges;  // the first of them where it does not
  } cases[] = {
      {"longer file", bytes.substr(0, 1000) + junk, 1000, kCompatible, true, rest},
      {"shorter file", bytes.substr(0, 999), 1000, kCompatible, false, "bytes=1000-1999"},
      {"no file", "", 1000, kCompatible, false, "bytes=1000-1999"},
      {"complete", bytes, 2500, kCompatible, false, "bytes=2500-3499"},
      {"complete", bytes, 2500, kSafe, true, "bytes=2500-3499"},
      {"too long", bytes + "junk", 2504, kSafe, true, "bytes=2504-3503 bytes=0-999 " + rest},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    setTransferPolicy(c.policy);
    std::filesystem::remove(path());
    if (!c.leftOver.empty()) writeFile(c.leftOver);
    const std::size_t before = transport_->requestCount();
    runTo(c.ends ? TaskState::Ended : TaskState::Errored, {{kTotalBytesDownloaded, c.offset}});
    if (c.ends) {
      EXPECT_EQ(fileBytes(), bytes);
    }
    const std::string asked = rangesSince(before);
    EXPECT_EQ(c.ends ? asked : asked.substr(0, c.ranges.size()), c.ranges);
  }
}

TEST_F(DownloadTaskTest, UndecodableBase64IsAnEmptyBody) {
  for (const char* body :
       {"no JSON", "{}", R"({"d":{}})", R"({"d":{"results":7}})", R"({"d":{"results":"%%%"}})"}) {
    for (const int nth : {1, 2}) {
      object_.statesSize = nth == 1;
      answerNth(nth, answerWith(200, body));
      EXPECT_EQ(errorCode(*runTo(TaskState::Errored, {{kResponseType, "Base64"}})), 6014) << body;
    }
  }
}

TEST_F(DownloadTaskTest, AtMostFourChunksWaitForTheDisk) {
  object_ = RangedObject::ofSize(20'000);
  std::atomic<bool> isOpen{false};
  const auto slow = std::make_shared<OnChunkDownloadCompleted>(
      [&isOpen](const std::string&, std::int64_t, std::int64_t, const Value&) {
        EXPECT_TRUE(eventually([&isOpen] { return isOpen.load(); }));
      });
  const auto task = makeTask({{kOnChunkDownloadCompleted, Value(slow)}});
  task->start();
  // One is being written, four wait, none is asked for.
  ASSERT_TRUE(eventually([this] { return transport_->requestCount() == 5; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(transport_->requestCount(), 5U);
  isOpen = true;
  ASSERT_TRUE(reaches(task, TaskState::Ended));
  EXPECT_EQ(fileBytes(), object_.bytes);
}

TEST_F(DownloadTaskTest, StreamedChunksArriveOnceAndInOrderAndLeaveNoFile) {
  std::string streamed;
  const auto block = std::make_shared<OnStreamDownloadCompleted>(
      [&](const std::string& blobId, const std::shared_ptr<Chunk>& chunk, const Value& params) {
        EXPECT_EQ(blobId, "7");
        EXPECT_EQ(params, Value("p"));
        EXPECT_EQ(static_cast<std::size_t>(chunk->offset()), streamed.size());
        streamed += chunk->data()->readAll(1'000'000).value();
        throw std::runtime_error("a block's own trouble");
      });
  const Dictionary streaming{
      {kStreaming, true}, {kOnStreamDownloadCompleted, Value(block)}, {kFileParams, "p"}};
  struct Case {
    int whole;  // which answer is the whole object
    std::size_t size;
    std::string tag;
    std::int64_t code;  // of the failure; what was handed out cannot be taken back
  };
  for (const Case& c : std::vector<Case>{{99, 2500, "", 0},
                                         {2, 2500, "", 0},
                                         {2, 2500, "\"1\"", 0},
                                         {2, 2500, "\"2\"", 1019},
                                         {2, 2400, "\"1\"", 1019},
                                         {3, 1999, "", 1019}}) {
    SCOPED_TRACE(fmt::format("{} {} {}", c.whole, c.size, c.tag));
    object_.statesSize = c.whole != 3;
    streamed.clear();
    answerNth(c.whole, answerWith(200, object_.bytes.substr(0, c.size), {{"ETag", c.tag}}));
    const auto task = runTo(c.code == 0 ? TaskState::Ended : TaskState::Errored, streaming);
    EXPECT_EQ(errorCode(*task), c.code);
    EXPECT_EQ(streamed,
              c.code == 0 ? object_.bytes : object_.bytes.substr(0, c.whole == 2 ? 1000 : 2000));
    EXPECT_FALSE(std::filesystem::exists(path()));
  }
}

TEST_F(DownloadTaskTest, ObjectOfUnknownSizeWithoutEndIsStopped) {
  transport_->setHandler([](const RecordedRequest& request) {
    const std::int64_t first = test::askedRange(request).value().first;
    return answerWith(206, "x", {{"Content-Range", fmt::format("bytes {}-{}/*", first, first)}});
  });
  const auto task = makeTask();
  task->start();
  ASSERT_TRUE(
      eventually([&] { return task->state() == TaskState::Errored; }, std::chrono::minutes(1)));
  EXPECT_EQ(errorMessage(*task, kNetworkError), Value("The object has no end"));
}

TEST_F(DownloadTaskTest, DeviceLogLevelGoesBackToTheServerThatSetItAlone) {
  object_ = RangedObject::ofSize(10);
  const auto levelSentTo = [this](const std::string& url) {
    runTo(TaskState::Ended, {{kURL, url}});
    return transport_->requests().back().header("X-Pelmar-Device-Log-Level").value_or("none");
  };
  const auto answerLevel = [this](const std::string& level) {
    answerNth(1, [this, level](const RecordedRequest& request) {
      ScriptedAnswer answer = object_.answer(request);
      answer.response->headers.push_back({"x-pelmar-device-log-level", level});
      return answer;
    });
  };
  const RecordingLog log(LogLevel::kOff);
  answerLevel("fatal");
  EXPECT_EQ(levelSentTo("http://h/"), "none");
  EXPECT_TRUE(VaroNativeFacade::isEnabled(LogLevel::kFatal));
  EXPECT_FALSE(VaroNativeFacade::isEnabled(LogLevel::kError));
  EXPECT_EQ(levelSentTo("http://H/"), "fatal");
  EXPECT_EQ(levelSentTo("http://h:81/"), "none");
  answerLevel("OFF");
  EXPECT_EQ(levelSentTo("http://h/"), "fatal");
  EXPECT_FALSE(VaroNativeFacade::isEnabled(LogLevel::kFatal));
  EXPECT_EQ(levelSentTo("http://h/"), "none");
}

}  // namespace
}  // namespace varo::binary
