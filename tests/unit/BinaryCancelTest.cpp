// Ends of file operations that neither an answer nor its absence brings: cancellations at each
// moment, and exceptions.

#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"
#include "Platform/Foundation/Cancellation.h"
#include "tests/support/FileAdapterFixture.h"
#include "tests/support/ScriptedBackOff.h"

#include <stdexcept>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using Storage = BinaryFileStorageInterface;

class CancelTest : public FileAdapterFixture {
 protected:
  /// One operation: how it starts, its number of requests, and the domain of its errors.
  struct Operation {
    std::string name;
    std::function<void(const Dictionary& options)> start;
    int requests;
    std::string domain;
  };

  CancelTest() {
    writeFile(path_, "0123456789");
    transport_->setHandler([](const auto& request) { return serviceAnswer(request); });
  }

  std::vector<Operation> operations() {
    const auto ok = onSuccess();
    const auto failed = onFailure();
    const auto with = [](Dictionary params) {
      params.set("headers", Dictionary{});
      return params;
    };
    const Dictionary ofFile{{"metadata", Dictionary{{"file_id", "7"}}}};
    return {
        {"list", [=](auto& o) { Storage::getFilesWithUrl(kUrl, {}, {}, ok, failed, o); }, 1,
         "BinaryNetworkUtils"},
        {"update", [=](auto& o) { Storage::updateWithUrl(kUrl, with(ofFile), ok, failed, o); }, 1,
         "UpdateError"},
        {"download",
         [=](auto& o) { Storage::downloadWithURL(kUrl, with(ofFile), ok, failed, {}, o); }, 2,
         "DownloadError"},
        {"delete", [=](auto& o) { Storage::deleteWithUrl(kUrl, "7", {}, {}, ok, failed, o); }, 2,
         "DeleteError"},
        {"abort", [=](auto& o) { Storage::abortWithUrl(kUrl, "7", {}, {}, ok, failed, o); }, 2,
         "DeleteError"},
        {"upload",
         [=, this](auto& o) {
           Storage::uploadBinaryWithUrl(kUrl, "UploadInputTypeLocalFilePath", uploadParams(), ok,
                                        failed, {}, o);
         },
         5, "UploadError"},
    };
  }
  [[nodiscard]] Dictionary uploadParams() const {
    return {{"headers", Dictionary{}},
            {"metadata", Dictionary{{"file_name", "a"}}},
            {"file", Dictionary{{"filePath", path_}}},
            {"chunkSize", 4}};
  }

  static void expectCancelled(const Event& event, std::string_view domain) {
    EXPECT_EQ(event.block, "failure");
    Dictionary failure = event.value.dictionaryValue();
    if (const Value* nested = failure.find("error")) {  // a download's shape
      const Array* errors = nested->dictionaryValue()["Errors"].array();
      ASSERT_NE(errors, nullptr);
      ASSERT_EQ(errors->size(), 1U);
      const ErrorPtr error = (*errors)[0].error();
      failure = {{"code", std::to_string(error->code())},
                 {"domain", error->domain()},
                 {"localizedDescription", error->localizedDescription()}};
    }
    EXPECT_EQ(failure["code"], Value("6027"));
    EXPECT_EQ(failure["domain"], Value(domain));
    EXPECT_EQ(failure["localizedDescription"], Value("The operation was cancelled."));
  }
  /// Nothing but a name's directory is there, and no file without a name is open in it.
  void expectNothingStored() const {
    const std::string downloads = home_ / "Downloads";
    EXPECT_TRUE(!std::filesystem::exists(downloads) || std::filesystem::is_empty(downloads));
  }

  const std::string path_ = home_ / "source.bin";
};

