#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/Await.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/Files.h"
#include "tests/support/TransportFixture.h"

#include <fmt/format.h>

#include <atomic>
#include <iterator>
#include <stdexcept>

namespace varo::test {
namespace {

using namespace platform;

/// What the other end says to a request for "/answer/N".
const struct {
  int status;
  std::optional<std::string> body;
} kAnswers[] = {
    {200, "hello"},       {200, ""}, {206, "part"}, {204, std::nullopt}, {304, std::nullopt},
    {404, "no such one"}, {503, ""}};
const std::vector<HttpHeader> kHeaders = {{"X-A", "one"}, {"x-b", "two"}, {"X-A", "three"}};

std::size_t answerAt(const std::string& target) {
  return std::stoul(target.substr(std::string("/answer/").size()));
}

/// A transport, and somebody at its other end: "/answer/N" is answered, "/broken" gets no answer,
/// "/held" none either until it is given up, and "/part" begins one and goes no further.
class Peer {
 public:
  virtual ~Peer() = default;
  [[nodiscard]] virtual HttpTransport& transport() = 0;
  virtual void dropTransport() = 0;
  [[nodiscard]] virtual std::string url(const std::string& target) const = 0;
  /// Requests that have come there.
  [[nodiscard]] virtual std::size_t arrived() const = 0;
};

class CurlPeer final : public Peer {
 public:
  CurlPeer() {
    NetworkConfiguration configuration;
    configuration.maxActiveTransfers = kActive;
    transport_ =
        std::make_unique<CurlHttpTransport>(configuration, Runtime::shared().pool(), cookies_);
  }
  HttpTransport& transport() override { return *transport_; }
  void dropTransport() override { transport_.reset(); }
  std::string url(const std::string& target) const override { return server_.url(target); }
  std::size_t arrived() const override { return server_.requests().size(); }

 private:
  /// Fewer than a test has under way: the others wait in the transport's own queue.
  static constexpr std::size_t kActive = 3;

  static WireReply say(const WireRequest& request) {
    const std::string target = request.target();
    if (target == "/broken") return WireReply().close();
    if (target == "/held") return WireReply().hold();
    if (target == "/part") {
      return WireReply().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc").hold();
    }
    const auto& [status, body] = kAnswers[answerAt(target)];
    std::string headers;
    for (const auto& [name, value] : kHeaders) headers += fmt::format("{}: {}\r\n", name, value);
    if (body && request.head.starts_with("HEAD ")) {
      return WireReply().send(fmt::format("HTTP/1.1 {} Head\r\nContent-Length: {}\r\n{}\r\n",
                                          status, body->size(), headers));
    }
    if (body) return reply(status, *body, headers);
    return WireReply().send(fmt::format("HTTP/1.1 {} Empty\r\n{}\r\n", status, headers));
  }

  ScriptedServer server_{&CurlPeer::say};
  HttpCookieStore cookies_;
  std::unique_ptr<CurlHttpTransport> transport_;
};

class ScriptedPeer final : public Peer {
 public:
  ScriptedPeer() {
    transport_->setHandler([](const RecordedRequest& request) {
      if (request.url == "/broken") return failWith(1, "broken");
      if (request.url == "/held" || request.url == "/part")
        return holdBack(answerWith(200, "late"));
      const auto& [status, body] = kAnswers[answerAt(request.url)];
      return answerWith(status, body, kHeaders);
    });
  }
  HttpTransport& transport() override { return *transport_; }
  void dropTransport() override { transport_.reset(); }
  std::string url(const std::string& target) const override { return target; }
  std::size_t arrived() const override { return transport_->requestCount(); }

 private:
  std::shared_ptr<FakeHttpTransport> transport_ = std::make_shared<FakeHttpTransport>();
};

template <typename Made>
std::unique_ptr<Peer> make() {
  return std::make_unique<Made>();
}

/// What HttpTransport.h says of every transport.
class HttpTransportContractTest : public testing::TestWithParam<std::unique_ptr<Peer> (*)()> {
 protected:
  void TearDown() override {
    peer_.reset();
    EXPECT_EQ(ends_, started_) << "each request ends once";
  }

  [[nodiscard]] HttpRequest request(const std::string& target) const {
    return {HttpMethod::kGet, peer_->url(target), {}, {}, {}};
  }
  std::shared_ptr<HttpTransfer> send(HttpRequest request, std::function<void(Outcome)> then) {
    ++started_;
    return peer_->transport().send(std::move(request), [this, then = std::move(then)](
                                                           auto response, ErrorPtr error) {
      ++ends_;
      EXPECT_NE(response.has_value(), error != nullptr);
      then({std::move(response), std::move(error), Runtime::shared().pool().runsInThisThread()});
    });
  }
  std::pair<std::shared_ptr<HttpTransfer>, std::future<Outcome>> start(HttpRequest request) {
    const auto promise = std::make_shared<std::promise<Outcome>>();
    auto end = promise->get_future();
    auto transfer = send(std::move(request),
                         [promise](Outcome outcome) { promise->set_value(std::move(outcome)); });
    EXPECT_NE(transfer, nullptr);
    return {std::move(transfer), std::move(end)};
  }
  Outcome run(HttpRequest request) { return start(std::move(request)).second.get(); }
  Outcome get(const std::string& target) { return run(request(target)); }

