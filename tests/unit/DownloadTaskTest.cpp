#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/ObjectValidator.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/RequestSigner.h"
#include "Platform/Foundation/File.h"
#include "Platform/Network/HttpTransportError.h"
#include "tests/support/Base64.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/RecordingLog.h"

#include <new>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

using enum TransferPolicy;
using DownloadTaskTest = test::DownloadFixture;

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
  const Dictionary keys{{"id", 1}, {"na me", "a&b=c#%d"}, {"k%20", "%C3%A4/?+"}};
  const std::string asGiven =
      "http://h/Scope/Object/binary?id=1&na%20me=a%26b%3Dc%23%25d&k%20=%C3%A4/?+&type=bytes";
  const std::string encoded =
      "http://h/Scope/Object/binary?id=1&na%20me=a%26b%3Dc%23%25d&k%2520=%25C3%25A4%2F%3F%2B"
      "&type=bytes";
  const std::pair<Dictionary, std::string> cases[] = {
      {{{kPrimaryKeys, keys}}, asGiven},
      {{{kClientID, "c1"}, {kSessionID, "s1"}},
       "http://h/Scope/Object/binary?id=1&type=bytes&clientid=c1&varosyncsessionid=s1"},
  };
  for (const auto& [input, url] : cases) {
    runTo(TaskState::Ended, input);
    EXPECT_EQ(transport_->requests().back().url, url);
  }
  setTransferPolicy(kSafe);
  runTo(TaskState::Ended, {{kPrimaryKeys, keys}});
  EXPECT_EQ(transport_->requests().back().url, encoded);
  runTo(TaskState::Ended, {{kDownloadHeaders, Dictionary{{"X-One", 1}, {"range", "bytes=5-6"}}}});
  EXPECT_EQ(transport_->requests().back().header("x-one"), "1");
  EXPECT_EQ(transport_->requests().back().header("Range"), "bytes=0-999");
}

TEST_F(DownloadTaskTest, AnswersThatDoNotBelongAreErrorsAndNeverWritten) {
  const std::string piece(1000, 'x');
  const struct {
    std::string name;
    ScriptedAnswer second;
    std::int64_t code;
    std::string message;
    std::size_t left;  // bytes in the file afterwards
  } cases[] = {
      {"another size", answerWith(206, piece, {{"Content-Range", "bytes 1000-1999/2501"}}), 1019,
       "Integrity check failed", 0},
      {"lost", failWith(7, "no route"), 6006, "Upload error: no route", 1000},
      {"error",
       answerWith(200, R"({"d":{"error":true,"msg":"gone"}})",
                  {{"Content-Type", "application/json"}}),
       999, "gone", 1000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    answerNth(2, c.second);
    const auto task = runTo(TaskState::Errored);
    EXPECT_EQ(errorCode(*task), c.code);
    EXPECT_THAT(errorMessage(*task, kNetworkError).textValue(), StartsWith(c.message));
    EXPECT_EQ(fileBytes(), object_.bytes.substr(0, c.left));
    EXPECT_EQ(task->outputContext()[kFilePath], Value(path()));
    if (c.name == "lost") {
      const Array errors = *task->errorContext()[kTaskErrors].array();
      EXPECT_EQ(firstCause(*errors[0].error()).code(), 7);
    }

    // A new start goes on and ends well, whatever was asked of the run that has failed.
    task->pauseDownload();
    task->setState(TaskState::NotStarted);
    task->start();
    ASSERT_TRUE(reaches(task, TaskState::Ended));
    task->releaseFile();
    EXPECT_TRUE(fileBytes() == object_.bytes);
  }
}

TEST_F(DownloadTaskTest, WholeObjectInPlaceOfARangeIsTheObject) {
  const std::string base64 = R"({"d":{"results":")" + base64Of(object_.bytes) + "\"}}";
  for (const auto& [body, type] : {std::pair(object_.bytes, "Binary"), {base64, "Base64"}}) {
    answerNth(2, answerWith(200, body));
    runTo(TaskState::Ended, {{kResponseType, type}});
    EXPECT_EQ(fileBytes(), object_.bytes);
  }
}

