#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/SteppingClock.h"

#include <cstdlib>
#include <map>
#include <stdexcept>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

constexpr char kToken[] = "X-Pelmar-Authorization";
constexpr char kWhole[] = "bytes=0-1048575";
const std::string kInQueue =
    "File Download already in queue, Download not started 10002: "
    "File Download already in queue, Download not started (code 10002)";
/// What follows is the task's message.
const std::string kFailed = "DownloadTaskError 4: DownloadTaskError (code 4)";

Dictionary json(const std::string& text) {
  return CommonUtils::parseJsonString(text).dictionaryValue();
}

/// Downloads by a manager of its own. The calls of blocks are noted as "block name" and what
/// follows.
class OnlineDownloadTest : public test::DownloadFixture {
 protected:
  ~OnlineDownloadTest() override { awaitEndOfTasks(); }  // whose blocks use what is here

  static Dictionary endpoint(const Dictionary& more = {}) {
    Dictionary configuration = json(R"({"endpointUrl":"http://store/${fileId}"})");
    configuration.addEntries(more);
    return configuration;
  }
  static Dictionary named(const std::string& fileId) { return {{"fileId", fileId}}; }

  /// Starts a download; the blocks that `hooks` names run their hooks.
  void start(const Dictionary& fileParams, const Dictionary& configuration = endpoint(),
             const std::optional<Dictionary>& options = {}, bool streaming = false,
             const std::map<std::string, std::function<void()>>& hooks = {}) const {
    const auto say = [calls = calls_, hooks, fileParams](
                         const std::string& block, const std::string& rest, const Value& params) {
      EXPECT_EQ(params, Value(fileParams));
      calls->add(block + " " + rest);
      if (const auto hook = hooks.find(block); hook != hooks.end()) hook->second();
    };
    manager_->createAndStartOnlineDownloadTaskFor(
        fileParams, streaming, configuration,
        [say](const auto& name, const Value& params) { say("started", name, params); },
        [say](const auto& id, auto written, auto total, const Value& params) {
          say("chunk", id + " " + std::to_string(written) + "/" + std::to_string(total), params);
        },
        [say](const auto& id, const auto& chunk, const Value& params) {
          say("stream", id + " " + chunk->data()->readAll(1'000'000).value(), params);
        },
        [say](const auto& id, const auto& path, const Value& params) {
          say("completed", id + " " + path, params);
        },
        [say](const auto& name, const ErrorPtr& error, const Value& params) {
          // The task's own error, if it came to one, is the cause.
          EXPECT_EQ(error->userInfo().contains(kTaskErrors), &firstCause(*error) != error.get());
          say("failed", name + ": " + textOf(*error), params);
        },
        options);
  }
  /// Downloads, and waits until the name can be used again: the call of the one end.
  std::string outcome(const Dictionary& fileParams, const Dictionary& configuration = endpoint(),
                      const std::optional<Dictionary>& options = {}, bool streaming = false) {
    first_ = std::ssize(calls_->calls());
    start(fileParams, configuration, options, streaming);
    const auto ends = awaitEnds(1);
    awaitEndOfTasks();
    return ends.size() == 1 ? ends.front() : PrintToString(ends);
  }
  /// The error's own text and those of the tasks in its user information.
  static std::string textOf(const Error& error) {
    std::string text = error.description();
    for (const char* task : {kNetworkError, kDownloadError, kPersistenceError}) {
      text += error.userInfo()[task].dictionaryValue()["message"].textValue();
    }
    return text;
  }
  /// The calls of these blocks since `first_`.
  [[nodiscard]] std::vector<std::string> callsOf(const std::string& blocks) const {
    std::vector<std::string> found = calls_->calls();
    found.erase(found.begin(), found.begin() + first_);
    std::erase_if(found, [&](const std::string& call) {
      return blocks.find(call.substr(0, call.find(' '))) == std::string::npos;
    });
    return found;
  }
  /// All ends since `first_`, at least `count`.
  std::vector<std::string> awaitEnds(std::size_t count) const {
    EXPECT_TRUE(eventually([&] { return callsOf("completed failed").size() >= count; }))
        << PrintToString(callsOf("started completed failed"));
    return callsOf("completed failed");
  }
  /// What is in the file that the call of a completed block names.
  [[nodiscard]] std::string bytesOf(const std::string& call) const {
    const std::size_t at = call.find(home_ / "Documents");
    return at == std::string::npos ? call : contentOf(call.substr(at));
  }

  const std::shared_ptr<CallLog<std::string>> calls_ = std::make_shared<CallLog<std::string>>();
  std::ptrdiff_t first_ = 0;
  const SteppingClock clock_{1'700'000'000};
  const std::shared_ptr<OnlineBinaryDataManager> manager_ =
      std::make_shared<OnlineBinaryDataManager>(clock_);
};

// What is asked for.

TEST_F(OnlineDownloadTest, RequestFollowsConfigurationFileParametersAndOptions) {
  const Dictionary options = json(R"({"domain":"http://o/","X-Pelmar-Authorization":"theirs"})");
  const struct {
    std::string configuration;
    Dictionary options;
    std::string url, token, range;
    std::size_t headers;
    std::string safeToken = token;  // of the options it stays at their own domain
  } cases[] = {
      {R"({"endpointUrl":"http://store/${fileId}"})", options, "http://store/a", "none", kWhole, 1},
      {R"({"endpointUrl":"http://store/${fileId}","headers":{"X-One":1,"x-pelmar-authorization":0},)"
       R"("X-Pelmar-Authorization":"own","queryParams":{"q":"1 2"},"ChunkSize":100})",
       options, "http://store/a?q=1%202", "own", "bytes=0-99", 3},
      {R"({"domain":"http://d","relativepath":"/x","X-Pelmar-Authorization":"own"})", options,
       "http://d/x", "theirs", kWhole, 2, "own"},
      {R"({"domain":"http://o","relativepath":"/x","X-Pelmar-Authorization":"own"})", options,
       "http://o/x", "theirs", kWhole, 2},
      {R"({"domain":"#MiddlewareDomain","relativepath":"x","X-Pelmar-Authorization":"own"})",
       json(R"({"domain":"http://o/"})"), "http://o/x", "own", kWhole, 2},
      {R"({"endpointUrl":null,"domain":"http://d","X-Pelmar-Authorization":null,"Auth":"Basic",)"
       R"("queryParams":null,"ChunkSize":null})",
       Dictionary(), "http://d", "none", kWhole, 1}};
  object_ = RangedObject::ofSize(10);
  for (const auto& item : cases) {
    setTransferPolicy(TransferPolicy::kSafe);
    (void)outcome(named("a"), json(item.configuration), item.options);
    EXPECT_EQ(transport_->requests().back().header(kToken).value_or("none"), item.safeToken);
    setTransferPolicy(TransferPolicy::kCompatible);
    EXPECT_THAT(outcome(named("a"), json(item.configuration), item.options),
                StartsWith("completed a /"));
    EXPECT_THAT(callsOf("started"), ElementsAre("started a"));
    const RecordedRequest request = transport_->requests().back();
    EXPECT_EQ(request.url, item.url);
    EXPECT_EQ(request.header(kToken).value_or("none"), item.token);
    EXPECT_EQ(request.header("Range"), item.range);
    EXPECT_EQ(request.headers.size(), item.headers);
    EXPECT_EQ(request.spoolDirectory, home_ / "Documents/downloads");
  }
}

Dictionary signedConfiguration() {
  return json(R"({"endpointUrl":"http://store/bucket/${fileId}","Auth":"HMACDigest","method":"GET",
      "Host":"store.${zone}","headers":{"X-Dropped":"1"},"X-Pelmar-Authorization":"dropped",
      "AuthParameters":{"accessKeyID":"AKID","secretAccessKey":"marker-secret",
      "regionName":"${region}","serviceName":"s3","bucketName":"bucket",
      "objectName":"bucket/${fileId}"}})");
}

TEST_F(OnlineDownloadTest, SignedRequestCarriesTheSignersHeadersAloneAndNoSecretIsTold) {
  const RecordingLog lines;
  const Dictionary options{{kToken, "marker-token"}};
  object_ = RangedObject::ofSize(10);
  std::string signature;
  for (const std::string fileId : {"a", "dir/a b", R"(a"b\c)", R"(x","Host":"evil)"}) {
    EXPECT_THAT(outcome({{"fileId", fileId}, {"zone", "test"}, {"region", "eu-1"}},
                        signedConfiguration(), options),
                StartsWith("completed " + fileId + " /"));
    Dictionary authentication = signedConfiguration()["AuthParameters"].dictionaryValue();
    authentication.set("regionName", "eu-1");
    authentication.set("objectName", "bucket/" + fileId);
    S3HMACGenerator signer(
        authentication,
        {{"method", "GET"}, {"Host", "store.test"}, {"AuthParameters", authentication}}, Data(),
        S3OperationType::kDownload, clock_);
    const auto expected = signer.getRequestHeaders(S3OperationType::kDownload);
    const RecordedRequest request = transport_->requests().back();
    EXPECT_EQ(request.headers.size(), expected->size() + 1);  // the range
    for (const auto& header : *expected) {
      EXPECT_EQ(request.header(header.key), header.value.textValue());
    }
    signature = request.header("Authorization").value_or("none");
    signature.erase(0, signature.find("Signature=") + 10);
  }
  // Without an endpoint the options' token goes along, also in what fails.
  Dictionary elsewhere = signedConfiguration();
  elsewhere.set("endpointUrl", Value());
  elsewhere.set("domain", "http://d/");
  transport_->setHandler([](const auto&) { return answerWith(403, ""); });
  EXPECT_EQ(outcome(named("b"), elsewhere, options), "failed b: " + kFailed + "Forbidden.");
  EXPECT_EQ(transport_->requests().back().header(kToken), "marker-token");
  for (const auto& line : lines->lines()) {
    EXPECT_THAT(line.text, Not(HasSubstr("marker-")));
    EXPECT_THAT(line.text, Not(HasSubstr(signature)));
  }
}

TEST_F(OnlineDownloadTest, NoNameLeadsOutOfTheFolderOrFailsForItsSlashes) {
  setTransferPolicy(TransferPolicy::kSafe);
  const Dictionary same = endpoint({{"endpointUrl", "http://store/x"}});
  const std::pair<std::string, std::string> cases[] = {{"100%.txt", "100%.txt"},
                                                       {"a/b%2F.txt", "a%2Fb%252F.txt"},
                                                       {"/", "%2F"},
                                                       {"a%2Fb", "a%252Fb"},
                                                       {"../../x", "..%2F..%2Fx"},
                                                       {"..%2fx", "..%2fx"},
                                                       {"..", ".."}};
  for (const auto& item : cases) {
    const std::string call = outcome(named(item.first), same);
    EXPECT_EQ(bytesOf(call), object_.bytes);
    EXPECT_THAT(call, ContainsRegex(home_ / "Documents/downloads/[0-9]+_[^/]+$"));
    EXPECT_THAT(call, EndsWith("_" + item.second));
  }
  for (const std::string& id : {std::string("a\0b", 3), std::string(300, 'n')}) {
    EXPECT_EQ(outcome(named(id), same),
              "failed " + id + ": " + kFailed + "FileDoesn't exist at path.");
  }
  const std::filesystem::recursive_directory_iterator all(home_.path());
  EXPECT_EQ(std::distance(begin(all), end(all)), 2 + 7);
}

// What fails or is refused.

struct ThrowsWhenCopied {
  ThrowsWhenCopied() = default;
  ThrowsWhenCopied(ThrowsWhenCopied&&) = default;
  ThrowsWhenCopied(const ThrowsWhenCopied& /*other*/) { throw std::runtime_error("a copy"); }
  void operator()(const std::string& /*name*/, const Value& /*params*/) const {}
};

TEST_F(OnlineDownloadTest, WhatCannotBeDownloadedIsToldThroughTheFailureBlock) {
  const RecordingLog log;
  const std::string parsing = "Template Parsing Error 10003: ";
  const std::string input = kFailed + "Invalid inputs provided to the network task.";
  Dictionary noJson = signedConfiguration();
  noJson.set("Host", Data::fromBytes("x"));
  const std::pair<Dictionary, std::string> cases[] = {
      {json(R"({"endpointUrl":"http://h/${fileId}/${other}"})"),
       parsing + "fileParam other is not provided"},
      {json(R"({"endpointUrl":"http://h/${fileId"})"), parsing + "Template Parsing error"},
      {noJson, parsing + "Template Parsing error"},
      {json(R"({"domain":"http://d"})"), input},  // without options
      {json(R"({"endpointUrl":""})"), input},
      {endpoint({{"ChunkSize", -1}}), input}};
  for (const auto& item : cases) {
    EXPECT_EQ(outcome(named("a"), item.first), "failed a: " + item.second);
    EXPECT_EQ(callsOf("started").size(), item.second.starts_with(kFailed) ? 1U : 0U);
  }
  const std::size_t sent = transport_->requestCount();
  for (const std::string path : {".evil.test/x", "@evil.test/x", ":81/x", "/\\\\@h:81/x"}) {
    const Dictionary elsewhere =
        json(R"({"domain":"#middlewaredomain","relativepath":")" + path + R"(","EndPointUrl":1})");
    const bool stays = path.starts_with('/');
    EXPECT_THAT(outcome(named("a"), elsewhere, json(R"({"domain":"http://h","Domain":1})")),
                StartsWith(stays ? "completed" : "failed a: BinaryNetworkUtils 6018: "));
  }
  EXPECT_EQ(transport_->requestCount(), sent + 1);
  for (const char* warning :
       {"Nothing reads \"EndPointUrl\" in the configuration; did you mean \"endpointUrl\"?",
        "Nothing reads \"Domain\" in the options; did you mean \"domain\"?"}) {
    EXPECT_EQ(log->count(LogLevel::kWarning, warning), 4);
  }
  EXPECT_EQ(outcome(named("")),
            "failed : " + kFailed + "Invalid inputs provided to the download task.");

  manager_->createAndStartOnlineDownloadTaskFor(
      named("c"), false, endpoint(), ThrowsWhenCopied(), nullptr, nullptr, nullptr,
      [calls = calls_](const auto& name, const ErrorPtr& error, const Value& params) {
        calls->add("failed " + name + ": " + textOf(*error) + " " + params.textValue());
      },
      {});
  EXPECT_EQ(awaitEnds(2)[1],
            "failed c: DownloadTaskError 4: a copy " + Value(named("c")).textValue());
}

TEST_F(OnlineDownloadTest, NameWithoutFileIdIsTheSecondSoThatTheLaterDownloadIsRefused) {
  transport_->hold();
  start({{"other", 1}}, json(R"({"endpointUrl":"http://store/x"})"));
  start({{"fileId", nullptr}}, json(R"({"endpointUrl":"http://store/x"})"));
  EXPECT_THAT(awaitEnds(1), ElementsAre("failed _1700000000: " + kInQueue));
  transport_->releaseAll();
  EXPECT_THAT(awaitEnds(2)[1], StartsWith("completed _1700000000 /"));
}

// Many at once, and from inside blocks.

TEST_F(OnlineDownloadTest, SixthWaitsForASuccessAndUnderTheSafePolicyForAnyEndOfAnother) {
  for (const TransferPolicy policy : {TransferPolicy::kCompatible, TransferPolicy::kSafe}) {
    for (const TaskState end : {TaskState::Ended, TaskState::Errored, TaskState::Paused}) {
      SCOPED_TRACE(Message() << static_cast<int>(policy) << " " << static_cast<int>(end));
      setTransferPolicy(policy);
      first_ = std::ssize(calls_->calls());
      const std::size_t before = transport_->requestCount();
      transport_->hold();
      if (end == TaskState::Errored) transport_->answer(answerWith(404, ""));
      auto first = makeTask({{kChunkSizeKey, 10'000}});  // one that can be paused from here
      const auto witness = std::make_shared<Witness>();  // hears of an end when the manager has
      first->subscribeForTaskUpdates(manager_);
      first->subscribeForTaskUpdates(witness);
      for (int i = 0; i < 2; ++i) manager_->checkAndStartExecution(first);
      awaitHeld(1);
      for (const char* id : {"b", "c", "d", "e", "waits", "b", "waits"}) start(named(id));
      EXPECT_THAT(awaitEnds(2),
                  UnorderedElementsAre("failed b: " + kInQueue, "failed waits: " + kInQueue));
      awaitHeld(5);

      end == TaskState::Paused ? first->pauseDownload() : void(transport_->release());
      EXPECT_TRUE(eventually([&] { return witness->last == end; }));
      const bool isTurn = policy == TransferPolicy::kSafe || end == TaskState::Ended;
      if (!isTurn) start(named("new"));  // takes the place
      EXPECT_TRUE(eventually([&] { return transport_->requestCount() == before + 6; }));
      EXPECT_EQ(transport_->requests().back().url,
                isTurn ? "http://store/waits" : "http://store/new");
      transport_->releaseAll();
      (void)awaitEnds(isTurn ? 7 : 8);
      EXPECT_EQ(callsOf("failed").size(), 2U);
      first.reset();
      awaitEndOfTasks();
    }
  }
}

TEST_F(OnlineDownloadTest, EveryBlockMayStartDownloadsWaitForThemAndThrow) {
  transport_->answer(answerWith(503, ""));
  transport_->hold();
  // The name is in use until the completed block returns.
  const auto refused = [this] {
    start(named("a"));
    EXPECT_TRUE(eventually([this] { return callsOf("failed").size() == 2; }));
    throw 1;
  };
  const auto again = [this, refused] {
    const auto trouble = [] { throw std::runtime_error("a block's own trouble"); };
    start(named("a"), endpoint(), {}, false, {{"chunk", trouble}, {"completed", refused}});
    trouble();
  };
  start(named("a"), endpoint(), {}, false, {{"failed", again}});
  awaitHeld(1);
  start(named("b"), endpoint(), {}, false, {{"started", [this] { start(named("by started")); }}});
  transport_->releaseAll();
  (void)awaitEnds(5);
  EXPECT_EQ(callsOf("failed")[1], "failed a: " + kInQueue);
  EXPECT_EQ(callsOf("completed").size(), 3U);
}

TEST_F(OnlineDownloadTest, ShutdownTellsEveryDownloadAndRefusesWhatFollows) {
  transport_->setHandler([](const auto&) { return answerWith(404, ""); });
  // Failures after which, under the compatible policy, the others wait on.
  for (const std::size_t failures : {0U, 3U, 5U}) {
    inOwnProcess([this, failures] {
      transport_->hold();
      for (int i = 0; i < 20; ++i) start(named(std::to_string(i)));
      awaitHeld(5);
      for (std::size_t i = 0; i < failures; ++i) (void)transport_->release();
      (void)awaitEnds(failures);
      Runtime::shared().shutdown();
      require(callsOf("failed").size() == 20, "every download was told");
      start(named("late"));
      require(callsOf("failed").size() == 21, "what follows is told");
      require(callsOf("failed").back() ==
                  "failed late: DownloadTaskErrorDomain 5001: The library has been shut down",
              "what follows is refused");
      std::_Exit(0);  // without the checks of this fixture
    });
  }
}

}  // namespace
}  // namespace varo::binary