  std::unique_ptr<Peer> peer_ = GetParam()();
  std::atomic<int> started_{0};
  std::atomic<int> ends_{0};
};

TEST_P(HttpTransportContractTest, AnswersAreResponsesWhateverTheirStatus) {
  for (const HttpMethod method : {HttpMethod::kGet, HttpMethod::kHead}) {
    for (std::size_t i = 0; i < std::size(kAnswers); ++i) {
      SCOPED_TRACE(fmt::format("{} of method {}", i, static_cast<int>(method)));
      HttpRequest asked = request("/answer/" + std::to_string(i));
      asked.method = method;
      const Outcome outcome = run(std::move(asked));
      ASSERT_TRUE(outcome.response) << outcome.text();
      EXPECT_EQ(outcome.status(), kAnswers[i].status);
      EXPECT_EQ(outcome.body(), method == HttpMethod::kHead ? std::nullopt : kAnswers[i].body);
      EXPECT_TRUE(outcome.onPool);
      std::string named;
      for (const auto& [name, value] : outcome.response->headers) {
        if (name != "Content-Length") named += name + "=" + value + ";";
      }
      EXPECT_EQ(named, "X-A=one;x-b=two;X-A=three;");
    }
  }
}

TEST_P(HttpTransportContractTest, CancelEndsATransferOnceWhateverItsState) {
  auto [done, doneOutcome] = start(request("/answer/0"));
  EXPECT_EQ(doneOutcome.get().status(), 200);
  done->cancel();

  // The last two wait behind the others, where the transport has a queue.
  std::vector<std::shared_ptr<HttpTransfer>> transfers;
  std::vector<std::future<Outcome>> outcomes;
  for (const char* target : {"/held", "/part", "/held", "/held", "/held"}) {
    auto [transfer, outcome] = start(request(target));
    transfers.push_back(std::move(transfer));
    outcomes.push_back(std::move(outcome));
  }
  ASSERT_TRUE(eventually([&] { return peer_->arrived() >= 4; }));
  for (const std::size_t next : {4U, 1U, 0U, 3U, 2U}) {
    transfers[next]->cancel();
    transfers[next]->cancel();
    const Outcome outcome = outcomes[next].get();
    EXPECT_EQ(outcome.errorCode(), codeOf(HttpTransportError::kCancelled)) << outcome.text();
    EXPECT_TRUE(outcome.onPool);
  }
  EXPECT_EQ(get("/answer/0").status(), 200) << "the others are as before";
  peer_->dropTransport();
  transfers.front()->cancel();
}

TEST_P(HttpTransportContractTest, ShutdownEndsEveryTransferAndRefusesLaterOnes) {
  const std::int64_t kShutDown = codeOf(HttpTransportError::kShutDown);
  std::vector<std::future<Outcome>> outcomes;
  for (int i = 0; i < 30; ++i) outcomes.push_back(start(request("/held")).second);
  ASSERT_TRUE(eventually([&] { return peer_->arrived() >= 3; }));
  std::promise<Outcome> fromCompletion;
  send(request("/broken"), [&](Outcome outcome) {
    peer_->transport().shutdown();
    fromCompletion.set_value(std::move(outcome));
  });
  peer_->transport().shutdown();
  for (auto& outcome : outcomes) EXPECT_EQ(outcome.get().errorCode(), kShutDown);
  EXPECT_NE(fromCompletion.get_future().get().error, nullptr);
  const Outcome late = get("/answer/0");
  EXPECT_EQ(late.errorCode(), kShutDown);
  EXPECT_TRUE(late.onPool);
}

TEST_P(HttpTransportContractTest, CompletionsMayThrowAndCancelTheirOwnTransfer) {
  std::promise<std::shared_ptr<HttpTransfer>> own;
  std::promise<void> thrown;
  own.set_value(send(request("/answer/0"), [&](const Outcome&) {
    own.get_future().get()->cancel();
    thrown.set_value();
    throw std::runtime_error("expected on standard error");
  }));
  thrown.get_future().get();
  EXPECT_EQ(get("/answer/2").body(), "part");
}

TEST_P(HttpTransportContractTest, HoldsNothingBeyondTheEndAndAnswersOutliveTheTransport) {
  const TemporaryDirectory directory;
  writeFile(directory / "file", "bytes");
  for (const char* target : {"/answer/0", "/held"}) {
    SCOPED_TRACE(target);
    auto file = File::openForReading(directory / "file").value();
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<const File> fileGone = file;
    const std::weak_ptr<int> heldGone = held;
    HttpRequest put = request(target);
    put.method = HttpMethod::kPut;
    put.body = {Data::fromFileRegion(std::move(file), 0, 5)};
    const auto transfer = send(std::move(put), [held = std::move(held)](const Outcome&) {});
    transfer->cancel();
    EXPECT_TRUE(eventually([&] { return heldGone.expired() && fileGone.expired(); }));
  }
  const Outcome outcome = get("/answer/0");
  peer_->dropTransport();
  EXPECT_EQ(outcome.body(), "hello");
}

INSTANTIATE_TEST_SUITE_P(Transports, HttpTransportContractTest,
                         testing::Values(&make<CurlPeer>, &make<ScriptedPeer>),
                         [](const auto& tried) { return tried.index == 0 ? "Curl" : "Scripted"; });

}  // namespace
}  // namespace varo::test
