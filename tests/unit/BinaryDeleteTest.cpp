#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"
#include "tests/support/FileAdapterFixture.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/ScriptedBackOff.h"

#include <atomic>

namespace varo::binary {
namespace {

using namespace platform;
using test::answerWith;
using testing::ElementsAre;

constexpr const char* kAccepted =
    R"({"opstatus":0,"httpStatusCode":202,"poll_api":"/jobs/7/status?a=1&b=2"})";
constexpr const char* kWorking = R"({"opstatus":0,"poll_status":"true"})";
constexpr const char* kDone = R"({"opstatus":0,"poll_status":"false","deleted":3})";

class DeleteTest : public test::FileAdapterFixture {
 protected:
  /// Runs the task itself, so that waits are drawn from `random_` and slept by `sleeper_`.
  std::shared_ptr<BinaryDeleteTask> start(const Dictionary& headers = {}) {
    auto task = std::make_shared<BinaryDeleteTask>(random_, sleeper_);
    task->setInputContext({{"url", kUrl},
                           {"callback", callback()},
                           {"headers", headers},
                           {"requestContext", Dictionary{{"file_id", "7"}}}});
    task->start();
    return task;
  }
  void answerAll(const std::vector<const char*>& bodies) {
    for (const char* body : bodies) transport_->answer(answerWith(200, body));
  }
  static std::string codeAndDomain(const Event& event) {
    EXPECT_EQ(event.block, "failure");
    const Dictionary failure = event.value.dictionaryValue();
    return failure["code"].textValue() + " " + failure["domain"].textValue();
  }
  /// The failure of a delete whose polling failed, and the one error that led to it.
  void expectPollingFailure(const Event& event, std::string_view domain, std::int64_t code) {
    EXPECT_EQ(codeAndDomain(event), "6003 Network operation failed");
    const Dictionary info = event.value.dictionaryValue()["userInfo"].dictionaryValue();
    const Array* errors = info[platform::kTaskErrors].array();
    ASSERT_NE(errors, nullptr);
    ASSERT_EQ(errors->size(), 1U);
    EXPECT_EQ((*errors)[0].error()->domain(), domain);
    EXPECT_EQ((*errors)[0].error()->code(), code);
    EXPECT_EQ(info["underlyingError"], (*errors)[0]);
  }