TEST_F(CancelTest, EachOperationIsCancelledAtEachOfItsRequestsWithOneFailure) {
  for (const bool safe : {false, true}) {
    setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    for (const Operation& operation : operations()) {
      // From before the start (-1) to after the end.
      for (int held = -1; held <= operation.requests; ++held) {
        SCOPED_TRACE(operation.name + " " + std::to_string(held) + (safe ? ", safe" : ""));
        const auto cancellation = std::make_shared<Cancellation>();
        const std::size_t before = transport_->requestCount();
        if (held < 0) cancellation->cancel();
        transport_->hold();
        operation.start({{"cancellation", cancellation}, {"forceDownload", true}});
        release(std::max(held, 0));
        if (held >= 0 && held < operation.requests) {
          awaitHeld(1);
          cancellation->cancel();
        }
        const Event end = awaitNext();
        if (held < operation.requests) {
          expectCancelled(end, operation.domain);
          expectNothingStored();
        } else {
          EXPECT_EQ(end.block, "success");
          for (const char* own : {"settings", "cancellation", "options"}) {
            EXPECT_FALSE(end.value.dictionaryValue().contains(own)) << own;
          }
          cancellation->cancel();
        }
        awaitEndOfTasks();
        const auto sent = static_cast<int>(transport_->requestCount() - before);
        EXPECT_EQ(sent, std::min(held + 1, operation.requests));
        EXPECT_EQ(transport_->heldCount(), 0U);
        std::filesystem::remove_all(home_ / "Downloads");
      }
    }
  }
}

TEST_F(CancelTest, CancelEndsTheWaitBetweenTwoPolls) {
  GreatestRandom random;
  KeepingSleeper sleeper;
  const auto cancellation = std::make_shared<Cancellation>();
  transport_->answer(answerWith(200, R"({"httpStatusCode":202,"poll_api":"/jobs"})"));
  transport_->answer(answerWith(200, R"({"poll_status":"true"})"));
  auto task = std::make_shared<BinaryDeleteTask>(random, sleeper);
  const auto settings = OperationSettings::take({{"cancellation", cancellation}});
  task->setInputContext(
      {{"url", kUrl}, {"callback", callback()}, {"settings", OperationSettings::value(settings)}});
  task->start();
  task.reset();
  const auto wake = sleeper.first();
  cancellation->cancel();
  expectCancelled(awaitNext(), "DeleteError");
  awaitEndOfTasks();  // although the wake is still to come
  wake(TimerQueue::Reason::kDue);
  EXPECT_EQ(transport_->requestCount(), 2U);
}

TEST_F(CancelTest, SettingsAreThoseOfTheStart) {
  // The safe policy is what tells an answer without a body from silence.
  transport_->hold();
  transport_->answer(answerWith(204, std::nullopt));
  auto own = std::make_shared<OperationSettings>();
  own->policy = TransferPolicy::kSafe;
  Storage::getFilesWithUrl(kUrl, {}, {}, onSuccess(), onFailure(),
                           Dictionary{{"settings", OperationSettings::value(own)}});
  awaitHeld(1);
  setTransferPolicy(TransferPolicy::kSafe);
  transport_->answer(answerWith(204, std::nullopt));
  Storage::getFilesWithUrl(kUrl, {}, {}, onSuccess(), onFailure(), {});
  awaitHeld(2);
  setTransferPolicy(TransferPolicy::kCompatible);
  transport_->releaseAll();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(awaitNext().value.dictionaryValue()["code"], Value("6014"));
  }
}

