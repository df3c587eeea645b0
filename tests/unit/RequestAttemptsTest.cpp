#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/RequestAttempts.h"
#include "Platform/Network/TransportFailure.h"
#include "tests/support/Await.h"
#include "tests/support/CollectingReceiver.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/ScriptedBackOff.h"
#include "tests/support/SteppingClock.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace varo::platform {
namespace {

using namespace std::chrono_literals;
using test::answerWith;
using test::ScriptedAnswer;
using testing::ElementsAre;
using testing::IsEmpty;

/// An end as a transport tells it.
struct Told {
  std::optional<HttpResponse> response;
  ErrorPtr error;

  [[nodiscard]] std::string text() const {
    return response ? std::to_string(response->status)
                    : error->userInfo()[kTransportFailureKey].textValue();
  }
};

ScriptedAnswer failure(TransportFailure what, bool isSent = true) {
  Dictionary info{{std::string(kTransportFailureKey), nameOf(what)}};
  if (!isSent) info.set(std::string(kErrorNotSentKey), true);
  return {{}, std::make_shared<Error>(std::string(kHttpTransportErrorDomain), 1, info)};
}

ScriptedAnswer status(int code, std::vector<HttpHeader> headers = {}) {
  return answerWith(code, "", std::move(headers));
}

/// Shows a number that grows with each renewal.
class CountingAuthorizer final : public RequestAuthorizer {
 public:
  Result<void> authorize(HttpRequest& request) override {
    if (onAuthorize) onAuthorize();
    if (refuses) return Error::make("Test", 1, "there are no credentials");
    request.headers.push_back({"Token", std::to_string(current)});
    return {};
  }
  bool renew(const std::vector<HttpHeader>& shown, const HttpResponse& refusal) override {
    if (onRenew) onRenew();
    if (refusal.status != 401) return false;
    EXPECT_EQ(shown.back().value, std::to_string(current)) << "what was refused";
    ++current;
    return true;
  }
  int current = 1;
  bool refuses = false;
  std::function<void()> onAuthorize;
  std::function<void()> onRenew;
};

class RequestAttemptsTest : public testing::Test {
 protected:
  RequestAttemptsTest() { settings_->retry = RetryPolicy{.attempts = 4}; }

  static HttpRequest request(HttpMethod method = HttpMethod::kGet) {
    HttpRequest made;
    made.method = method;
    made.url = "http://a/b";
    return made;
  }
  std::future<Told> send(HttpRequest made) { return send(std::move(made), sleeper_); }
  std::future<Told> send(HttpRequest made, Sleeper& sleeper) {
    auto told = std::make_shared<std::promise<Told>>();
    transfer_ = sendAttempts(transport_, std::move(made), settings_,
                             [told](std::optional<HttpResponse> response, ErrorPtr error) {
                               told->set_value({std::move(response), std::move(error)});
                             },
                             {clock_, sleeper, random_});
    return told->get_future();
  }