  const std::string kFiles = std::string(kUrl) + "/objects/File";
  test::GreatestRandom random_;
  test::RecordingSleeper sleeper_;
};

TEST_F(DeleteTest, DeleteDoneAtOnceSucceedsWithTheAnswerAndNeverPolls) {
  for (const char* status : {"200", "\"200\"", "2020", "\"202 \"", "true"}) {
    transport_->answer(answerWith(
        202, std::string(R"({"opstatus":0,"poll_api":"/p?a=1","httpStatusCode":)") + status + "}"));
    start();
    const Event end = awaitNext();
    EXPECT_EQ(end.block, "success");
    const Dictionary result = end.value.dictionaryValue();
    EXPECT_EQ(result["poll_api"], Value("/p?a=1")) << "entries of the answer stay";
    EXPECT_EQ(result["requestContext"], Value(Dictionary{{"file_id", "7"}}));
  }
  EXPECT_EQ(transport_->requestCount(), 5U);
}

TEST_F(DeleteTest, AcceptedDeleteSucceedsAtTheAttemptThatFindsItDone) {
  const std::vector<std::int64_t> bounds{1, 3, 7, 15};
  for (std::size_t attempts = 1; attempts <= 5; ++attempts) {
    random_.bounds.clear();
    sleeper_.delays.clear();
    const std::size_t before = transport_->requestCount();
    answerAll({attempts % 2 == 0 ? kAccepted
                                 : R"({"httpStatusCode":"202","poll_api":"/jobs/7/status"})"});
    for (std::size_t i = 1; i < attempts; ++i) answerAll({kWorking});
    answerAll({kDone});
    start();
    const Event end = awaitNext();
    EXPECT_EQ(end.block, "success");
    const Dictionary result = end.value.dictionaryValue();
    for (const char* gone : {"pollingStatus", "poll_api", "poll_status"}) {
      EXPECT_FALSE(result.contains(gone)) << gone;
    }
    EXPECT_EQ(result["deleted"], Value(3));
    EXPECT_EQ(result["httpStatusCode"].textValue(), "202");
    EXPECT_EQ(result["requestContext"], Value(Dictionary{{"file_id", "7"}}));
    EXPECT_EQ(transport_->requestCount() - before, 1 + attempts);
    awaitEndOfTasks();
    std::vector<std::int64_t> drawn(bounds.begin(),
                                    bounds.begin() + static_cast<std::ptrdiff_t>(attempts) - 1);
    EXPECT_EQ(random_.bounds, drawn);
    for (auto& bound : drawn) bound *= 1000;
    EXPECT_EQ(sleeper_.delays, drawn) << "milliseconds of whole seconds";
  }
}

TEST_F(DeleteTest, FifthAnswerThatDoesNotMatchFailsTheDelete) {
  constexpr std::string_view kDomain =
      "Exceeded number of retries, the current operation is taking longer time, status is not "
      "available yet";
  for (const char* working : {kWorking, R"({"opstatus":0,"poll_status":false})", R"({})",
                              R"({"poll_status":"False"})", R"({"poll_status":null})"}) {
    random_.bounds.clear();
    const std::size_t before = transport_->requestCount();
    answerAll({kAccepted, working, working, working, working, working});
    const auto task = start();
    expectPollingFailure(awaitNext(), kDomain, 6003);
    EXPECT_EQ(transport_->requestCount() - before, 6U) << working;
    EXPECT_THAT(random_.bounds, ElementsAre(1, 3, 7, 15));
    EXPECT_EQ(task->state(), TaskState::Errored);
    ASSERT_EQ(task->errors().size(), 1U);
    EXPECT_EQ(task->errors()[0]->domain(), "Network operation failed");
  }
}

TEST_F(DeleteTest, PollingStatusOfAnAnswerCountsUnderTheCompatiblePolicyOnly) {
  const char* saysDone = R"({"poll_status":"true","pollingStatus":true})";
  const char* saysWorking = R"({"poll_status":"false","pollingStatus":false})";
  for (const bool safe : {false, true}) {
    setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    const std::size_t before = transport_->requestCount();
    answerAll({kAccepted, saysDone});
    if (safe) answerAll({kDone});
    start();
    EXPECT_EQ(awaitNext().block, "success");
    answerAll({kAccepted, saysWorking});
    if (!safe) answerAll({kDone});
    start();
    EXPECT_EQ(awaitNext().block, "success");
    EXPECT_EQ(transport_->requestCount() - before, 5U);
  }
}

TEST_F(DeleteTest, FailedRequestsFailTheDelete) {
  transport_->answer(test::failWith(28, "timed out"));
  start();
  EXPECT_EQ(codeAndDomain(awaitNext()), "28 BinaryNetworkUtils");

  for (const auto& [answer, code] :
       {std::pair(test::failWith(7, "refused"), 7),
        std::pair(answerWith(200, R"({"opstatus":8009,"poll_status":"false"})"), 6003)}) {
    answerAll({kAccepted, kWorking});
    transport_->answer(answer);
    start();
    expectPollingFailure(awaitNext(), "BinaryNetworkUtils", code);
  }

  sleeper_.reason = platform::TimerQueue::Reason::kShutDown;
  answerAll({kAccepted, kWorking});
  start();
  expectPollingFailure(awaitNext(), "LoopingTask", 2);
}

TEST_F(DeleteTest, AcceptedDeleteThatDoesNotSayWhereToPollFailsAndSaysSo) {
  const auto description = [](const Event& end) {
    EXPECT_EQ(codeAndDomain(end), "6003 Network operation failed");
    return end.value.dictionaryValue()["localizedDescription"].textValue();
  };
  for (const char* entry : {"", R"(,"poll_api":null)", R"(,"poll_api":"")", R"(,"poll_api":7)"}) {
    transport_->answer(answerWith(200, std::string(R"({"httpStatusCode":202)") + entry + "}"));
    start();
    EXPECT_THAT(description(awaitNext()), testing::HasSubstr("\"poll_api\"")) << entry;
  }
  answerAll({kAccepted});
  BinaryFileStorageInterface::deleteWithUrl("http://127.0.0.1/storage", "7", {}, {}, onSuccess(),
                                            onFailure(), {});
  EXPECT_THAT(description(awaitNext()), testing::HasSubstr("\"services\""));
  EXPECT_EQ(transport_->requestCount(), 5U);
}

TEST_F(DeleteTest, PollAddressesAreAskedAsTheyWereGivenAtTheServerOfTheDelete) {
  const auto pollAt = [this](const char* base, const char* pollApi) {
    transport_->answer(answerWith(200, json({{"httpStatusCode", 202}, {"poll_api", pollApi}})));
    answerAll({kDone});
    BinaryFileStorageInterface::deleteWithUrl(base, "7", {}, {}, onSuccess(), onFailure(), {});
    return awaitNext();
  };
  EXPECT_EQ(pollAt(kUrl, "/jobs?id=a%2Fb%20c+d&x=1").block, "success");
  EXPECT_EQ(transport_->requests().back().url, "http://127.0.0.1/services/jobs?id=a%2Fb%20c+d&x=1");
  const std::size_t before = transport_->requestCount();
  const Event refused = pollAt("http://services.example/v1", "@evil.test/x?token=marker");
  EXPECT_EQ(codeAndDomain(refused), "6018 BinaryNetworkUtils");
  EXPECT_THAT(refused.value.dictionaryValue()["localizedDescription"].textValue(),
              testing::HasSubstr("evil.test/x"));
  EXPECT_EQ(transport_->requestCount() - before, 1U) << "the delete alone";
}

TEST_F(DeleteTest, RequestsCarryTheHeadersWithTheirOwnContentType) {
  answerAll({kAccepted, kDone});
  start({{"content-type", "text/x"},
         {"A", "b"},
         {"x-tessel-ignore-mapper-response-filtering", "no"}});
  EXPECT_EQ(awaitNext().block, "success");

  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].method, HttpMethod::kDelete);
  EXPECT_EQ(requests[0].url, kFiles + "?$filter=file_id%20eq%20%277%27");
  EXPECT_EQ(requests[1].method, HttpMethod::kGet);
  EXPECT_EQ(requests[1].url, "http://127.0.0.1/services/jobs/7/status?a=1&b=2");
  for (const auto& request : requests) {
    std::vector<std::string> headers;
    for (const auto& header : request.headers) headers.push_back(header.name + "=" + header.value);
    EXPECT_THAT(headers, ElementsAre("A=b", "x-tessel-ignore-mapper-response-filtering=no",
                                     "Content-Type=application/json"));
  }
}