TEST_F(CancelTest, EachRequestGoesThroughTheOperationsTransportWithLimits) {
  constexpr std::uint64_t kMiB = 1'048'576;
  constexpr std::uint64_t kNone = ResponseLimits::kUnlimited;
  const std::map<std::string, std::vector<std::uint64_t>> expected{
      {"list", {256 * kMiB}},   {"update", {kMiB}},      {"download", {256 * kMiB, kNone}},
      {"delete", {kMiB, kMiB}}, {"abort", {kMiB, kMiB}}, {"upload", {kMiB, kMiB, kMiB, kMiB, kMiB}},
  };
  for (const Operation& operation : operations()) {
    SCOPED_TRACE(operation.name);
    const auto transport = std::make_shared<FakeHttpTransport>();
    transport->setHandler([](const auto& request) { return serviceAnswer(request); });
    auto own = std::make_shared<OperationSettings>();
    own->transport = transport;
    own->connectTimeout = std::chrono::milliseconds(1);
    own->stallTimeout = std::chrono::milliseconds(2);
    operation.start({{"settings", OperationSettings::value(own)}});
    EXPECT_EQ(awaitNext().block, "success");
    awaitEndOfTasks();
    std::vector<std::uint64_t> limits;
    for (const RecordedRequest& request : transport->requests()) {
      limits.push_back(request.limits.success);
      EXPECT_EQ(request.limits.error, 65'536U);
      EXPECT_EQ(request.connectTimeout, own->connectTimeout);
      EXPECT_EQ(request.stallTimeout, own->stallTimeout);
    }
    EXPECT_EQ(limits, expected.at(operation.name));
  }
}

/// Throws where the answer has come.
class ThrowingTask final : public BinaryBaseTask {
 public:
  void execute() override {
    unpackFileRequest(takeInput());
    BinaryNetworkUtils::GET(*url_, {}, headers_, requestOptions(1), {},
                            completion(&ThrowingTask::process));
  }

 private:
  void process(const Dictionary& /*response*/, const NetworkErrorPtr& /*error*/) {
    throw std::runtime_error("no memory");
  }
};

TEST_F(CancelTest, CompletionThatThrowsEndsTheOperationWithOneFailure) {
  const auto task = std::make_shared<ThrowingTask>();
  task->setInputContext({{"url", kUrl}, {"callback", callback()}});
  task->subscribeForTaskUpdates(FileStorageManager::sharedInstance().shared_from_this());
  task->start();
  const Dictionary failure = awaitNext().value.dictionaryValue();
  EXPECT_EQ(failure["userInfo"].dictionaryValue()["message"], Value("no memory"));
}

TEST_F(CancelTest, DownloadIsTriedAgainFromInsideEachFailureBlock) {
  const Dictionary params{{"headers", Dictionary{}},
                          {"metadata", Dictionary{{"file_id", "again"}}}};
  for (const bool safe : {false, true}) {
    setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    transport_->answer(failWith(28, "timed out"));
    std::atomic<bool> isFirst{true};
    Storage::downloadWithURL(kUrl, params, onSuccess(),
                             [&, note = onFailure()](const Value& failure) {
                               if (isFirst.exchange(false)) {
                                 Storage::downloadWithURL(kUrl, params, onSuccess(), onFailure(),
                                                          {}, Dictionary{{"forceDownload", true}});
                               }
                               note(failure);
                             },
                             {}, {});
    // Existing callers hear of a failed look-up in two shapes.
    std::map<std::string, int> ends;
    for (int i = 0; i < (safe ? 2 : 3); ++i) ++ends[awaitNext().block];
    EXPECT_EQ(ends["success"], 1);
    awaitEndOfTasks();
  }
}

/// A block of the application that cannot be copied.
struct Uncopyable {
  explicit Uncopyable(BinaryBlock block) : call(std::move(block)) {}
  Uncopyable(Uncopyable&&) = default;
  Uncopyable(const Uncopyable& /*other*/) { throw std::runtime_error("no copies"); }
  void operator()(const Value& value) const { call(value); }

  BinaryBlock call;
};

TEST_F(CancelTest, ExceptionInsideACallReachesItsFailureBlockBeforeItReturns) {
  Storage::downloadWithURL(kUrl, {}, onSuccess(), Uncopyable(onFailure()), {}, {});
  ASSERT_EQ(events().size(), 1U);
  const auto error = awaitNext().value.dictionaryValue()["error"].error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->localizedDescription(), "no copies");
}

}  // namespace
}  // namespace varo::binary