TEST_F(DownloadTaskTest, PartialFileOfAnEarlierProcessIsGoneOnWithOnlyIfItsObjectIsTheSame) {
  const std::string rest = "bytes=1000-1999 bytes=2000-2499";
  const std::string anew = "bytes=1000-1999 bytes=0-999 " + rest;
  const auto refuse = makeTransportError(HttpTransportError::kResponseTooLarge, "too large");
  const RangedObject other{.bytes = std::string(2500, 'o'), .tag = "\"2\""};
  const struct {
    std::string name;
    ObjectValidator validator;
    RangedObject now;
    std::optional<ScriptedAnswer> first;  // instead of the object's
    TransferPolicy policy;
    std::string ranges, ifRange;
  } cases[] = {
      {"same", {"\"1\"", "", 2500}, object_, {}, kCompatible, rest, "none"},
      {"same", {"\"1\"", "", 2500}, object_, {}, kSafe, rest, "\"1\""},
      {"another tag", {"\"1\"", "", 2500}, other, {}, kCompatible, anew, "none"},
      // A server that knows conditions answers with the whole object, others with the range.
      {"another tag", {"\"1\"", "", 2500}, other, {}, kSafe, anew, "\"1\""},
      {"another, whole",
       {"\"1\"", "", 2500},
       other,
       answerWith(200, other.bytes),
       kSafe,
       "bytes=1000-1999",
       "\"1\""},
      {"another, larger than the size that is known",
       {"\"1\"", "", 2400},
       other,
       ScriptedAnswer{std::nullopt, refuse},
       kSafe,
       anew,
       "\"1\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    setTransferPolicy(c.policy);
    writeFile(sampleBytes(2500).substr(0, 1000));
    object_ = c.now;
    if (c.first) answerNth(1, *c.first);
    if (!c.first) answerNth(99, ScriptedAnswer{});
    const std::size_t before = transport_->requestCount();
    runTo(TaskState::Ended, {{kTotalBytesDownloaded, 1000}, {kValidator, c.validator.text()}});
    EXPECT_EQ(fileBytes(), object_.bytes);
    EXPECT_EQ(rangesSince(before), c.ranges);
    EXPECT_EQ(transport_->requests()[before].header("If-Range").value_or("none"), c.ifRange);
  }
}

TEST_F(DownloadTaskTest, ObjectThatKeepsChangingStartsOverOnce) {
  writeFile(object_.bytes.substr(0, 1000));
  transport_->setHandler(
      [this, count = std::make_shared<std::atomic<int>>(0)](const RecordedRequest& request) {
        object_.tag = fmt::format("\"{}\"", ++*count);
        return object_.answer(request);
      });
  const ObjectValidator known{"\"0\"", "", 2500};
  const auto task =
      runTo(TaskState::Errored, {{kTotalBytesDownloaded, 1000}, {kValidator, known.text()}});
  EXPECT_EQ(errorCode(*task), 1019);
  EXPECT_EQ(rangesSince(0), "bytes=1000-1999 bytes=0-999 bytes=1000-1999");
}

TEST_F(DownloadTaskTest, PauseAndStopCancelTheRangeInFlightAndTheNextRunDoesNotHearOfIt) {
  const std::string first = "http://h/Scope/Object/binary?id=1&type=bytes";
  for (const bool stops : {false, true}) {
    SCOPED_TRACE(stops);
    std::filesystem::remove(path());
    const std::size_t before = transport_->cancelled().size();
    transport_->hold();
    const auto task = makeTask();
    task->start();
    release(1);
    awaitHeld(1);
    ASSERT_TRUE(eventually([this] { return fileBytes().size() == 1000; }));
    stops ? task->stop() : task->pauseDownload();
    ASSERT_TRUE(eventually([&] { return transport_->cancelled().size() == before + 1; }));
    EXPECT_EQ(transport_->cancelled().back(), first);
    awaitHeld(0);
    if (stops) {
      transport_->releaseAll();
      EXPECT_TRUE(eventually([file = File::openForWriting(path()).value()] {
        return file->lock().ok();
      })) << "others may have the file";
      continue;
    }
    ASSERT_TRUE(reaches(task, TaskState::Paused));
    // Without a place to begin it goes on from its own.
    Dictionary input = task->inputContext();
    input.remove(kTotalBytesDownloaded);
    task->updateInputContext(input);
    task->resumeDownload();
    task->resumeDownload();  // it runs
    transport_->releaseAll();
    ASSERT_TRUE(reaches(task, TaskState::Ended));
    EXPECT_EQ(fileBytes(), object_.bytes);
    EXPECT_EQ(rangesSince(0), "bytes=0-999 bytes=1000-1999 bytes=1000-1999 bytes=2000-2499");
    task->releaseFile();
  }
}

/// Ends transfers when the test says so, those also that were cancelled.
struct LateTransport final : HttpTransport {
  struct Transfer final : HttpTransfer {
    void cancel() override {}
  };
  std::shared_ptr<HttpTransfer> send(HttpRequest /*request*/, HttpCompletion completion) override {
    completions.add(std::move(completion));
    return std::make_shared<Transfer>();
  }
  void shutdown() override {}
  [[nodiscard]] std::size_t count() const { return completions.calls().size(); }
  void end(std::size_t index, const ScriptedAnswer& answer) const {
    completions.calls().at(index)(answer.response, answer.error);
  }
  CallLog<HttpCompletion> completions;
};

TEST_F(DownloadTaskTest, LateEndOfACancelledRangeIsNotThatOfTheNextRun) {
  const ScriptedAnswer lates[] = {
      {std::nullopt, makeTransportError(HttpTransportError::kCancelled, "cancelled")},
      answerWith(206, std::string(1000, 'x'), {{"Content-Range", "bytes 0-999/2500"}}),
      answerWith(404, "")};
  for (std::size_t i = 0; i < 2 * std::size(lates); ++i) {
    const ScriptedAnswer& late = lates[i / 2];
    const bool isResumed = i % 2 != 0;  // when it comes
    const auto transport = std::make_shared<LateTransport>();
    VRONetworkUtility::setTransport(transport);
    std::filesystem::remove(path());
    const auto task = makeTask({{kChunkSizeKey, 2500}});
    task->start();
    ASSERT_TRUE(eventually([&] { return transport->count() == 1; }));
    task->pauseDownload();
    ASSERT_TRUE(reaches(task, TaskState::Paused));
    if (!isResumed) transport->end(0, late);
    resumeFromFile(task);
    ASSERT_TRUE(eventually([&] { return transport->count() == 2; }));
    if (isResumed) transport->end(0, late);
    transport->end(1, answerWith(206, object_.bytes, {{"Content-Range", "bytes 0-2499/2500"}}));
    EXPECT_TRUE(reaches(task, TaskState::Ended));
    EXPECT_EQ(fileBytes(), object_.bytes);
    EXPECT_EQ(transport->count(), 2U);
    VRONetworkUtility::setTransport(transport_);
    task->stop();
    task->releaseFile();
  }
}

TEST_F(DownloadTaskTest, EachRangeIsSignedAnewAndWhatSigningThrowsEndsTheDownload) {
  int signatures = 0;
  const auto signer = [](RequestSigner::Sign sign) {
    return Dictionary{{kRequestSigner, std::make_shared<RequestSigner>(std::move(sign))},
                      {kDownloadHeaders, Dictionary{{"Authorization", "old"}, {"X-One", 1}}}};
  };
  runTo(TaskState::Ended, signer([&signatures]() -> Result<Dictionary> {
          return Dictionary{{"authorization", ++signatures}};
        }));
  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 3U);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].header("Authorization"), std::to_string(i + 1));
    EXPECT_EQ(requests[i].header("X-One"), "1");
  }

  const std::pair<RequestSigner::Sign, std::string> failures[] = {
      {[]() -> Result<Dictionary> { throw std::bad_alloc(); }, "std::bad_alloc"},
      {[]() -> Result<Dictionary> { throw 7; }, "An unknown exception"},
      {[]() -> Result<Dictionary> { return Error::make("S3", 5, "no key"); }, "no key"}};
  for (const auto& [sign, message] : failures) {
    EXPECT_EQ(errorMessage(*runTo(TaskState::Errored, signer(sign)), kNetworkError),
              Value(message));
  }
  EXPECT_EQ(transport_->requestCount(), 3U);
}

