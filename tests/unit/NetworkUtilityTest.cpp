#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/HttpTransportError.h"
#include "tests/support/CollectingReceiver.h"
#include "tests/support/OfflineFixture.h"

#include <atomic>
#include <future>

namespace varo::test {
namespace {

using namespace varo::platform;  // NOLINT(google-build-using-namespace)

struct Report {
  std::optional<Data> data;
  Dictionary info;
  NetworkErrorPtr error;
  bool onPool = false;
};

class NetworkUtilityTest : public OfflineFixture {
 protected:
  NetworkCallback callback() {
    // A second call would throw, which `calls_` shows.
    return [this](const auto& data, const Dictionary& info, const NetworkErrorPtr& error) {
      ++calls_;
      report_.set_value({data, info, error, Runtime::shared().pool().runsInThisThread()});
    };
  }
  Report wait() { return report_.get_future().get(); }
  VRONetworkUtility::TransferPtr get(const Dictionary& options = {}) {
    return VRONetworkUtility::GET("http://h/p", {}, {}, options, callback());
  }
  /// Options of a request that `cancellation` ends.
  Dictionary cancellable() const {
    auto settings = std::make_shared<RequestSettings>();
    settings->cancellation = cancellation_.token();
    return {{kRequestSettings, settings}};
  }

  std::promise<Report> report_;
  std::atomic<int> calls_{0};
  Cancellation cancellation_;
};

TEST_F(NetworkUtilityTest, ReportsStatusAndMergedHeadersWithTheBody) {
  transport_->answer(
      answerWith(404, "gone", {{"ETag", "1"}, {"Via", "a"}, {"via", "b"}, {"Bad", "\xff"}}));
  VRONetworkUtility::PUT("http://h/p", {{"q", "x y"}}, {{"N", 1}}, RequestType::kRaw, "body",
                         {{kSpoolDirectory, "/store"}}, callback());
  const Report report = wait();
  EXPECT_TRUE(report.onPool);
  EXPECT_EQ(report.error, nullptr);
  EXPECT_EQ(report.data, Data::fromBytes("gone"));
  const auto response = report.info[kHttpResponse].objectAs<HttpResponseInfo>();
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(response->statusCode(), 404);
  EXPECT_EQ(response->allHeaderFields(),
            (Dictionary{{"ETag", "1"}, {"Via", "a, b"}, {"Bad", "\xEF\xBF\xBD"}}));

  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].method, HttpMethod::kPut);
  EXPECT_EQ(requests[0].url, "http://h/p?q=x%20y");
  EXPECT_EQ(requests[0].header("N"), "1");
  EXPECT_EQ(requests[0].body, "body");
  EXPECT_EQ(requests[0].spoolDirectory, "/store");
}

TEST_F(NetworkUtilityTest, HandsBodiesOfSuccessesOnWhereTheTransportKnowsNoReceivers) {
  struct Case {
    int status;
    std::optional<std::string> body;
    std::string begun, received;
    bool refuses = false;
  };
  const std::vector<Case> cases = {{200, "body", "200 4;", "body"},
                                   {206, "", "206 0;", ""},
                                   {204, std::nullopt, "", ""},
                                   {404, "body", "", ""},
                                   {200, "body", "200 4;", "", true}};
  for (const Case& wanted : cases) {
    SCOPED_TRACE(wanted.status);
    report_ = {};
    const auto receiver = std::make_shared<CollectingReceiver>();
    receiver->refuses = wanted.refuses;
    transport_->answer(answerWith(wanted.status, wanted.body));
    VRONetworkUtility::GET("http://h/p", {}, {}, {{kBodyReceiver, receiver}}, callback());
    const Report report = wait();
    EXPECT_EQ(receiver->begun, wanted.begun);
    EXPECT_EQ(receiver->bytes, wanted.received);
    ASSERT_EQ(report.error != nullptr, wanted.refuses);
    const bool isLeft = wanted.status == 404;
    EXPECT_EQ(isLeft ? report.data->readAll(9).value() : "body", "body");
    EXPECT_EQ(wanted.refuses ? report.error->code() : 1008, 1008);
  }
}

TEST_F(NetworkUtilityTest, ReportsWhatCannotBeEncodedOnThePoolAndSendsNothing) {
  VRONetworkUtility::POST("http://h/", {}, {}, RequestType::kJson, Dictionary{{"a", Data()}}, {},
                          callback());
  const Report report = wait();
  EXPECT_NE(report.error, nullptr);
  EXPECT_TRUE(report.onPool);
  EXPECT_EQ(transport_->requestCount(), 0U);
}