/// A callback without blocks logs where it would have called one: that shows the order.
TEST_F(DeleteTest, CallbackComesBeforeTheEndOfAPolledDeleteAndAfterAllOtherEnds) {
  const test::RecordingLog log(LogLevel::kWarning);
  using enum TaskState;
  const std::vector<const char*> tooLate{kAccepted, kWorking, kWorking,
                                         kWorking,  kWorking, kWorking};
  const char* succeeded = "Success callback is not defined.";
  const char* failed = "Failure callback is not defined.";
  const struct {
    std::vector<const char*> answers;
    const char* text;
    TaskState whenCalled, end;
  } cases[] = {
      {{R"({"opstatus":0})"}, succeeded, Ended, Ended},
      {{kAccepted, kDone}, succeeded, Started, Ended},
      {{R"({"opstatus":1})"}, failed, Errored, Errored},
      {tooLate, failed, Errored, Errored},
  };
  std::shared_ptr<BinaryDeleteTask> task;
  std::atomic<TaskState> whenCalled;
  std::atomic<int> calls = 0;
  log->onWrite = [&](auto, auto) {
    whenCalled = task->state();
    ++calls;
  };
  for (const auto& item : cases) {
    log->clear();
    calls = 0;
    answerAll(item.answers);
    task = std::make_shared<BinaryDeleteTask>(random_, sleeper_);
    task->setInputContext({{"url", kUrl}, {"callback", std::make_shared<BinaryCallback>()}});
    task->start();
    ASSERT_TRUE(test::eventually([&] { return calls > 0 && platform::isFinal(task->state()); }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(log->count(LogLevel::kWarning, item.text), 1);
    EXPECT_EQ(whenCalled, item.whenCalled);
    EXPECT_EQ(task->state(), item.end);
  }
  task.reset();
  awaitEndOfTasks();
}

TEST_F(DeleteTest, SelectionsReachTheServiceAndTheResult) {
  using Storage = BinaryFileStorageInterface;
  transport_->setHandler([](const auto&) { return answerWith(200, R"({"opstatus":0})"); });
  const auto ok = onSuccess();
  const auto failed = onFailure();
  const Dictionary criteria{{" \n name", "a b"}, {"type", "png"}};
  const std::string named = "name%20eq%20%27a%20b%27%20and%20type%20eq%20%27png%27";
  const Dictionary more{{"type", "png"}};
  const std::string both = "type%20eq%20%27png%27%20and%20file_id%20eq%20%277%27";
  const Dictionary idAndMore{{"file_id", "7"}, {"type", "png"}};
  const struct {
    std::function<void()> call;
    std::string filter;
    Dictionary context;
  } cases[] = {
      {[&] { Storage::deleteWithUrl(kUrl, "7", {}, {}, ok, failed, {}); },
       "file_id%20eq%20%277%27",
       {{"file_id", "7"}}},
      {[&] { Storage::deleteWithUrl(kUrl, "7", more, {}, ok, failed, {}); }, both, idAndMore},
      {[&] { Storage::abortWithUrl(kUrl, "7", more, {}, ok, failed, {}); }, both, idAndMore},
      {[&] { Storage::deleteByCriteria(kUrl, criteria, {}, ok, failed, {}); }, named, criteria},
      {[&] { Storage::deleteWithUrl(kUrl, {}, criteria, {}, ok, failed, {}); }, named, criteria},
      {[&] { Storage::deleteByCriteria(kUrl, {}, {}, ok, failed, {}); }, "", {}},
  };
  for (const auto& item : cases) {
    item.call();
    EXPECT_EQ(awaitNext().value,
              Value(Dictionary{{"opstatus", 0}, {"requestContext", item.context}}));
    EXPECT_EQ(transport_->requests().back().url, kFiles + "?$filter=" + item.filter);
  }
}

TEST_F(DeleteTest, ListsAndUpdatesTellWhatWasAskedForAndFailuresWhatTheServiceSaid) {
  using Storage = BinaryFileStorageInterface;
  const auto ok = onSuccess();
  const auto failed = onFailure();
  const Dictionary change{{"file_id", "7"}, {"type", "png"}};
  const Dictionary update{{"headers", Dictionary{}}, {"metadata", change}};
  answerAll({R"({"opstatus":0})", R"({"opstatus":0})", R"({"opstatus":8009,"errmsg":"no"})"});
  Storage::updateWithUrl(kUrl, update, ok, failed, {});
  EXPECT_EQ(awaitNext().value, Value(Dictionary{{"opstatus", 0}, {"requestContext", change}}));
  EXPECT_EQ(transport_->requests().back().body, json(change));
  const std::string criteria = "type eq 'png'";
  Storage::getFilesWithUrl(kUrl, criteria, {}, ok, failed, {});
  EXPECT_EQ(awaitNext().value, Value(Dictionary{{"opstatus", 0}, {"requestContext", criteria}}));
  EXPECT_EQ(transport_->requests().back().url, kFiles + "?$filter=type%20eq%20%27png%27");
  Storage::getFilesWithUrl(kUrl, criteria, {}, ok, failed, {});
  const std::string text = "unexpected opstatus : 8009";
  const Dictionary answer{{"opstatus", 8009}, {"errmsg", "no"}};
  EXPECT_EQ(awaitNext().value,
            Value(Dictionary{
                {"code", "6003"},
                {"localizedDescription", text},
                {"domain", "BinaryNetworkUtils"},
                {"userInfo", Dictionary{{"userInfo", answer}, {"NSLocalizedDescription", text}}}}));
}

TEST_F(DeleteTest, InvalidArgumentsOfEachOperationFailWithoutARequest) {
  using Storage = BinaryFileStorageInterface;
  const test::RecordingLog log(LogLevel::kWarning);
  const auto ok = onSuccess();
  const auto failed = onFailure();
  Storage::deleteWithUrl("ftp://h", "7", {}, {}, ok, failed, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6018 ValidationsUtils");
  Storage::abortWithUrl(kUrl, "", {}, {}, ok, failed, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6026 DownloadError");
  Storage::deleteByCriteria(kUrl, Dictionary{}, {}, ok, failed, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6025 DeleteError");
  setTransferPolicy(TransferPolicy::kSafe);  // the compatible one lets the service decide
  Storage::deleteWithUrl(kUrl, {}, {}, {}, ok, failed, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6025 DeleteError");

  setTransferPolicy(TransferPolicy::kCompatible);
  Storage::getFilesWithUrl("ftp://h", {}, {}, ok, failed, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6018 ValidationsUtils");
  Storage::uploadBinaryWithUrl(kUrl, "", {}, ok, failed, {}, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6010 UploadError");
  Storage::downloadWithURL(kUrl, {}, ok, failed, {}, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6016 DownloadError");
  Storage::updateWithUrl(kUrl, {}, ok, failed, {});
  EXPECT_EQ(codeAndDomain(awaitNext()), "6022 UpdateError");
  EXPECT_EQ(transport_->requestCount(), 0U);
  EXPECT_EQ(log->count(LogLevel::kError,
                       "FileStorageManager : deleteBinary : Exception in fileId validation : "
                       "Unable to perform Delete - Invalid parameter value: file_id is null or "
                       "undefined"),
            1);
}

}  // namespace
}  // namespace varo::binary