TEST_F(DownloadTaskTest, SettingsOfTheDownloadWinOverThoseOfTheProcess) {
  auto own = std::make_shared<OperationSettings>();
  own->policy = kSafe;
  const Dictionary safe{{kOperationSettings, OperationSettings::value(own)}};
  for (const char* key : {kChunkSizeKey, kTotalFileSize, kTotalBytesDownloaded}) {
    Dictionary input = safe;
    input.set(key, "10M");
    const auto task = runTo(TaskState::Errored, input);
    EXPECT_EQ(errorCode(*task), 6011);
    EXPECT_EQ(errorMessage(*task, kNetworkError),
              Value(std::string(key) + " is not a number: 10M"));
    if (key != kTotalBytesDownloaded) runTo(TaskState::Ended, {{key, "2500 bytes"}});
  }
  Dictionary input = safe;
  input.set(kChunkSizeKey, "2500");
  input.set(kSpoolDirectory, "/where/it/goes");
  runTo(TaskState::Ended, input);
  EXPECT_EQ(transport_->requests().back().spoolDirectory, "/where/it/goes");
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
    awaitEndOfTasks();  // a run that failed may still be asking for its next range
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

TEST_F(DownloadTaskTest, AtMostFourChunksWaitForTheDisk) {
  object_ = RangedObject::ofSize(20'000);
  std::atomic<std::size_t> written{0};
  std::atomic<std::size_t> most{0};  // ranges that were asked for and not written yet
  transport_->setHandler([&](const RecordedRequest& request) {
    most = std::max(most.load(), transport_->requestCount() - written);
    return object_.answer(request);
  });
  const auto slow = std::make_shared<OnChunkDownloadCompleted>(
      [&](const std::string&, std::int64_t, std::int64_t, const Value&) {
        // One is being written, four wait; so there is time for one too many each time.
        const std::size_t all = std::min<std::size_t>(20, written + 5);
        EXPECT_TRUE(eventually([&] { return transport_->requestCount() >= all; }));
        ++written;
      });
  const auto task = makeTask({{kOnChunkDownloadCompleted, Value(slow)}});
  task->start();
  ASSERT_TRUE(reaches(task, TaskState::Ended));
  EXPECT_EQ(most, 5U);
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