TEST_F(NetworkUtilityTest, EndsOnceWhateverTheTransportDoes) {
  constexpr auto kNoAnswer = static_cast<std::int64_t>(HttpTransportError::kNoAnswer);
  ScriptedAnswer both = failWith(7, "both");
  both.response = HttpResponse();
  struct {
    ScriptedAnswer answer;
    std::int64_t code;
    std::string text;
  } const cases[] = {
      {endWithNothing(), kNoAnswer, "neither a response nor an error"},
      {dropCompletion(), kNoAnswer, "dropped the request"},
      {throwFromSend(), kNoAnswer, "The transport failed: scripted"},
      {both, 7, "both"},
      {endTwice(failWith(8, "twice")), 8, "twice"},
      {endTwice(answerWith(200, "x")), 0, ""},
  };
  for (const auto& item : cases) {
    for (const bool holds : {false, true}) {
      SCOPED_TRACE(item.text);
      report_ = {};
      calls_ = 0;
      transport_->answer(item.answer);
      if (holds) transport_->hold();
      const auto transfer = get();
      transport_->releaseAll();
      const Report report = wait();
      EXPECT_EQ(report.error == nullptr ? 0 : report.error->code(), item.code);
      if (report.error != nullptr) {
        EXPECT_THAT(report.error->localizedDescription(), testing::HasSubstr(item.text));
        EXPECT_FALSE(report.data.has_value());
      }
      transfer->cancel();
      EXPECT_EQ(calls_, 1);
    }
  }
  EXPECT_TRUE(transport_->cancelled().empty());
}

/// Cancels from outside through the transfer, or with everything else through the operation's
/// token.
class NetworkCancelTest : public NetworkUtilityTest, public testing::WithParamInterface<bool> {
 protected:
  void cancel() { GetParam() ? cancellation_.cancel() : transfer_->cancel(); }
  void expectCancelled() {
    const Report report = wait();
    ASSERT_NE(report.error, nullptr);
    EXPECT_EQ(report.error->code(), static_cast<std::int64_t>(HttpTransportError::kCancelled));
    EXPECT_TRUE(report.onPool);
  }
  VRONetworkUtility::TransferPtr transfer_;
};
INSTANTIATE_TEST_SUITE_P(, NetworkCancelTest, testing::Bool(),
                         [](const auto& each) { return each.param ? "ByToken" : "ByTransfer"; });

TEST_P(NetworkCancelTest, EndsARequestInFlightOnce) {
  transport_->hold();
  transport_->answer(answerWith(200, "late"));
  transfer_ = get(cancellable());
  cancel();
  cancel();
  expectCancelled();
  EXPECT_EQ(transport_->cancelled(), std::vector<std::string>{"http://h/p"});
  EXPECT_FALSE(transport_->release());
  EXPECT_EQ(calls_, 1);
}

TEST_P(NetworkCancelTest, DoesNothingAfterTheEndAndFromInsideTheCompletion) {
  transport_->hold();
  transport_->answer(answerWith(200, "x"));
  transfer_ = VRONetworkUtility::GET("http://h/p", {}, {}, cancellable(),
                                     [this](const auto& data, const auto&, const auto& error) {
                                       cancel();
                                       EXPECT_EQ(data, Data::fromBytes("x"));
                                       EXPECT_EQ(error, nullptr);
                                       ++calls_;
                                     });
  transport_->release();
  cancel();
  EXPECT_EQ(calls_, 1);
  EXPECT_TRUE(transport_->cancelled().empty());
}

TEST_F(NetworkUtilityTest, CancelsWhatIsStoppedWhileItIsSent) {
  transport_->hold();
  transport_->setHandler([this](const RecordedRequest&) {
    cancellation_.cancel();
    return answerWith(200, "x");
  });
  get(cancellable());
  EXPECT_EQ(wait().error->code(), static_cast<std::int64_t>(HttpTransportError::kCancelled));
  EXPECT_EQ(transport_->cancelled().size(), 1U);
}

/// A host's transport that does with a request what `onSend` says.
struct OwnTransport final : HttpTransport {
  using OnSend = std::function<std::shared_ptr<HttpTransfer>(HttpCompletion)>;
  explicit OwnTransport(OnSend function) : onSend(std::move(function)) {}
  std::shared_ptr<HttpTransfer> send(HttpRequest /*request*/, HttpCompletion completion) override {
    return onSend(std::move(completion));
  }
  void shutdown() override {}
  const OnSend onSend;
};

TEST_F(NetworkUtilityTest, CallsBackOnThePoolWhereTheTransportCompletesFromInsideSend) {
  VRONetworkUtility::setTransport(std::make_shared<OwnTransport>([](const auto& completion) {
    completion(HttpResponse{200, {}, Data::fromBytes("hasty")}, nullptr);
    return nullptr;
  }));
  get();
  const Report report = wait();
  EXPECT_TRUE(report.onPool);
  EXPECT_EQ(report.data, Data::fromBytes("hasty"));
}

class ThrowingTransfer final : public HttpTransfer {
 public:
  void cancel() override { throw 7; }  // NOLINT(hicpp-exception-baseclass)
};

TEST_P(NetworkCancelTest, EndsARequestWhoseTransportCannotBeCancelled) {
  for (const auto& broken :
       {std::shared_ptr<HttpTransfer>(), std::shared_ptr<HttpTransfer>(new ThrowingTransfer)}) {
    if (GetParam() && broken != nullptr) continue;  // the token was used up by the first
    report_ = {};
    calls_ = 0;
    HttpCompletion kept;
    VRONetworkUtility::setTransport(
        std::make_shared<OwnTransport>([&kept, &transfer = broken](HttpCompletion completion) {
          kept = std::move(completion);
          return transfer;
        }));
    transfer_ = get(cancellable());
    cancel();
    expectCancelled();
    kept(HttpResponse(), nullptr);
    EXPECT_EQ(calls_, 1);
  }
}

}  // namespace
}  // namespace varo::test
