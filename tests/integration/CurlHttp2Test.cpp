#include "Platform/Foundation/Json.h"
#include "Platform/Network/NetworkTuning.h"
#include "Platform/Network/RequestAttempts.h"
#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TestCertificate.h"
#include "tests/support/TransportFixture.h"

namespace varo::test {
namespace {

using namespace platform;

/// The transport against a server of HTTP/2 that others have written, see tests/peers/http2.js.
class CurlHttp2Test : public TransportTest {
 protected:
  void SetUp() override {
    makeTestCertificate(directory_);
    process_.emplace(
        ChildProcess::Settings{.program = "node",
                               .arguments = {VARO_PEER_HTTP2_SCRIPT, temporary_ / "certificate.pem",
                                             temporary_ / "key.pem"},
                               .environment = {},
                               .directory = directory_,
                               .input = std::nullopt});
    std::string port;
    const auto isDecided = [&] {
      port = process_->output();
      return port.ends_with('\n') || process_->errors().starts_with("env: ");
    };
    ASSERT_TRUE(eventually(isDecided)) << process_->errors();
    if (port.empty()) GTEST_SKIP() << "node is missing: no request went over HTTP/2";
    base_ = "https://127.0.0.1:" + port.substr(0, port.size() - 1);
    configuration_.caFile = temporary_ / "certificate.pem";
    remake();
    observer_ = std::make_unique<CurlHttpTransport>(configuration_, pool_, cookies_);
  }
  void TearDown() override { observer_.reset(); }

  std::pair<std::shared_ptr<HttpTransfer>, std::future<Outcome>> start(const std::string& target) {
    return TransportTest::start({HttpMethod::kGet, base_ + target, {}, {}, {}});
  }
  /// On a connection of its own, so that it changes nothing.
  std::string observe(const std::string& target) {
    transport_.swap(observer_);
    const Outcome outcome = get(base_ + target);
    transport_.swap(observer_);
    return outcome.body().value_or(outcome.text());
  }
  /// Without the one that asks.
  std::int64_t sessions() { return state("sessions") - 1; }
  std::int64_t state(const char* entry) {
    const auto all = json::parse(observe("/state"));
    return all ? all->dictionaryValue()[entry].integerValue() : -1;
  }

  std::optional<ChildProcess> process_;
  std::string base_;
  std::unique_ptr<CurlHttpTransport> observer_;
};

TEST_F(CurlHttp2Test, DeliversABodyUnlessTheStatusAllowsNone) {
  const std::pair<int, bool> cases[] = {{200, true},  {201, true},  {206, true}, {404, true},
                                        {204, false}, {205, false}, {304, false}};
  for (const auto& [status, hasBody] : cases) {
    const Outcome outcome = get(base_ + "/empty/" + std::to_string(status));
    EXPECT_EQ(outcome.status(), status) << outcome.text();
    EXPECT_EQ(outcome.body(), hasBody ? std::optional<std::string>("") : std::nullopt) << status;
  }
}

TEST_F(CurlHttp2Test, CancelClosesTheConnectionUnlessOthersUseIt) {
  auto [transfer, outcome] = start("/slow");
  ASSERT_TRUE(eventually([&] { return state("sent") > 0; }));
  const std::int64_t before = state("sent");
  transfer->cancel();
  EXPECT_EQ(outcome.get().errorCode(), codeOf(HttpTransportError::kCancelled));
  ASSERT_TRUE(eventually([&] {
    observe("/more");
    return sessions() == 0;
  }));
  EXPECT_LE(state("sent") - before, static_cast<std::int64_t>(256 * tuning::kKiB));

  auto [other, lateOutcome] = start("/wait");
  const std::int64_t begun = state("sent");  // before, since it may send all that it may at once
  auto [second, secondOutcome] = start("/slow");
  ASSERT_TRUE(eventually([&] { return state("sent") > begun; }));
  second->cancel();
  EXPECT_EQ(secondOutcome.get().errorCode(), codeOf(HttpTransportError::kCancelled));
  EXPECT_EQ(sessions(), 1);
  observe("/go");
  EXPECT_EQ(lateOutcome.get().body(), "late");
}

TEST_F(CurlHttp2Test, ClosesTheConnectionOfAnAnswerThatIsTooLarge) {
  HttpRequest request{HttpMethod::kGet, base_ + "/slow", {}, {}, {}};
  request.limits.success = 1000;
  EXPECT_EQ(run(std::move(request)).errorCode(), codeOf(HttpTransportError::kResponseTooLarge));
  EXPECT_TRUE(eventually([&] { return sessions() == 0; }));
}

TEST_F(CurlHttp2Test, SendsAPostOnceWhereTheStreamIsRefused) {
  EXPECT_EQ(run({HttpMethod::kPost, base_ + "/refuse", {}, {}, {}}).errorCode(), 52);
  EXPECT_EQ(state("refused"), 1);
  EXPECT_EQ(get(base_ + "/refuse").body(), "again");
}

TEST_F(CurlHttp2Test, RepeatsARequestWhoseStreamBreaks) {
  const auto settings = std::make_shared<RequestSettings>();
  settings->retry = RetryPolicy{.attempts = 2, .firstWait = std::chrono::milliseconds(1)};
  const std::shared_ptr<HttpTransport> transport(std::shared_ptr<void>(), transport_.get());
  std::promise<Outcome> told;
  static_cast<void>(sendAttempts(transport, {HttpMethod::kGet, base_ + "/broken", {}, {}, {}},
                                 settings,
                                 [&](std::optional<HttpResponse> response, ErrorPtr error) {
                                   told.set_value({std::move(response), std::move(error)});
                                 }));
  const Outcome outcome = told.get_future().get();
  EXPECT_EQ(outcome.body(), "again") << outcome.text();
  EXPECT_EQ(state("broken"), 2);
}

}  // namespace
}  // namespace varo::test