  const std::shared_ptr<test::FakeHttpTransport> transport_ =
      std::make_shared<test::FakeHttpTransport>();
  const std::shared_ptr<RequestSettings> settings_ = std::make_shared<RequestSettings>();
  const test::SteppingClock clock_{784111777};  // Sun, 06 Nov 1994 08:49:37 GMT
  test::RecordingSleeper sleeper_;
  test::GreatestRandom random_;
  std::shared_ptr<HttpTransfer> transfer_;
};

TEST_F(RequestAttemptsTest, RepeatsWhatDoesNoHarm) {
  struct Case {
    HttpMethod method;
    std::optional<Repeat> repeat;
    ScriptedAnswer first;
    bool isRepeated;
  };
  using enum HttpMethod;
  const std::vector<Case> cases = {
      {kGet, {}, status(500), true},
      {kHead, {}, status(502), true},
      {kPut, {}, status(504), true},
      {kGet, {}, status(404), false},
      {kGet, {}, status(501), false},
      {kGet, {}, failure(TransportFailure::kCutShort), true},
      {kPut, {}, failure(TransportFailure::kNoAnswer), true},
      {kGet, {}, failure(TransportFailure::kTimedOut), true},
      {kGet, {}, failure(TransportFailure::kCertificateNotTrusted), false},
      {kGet, {}, failure(TransportFailure::kTooLarge), false},
      {kPost, {}, status(500), false},
      {kPost, {}, status(408), true},
      {kPost, {}, status(429), true},
      {kPost, {}, status(503), true},
      {kPost, {}, failure(TransportFailure::kNoAnswer), false},
      {kPost, {}, failure(TransportFailure::kTimedOut), false},
      {kPost, {}, failure(TransportFailure::kTimedOut, false), true},
      {kPost, {}, failure(TransportFailure::kNoConnection, false), true},
      {kDelete, {}, failure(TransportFailure::kCutShort), false},
      {kPost, Repeat::kAlways, failure(TransportFailure::kCutShort), true},
      {kPut, Repeat::kUnlessReceived, status(500), false},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    const auto sent = transport_->requestCount();
    transport_->answer(cases[i].first);
    if (cases[i].isRepeated) transport_->answer(status(200));
    HttpRequest made = request(cases[i].method);
    made.repeat = cases[i].repeat;
    made.body = {Data::fromBytes("same")};
    const Told told = send(std::move(made)).get();
    EXPECT_EQ(told.response && told.response->status == 200, cases[i].isRepeated);
    EXPECT_EQ(transport_->requestCount() - sent, cases[i].isRepeated ? 2U : 1U);
    EXPECT_EQ(transport_->requests().back().body, "same");
  }
}

TEST_F(RequestAttemptsTest, WaitsLongerEachTimeUnlessTheServerSaysHowLong) {
  settings_->retry = RetryPolicy{.attempts = 6, .firstWait = 400ms, .longestWait = 1s};
  std::vector<std::string> heard;
  settings_->onRetry = [&](int attempt, std::chrono::milliseconds wait) {
    heard.push_back(std::to_string(attempt) + ":" + std::to_string(wait.count()));
  };
  for (int i = 0; i < 3; ++i) transport_->answer(status(503));
  transport_->answer(status(429, {{"retry-after", " 120 "}}));
  transport_->answer(status(503, {{"Retry-After", "Sun, 06 Nov 1994 08:49:47 GMT"}}));
  transport_->answer(status(503));
  EXPECT_EQ(send(request()).get().text(), "503") << "the sixth was the last";
  EXPECT_THAT(random_.bounds, ElementsAre(400, 800, 1000));
  EXPECT_THAT(sleeper_.delays, ElementsAre(400, 800, 1000, 120'000, 10'000));
  EXPECT_THAT(heard, ElementsAre("2:400", "3:800", "4:1000", "5:120000", "6:10000"));

  for (const char* tooLong :
       {"301", "99999999999", "Sun, 06 Nov 1994 08:59:47 GMT", "Fri, 31 Dec 9999 23:59:59 GMT"}) {
    transport_->answer(status(503, {{"Retry-After", tooLong}}));
    EXPECT_EQ(send(request()).get().text(), "503") << tooLong;
  }
  EXPECT_EQ(sleeper_.delays.size(), 5U) << "none of them was waited for";
  transport_->answer(status(503, {{"Retry-After", "Mon, 01 Jan 0001 00:00:00 GMT"}}));
  transport_->answer(status(200));
  EXPECT_EQ(send(request()).get().text(), "200");
  EXPECT_EQ(sleeper_.delays.back(), 0) << "it is over";

  constexpr auto kMost = std::chrono::milliseconds::max();
  EXPECT_EQ(
      RetryPolicy({.firstWait = kMost / 2 + 1ms, .longestWait = kMost}).waitBefore(9, random_),
      kMost);
  EXPECT_EQ(RetryPolicy({.firstWait = -1ms}).waitBefore(99, random_), 0ms);
}

TEST_F(RequestAttemptsTest, TheBudgetIsThatOfAllRequests) {
  settings_->retryBudget = std::make_shared<RetryBudget>(1200ms);
  transport_->setHandler([](const auto&) { return status(503); });
  EXPECT_EQ(send(request()).get().text(), "503");
  EXPECT_EQ(send(request()).get().text(), "503");
  EXPECT_THAT(sleeper_.delays, ElementsAre(500, 500)) << "1,000 more were not left, then 200 were";
}

TEST_F(RequestAttemptsTest, ACancelEndsTheWaitAtOnceAndALateTimerChangesNothing) {
  for (const bool byToken : {false, true}) {
    SCOPED_TRACE(byToken);
    const auto sent = transport_->requestCount();
    std::stop_source stop;
    settings_->cancellation = stop.get_token();
    test::KeepingSleeper sleeper;
    transport_->answer(status(503));
    auto told = send(request(), sleeper);
    const auto wake = sleeper.first();
    byToken ? static_cast<void>(stop.request_stop()) : transfer_->cancel();
    EXPECT_EQ(told.get().text(), "cancelled");
    wake(TimerQueue::Reason::kDue);
    EXPECT_EQ(transport_->requestCount(), sent + 1);
  }
}

TEST_F(RequestAttemptsTest, ACancelBetweenTwoAttemptsSendsNoMore) {
  const auto authorizer = std::make_shared<CountingAuthorizer>();
  settings_->authorizer = authorizer;
  std::stop_source stop;
  settings_->cancellation = stop.get_token();
  // Before the wait, and when the next attempt is about to be sent.
  settings_->onRetry = [&](int, std::chrono::milliseconds) { stop.request_stop(); };
  transport_->answer(status(503));
  EXPECT_EQ(send(request()).get().text(), "cancelled");
  EXPECT_THAT(sleeper_.delays, IsEmpty());

  settings_->onRetry = nullptr;
  std::stop_source later;
  settings_->cancellation = later.get_token();
  authorizer->onAuthorize = [&, calls = 0]() mutable {
    if (++calls == 2) later.request_stop();
  };
  transport_->answer(status(503));
  EXPECT_EQ(send(request()).get().text(), "cancelled");
  EXPECT_EQ(transport_->requestCount(), 2U);

  transport_->hold();
  transport_->answer(status(200));
  std::stop_source atLast;
  settings_->cancellation = atLast.get_token();
  authorizer->onAuthorize = nullptr;
  auto told = send(request());
  atLast.request_stop();
  EXPECT_EQ(told.get().text(), "cancelled") << "the transfer itself";
}

TEST_F(RequestAttemptsTest, ACancelThatMeetsAResponseIsTheEndOfWhatWouldBeRepeated) {
  const auto authorizer = std::make_shared<CountingAuthorizer>();
  settings_->authorizer = authorizer;
  for (const int code : {503, 404}) {
    Cancellation cancellation;
    settings_->cancellation = cancellation.token();
    authorizer->onRenew = [&] { cancellation.cancel(); };  // the response is there
    transport_->answer(status(code));
    EXPECT_EQ(send(request()).get().text(), code == 503 ? "cancelled" : "404");
  }
  EXPECT_EQ(transport_->requestCount(), 2U);
}

TEST_F(RequestAttemptsTest, NoMoreAttemptsEndsTheWaitAndLeavesTheAttemptThatRuns) {
  std::stop_source stop;
  int waited = 0;
  settings_->noMoreAttempts = stop.get_token();
  settings_->onWaited = [&] { ++waited; };
  transport_->answer(status(503));
  test::KeepingSleeper sleeper;
  auto waiting = send(request(), sleeper);
  static_cast<void>(sleeper.first());
  stop.request_stop();
  EXPECT_EQ(waiting.get().text(), "cancelled");
  EXPECT_EQ(waited, 1);

  for (const int answer : {200, 503}) {
    std::stop_source later;
    settings_->noMoreAttempts = later.get_token();
    transport_->hold();
    transport_->answer(status(answer));
    auto told = send(request());
    later.request_stop();
    transport_->releaseAll();
    EXPECT_EQ(told.get().text(), answer == 200 ? "200" : "cancelled");
  }
  EXPECT_THAT(sleeper_.delays, IsEmpty());
  EXPECT_EQ(transport_->requestCount(), 3U);
}

TEST_F(RequestAttemptsTest, TellsWhenAWaitIsOverAndWhenARequestHasRecovered) {
  std::vector<std::string> told;
  settings_->onRetry = [&](int attempt, std::chrono::milliseconds) {
    told.push_back(std::to_string(attempt));
  };
  settings_->onWaited = [&] { told.emplace_back("waited"); };
  settings_->onRecovered = [&] { told.emplace_back("recovered"); };
  transport_->answer(status(200));
  EXPECT_EQ(send(request()).get().text(), "200");
  EXPECT_THAT(told, IsEmpty());
  for (const int last : {206, 404}) {
    told.clear();
    for (const int code : {503, 503, last}) transport_->answer(status(code));
    EXPECT_EQ(send(request()).get().text(), std::to_string(last));
    std::vector<std::string> wanted{"2", "waited", "3", "waited"};
    if (last == 206) wanted.emplace_back("recovered");
    EXPECT_EQ(told, wanted);
  }
}

TEST_F(RequestAttemptsTest, TheShutdownEndsTheWait) {
  sleeper_.reason = TimerQueue::Reason::kShutDown;
  transport_->answer(status(503));
  EXPECT_EQ(send(request()).get().text(), "shutDown");
  EXPECT_EQ(transport_->requestCount(), 1U);
}

TEST_F(RequestAttemptsTest, EachAttemptIsAuthorizedAndARefusalRenewsOnce) {
  const auto authorizer = std::make_shared<CountingAuthorizer>();
  settings_->authorizer = authorizer;
  for (const int code : {503, 401, 503, 401}) transport_->answer(status(code));
  EXPECT_EQ(send(request(HttpMethod::kPost)).get().text(), "401");
  std::vector<std::string> shown;
  for (const auto& sent : transport_->requests()) shown.push_back(sent.header("Token").value());
  EXPECT_THAT(shown, ElementsAre("1", "1", "2", "2"));
  EXPECT_EQ(sleeper_.delays.size(), 2U) << "a renewal does not wait";

  authorizer->refuses = true;
  EXPECT_EQ(send(request()).get().error->localizedDescription(), "there are no credentials");
  EXPECT_EQ(transport_->requestCount(), 4U);
}

/// Notes what it is told, and what began without an end.
class NotingObserver final : public RequestObserver {
 public:
  void requestBegins() noexcept override { ++underWay; }
  void requestEnded(const RequestReport& report) noexcept override {
    --underWay;
    const std::string end = report.status ? std::to_string(*report.status)
                            : report.error
                                ? report.error->userInfo()[kTransportFailureKey].textValue()
                                : "unsent";
    told.push_back(
        fmt::format("{} {} {} {}", report.attempt, nameOf(report.method), report.url, end));
    received = report.measure.received;
  }
  int underWay = 0;
  std::vector<std::string> told;
  std::uint64_t received = 0;
};

TEST_F(RequestAttemptsTest, EachAttemptIsReportedOnceBeforeItsEndIsTold) {
  const auto observer = std::make_shared<NotingObserver>();
  settings_->observer = observer;
  const auto authorizer = std::make_shared<CountingAuthorizer>();
  settings_->authorizer = authorizer;
  const struct {
    std::vector<ScriptedAnswer> answers;
    std::vector<std::string> told;
  } cases[] = {
      {{answerWith(200, "12345")}, {"200"}},
      {{answerWith(200, "12345")}, {"200"}},  // into a receiver
      {{status(503), failure(TransportFailure::kTimedOut), status(200)},
       {"503", "timedOut", "200"}},
      {{status(401), status(404)}, {"401", "404"}},
      {{failure(TransportFailure::kTls)}, {"tls"}},
      {{test::throwFromSend()}, {"other"}},
  };
  for (const auto& [answers, told] : cases) {
    observer->told.clear();
    for (const ScriptedAnswer& answer : answers) transport_->answer(answer);
    HttpRequest made = request();
    made.url = "http://ann:pass@a/b?part=7&sig=s3cret&s3cret#s3cret";
    if (&answers == &cases[1].answers) made.receiver = std::make_shared<test::CollectingReceiver>();
    static_cast<void>(send(made).get());
    std::vector<std::string> wanted;
    for (const std::string& end : told) {
      wanted.push_back(fmt::format("{} GET http://a/b?part=&sig= {}", wanted.size() + 1, end));
    }
    EXPECT_EQ(observer->told, wanted);
    EXPECT_EQ(observer->underWay, 0);
    if (answers.size() == 1 && answers.front().response) {
      EXPECT_EQ(observer->received, 5U);
    }
  }
  observer->told.clear();
  authorizer->refuses = true;
  static_cast<void>(send(request()).get());
  EXPECT_THAT(observer->told, IsEmpty()) << "nothing was sent";
  authorizer->refuses = false;
  test::KeepingSleeper held;
  transport_->answer(status(503));
  auto waiting = send(request(), held);
  auto wake = held.first();
  transfer_->cancel();
  EXPECT_EQ(waiting.get().text(), "cancelled");
  EXPECT_EQ(observer->told, std::vector<std::string>{"1 GET http://a/b 503"});
  wake(TimerQueue::Reason::kDue);
}

/// Hands the first bytes of a body to the receiver, then breaks.
class BreakingTransport final : public HttpTransport {
 public:
  std::shared_ptr<HttpTransfer> send(HttpRequest request, HttpCompletion completion) override {
    ++sent;
    EXPECT_EQ(request.stallTimeout, 7s) << "of the settings";
    EXPECT_EQ(request.connectTimeout, 2s) << "of the request";
    EXPECT_NE(request.rateLimit, nullptr);
    EXPECT_TRUE(request.receiver->begin(200, {}, 10));
    EXPECT_TRUE(request.receiver->write("12345"));
    completion(std::nullopt, failure(TransportFailure::kCutShort).error);
    return nullptr;
  }
  void shutdown() override {}
  int sent = 0;
};

TEST_F(RequestAttemptsTest, WhatAReceiverHasBegunToTakeIsNotSentAgain) {
  const auto receiver = std::make_shared<test::CollectingReceiver>();
  HttpRequest made = request();
  made.receiver = receiver;
  transport_->answer(status(503));
  transport_->answer(status(204));
  EXPECT_EQ(send(made).get().text(), "204") << "an error's body is not the receiver's";

  settings_->connectTimeout = 5s;
  settings_->stallTimeout = 7s;
  settings_->rateLimit = std::make_shared<RateLimit>(1'000);
  made.connectTimeout = 2s;
  BreakingTransport breaking;
  std::promise<ErrorPtr> told;
  static_cast<void>(sendAttempts(
      std::shared_ptr<HttpTransport>(std::shared_ptr<void>(), &breaking), made, settings_,
      [&](const std::optional<HttpResponse>&, ErrorPtr error) { told.set_value(error); },
      {clock_, sleeper_, random_}));
  EXPECT_EQ(transportFailureOf(*told.get_future().get()), TransportFailure::kCutShort);
  EXPECT_EQ(breaking.sent, 1);
  EXPECT_EQ(receiver->bytes, "12345");
}

}  // namespace
}  // namespace varo::platform
