#include "Client/CredentialsCache.h"
#include "Client/Failures.h"
#include "Client/ServiceAuthorizer.h"
#include "Platform/Foundation/JobContext.h"
#include "tests/support/FakeHttpTransport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace varo::detail {
namespace {

using namespace std::chrono_literals;
using test::answerWith;
using Time = std::chrono::system_clock::time_point;

class SetClock final : public platform::Clock {
 public:
  [[nodiscard]] Time now() const override { return Time(std::chrono::seconds(seconds.load())); }
  [[nodiscard]] std::chrono::steady_clock::time_point steadyNow() const override { return {}; }
  std::atomic<std::int64_t> seconds{1'000'000};
};

class CredentialsCacheTest : public testing::Test {
 protected:
  /// Gives "1", "2", ... that live so long.
  std::shared_ptr<CredentialsCache> cache(std::optional<std::chrono::seconds> life = {}) {
    return std::make_shared<CredentialsCache>(
        [this, life] {
          EXPECT_EQ(platform::JobContext::current(), nullptr) << "no log of the client's";
          Credentials given{.token = std::to_string(++asked_)};
          if (life) given.expires = clock_.now() + *life;
          return given;
        },
        clock_);
  }
  static std::string tokenOf(const Outcome<CredentialsPtr>& got) {
    return got ? (*got)->token : got.error().message;
  }

  const platform::JobContext::Scope inTheClient_{std::make_shared<const platform::JobContext>()};
  SetClock clock_;
  std::atomic<int> asked_ = 0;
};

TEST_F(CredentialsCacheTest, KeepsThemUntilShortlyBeforeTheyExpire) {
  const struct {
    std::optional<std::chrono::seconds> life;
    std::int64_t good, bad;  // seconds after the answer
  } kCases[] = {
      {3600s, 3539, 3540}, {100s, 89, 90}, {1s, 0, 1}, {{}, -1, 0}, {0s, -1, 0}, {-5s, -1, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.bad);
    const auto kept = cache(c.life);
    const std::string first = tokenOf(kept->get());
    const std::int64_t begun = clock_.seconds;
    if (c.good >= 0) {
      clock_.seconds = begun + c.good;
      EXPECT_EQ(tokenOf(kept->get()), first);
    }
    clock_.seconds = begun + c.bad;
    EXPECT_NE(tokenOf(kept->get()), first);
  }
  const auto forEver = std::make_shared<CredentialsCache>(
      [this] { return Credentials{.token = std::to_string(++asked_), .expires = Time::max()}; },
      clock_);
  EXPECT_EQ(tokenOf(forEver->get()), tokenOf(forEver->get()));
}

TEST_F(CredentialsCacheTest, OneAsksAndTheOthersWaitWhileOperationsThatHaveSomeGoOn) {
  std::promise<void> isAsked;
  std::promise<void> goOn;
  std::atomic<int> asked = 0;
  const auto slow = std::make_shared<CredentialsCache>([&, go = goOn.get_future().share()] {
    if (++asked == 1) return Credentials{.token = "lasting"};
    isAsked.set_value();  // a third call would throw
    go.wait();
    return Credentials{.token = "kept", .expires = std::chrono::system_clock::now() + 1h};
  });
  HeldCredentials lasting(slow);
  EXPECT_EQ(tokenOf(lasting.current()), "lasting");
  std::vector<std::future<std::string>> got;
  for (int i = 0; i < 50; ++i) {
    got.push_back(std::async(std::launch::async, [&] { return tokenOf(slow->get()); }));
  }
  isAsked.get_future().wait();
  EXPECT_EQ(tokenOf(lasting.current()), "lasting");
  goOn.set_value();
  for (auto& one : got) EXPECT_EQ(one.get(), "kept");
  EXPECT_EQ(asked, 2);
}

TEST_F(CredentialsCacheTest, ARefusalOfMoreThanOneRequestAsksOnce) {
  const auto refuses = [](const std::string& token) {
    return [token](const Credentials& one) { return one.token == token; };
  };
  const auto shared = cache(3600s);
  HeldCredentials one(shared);
  HeldCredentials other(shared);
  EXPECT_EQ(tokenOf(one.current()) + tokenOf(other.current()), "11");
  EXPECT_TRUE(one.renew(refuses("1")));
  EXPECT_TRUE(one.renew(refuses("1"))) << "another request that was under way";
  EXPECT_TRUE(other.renew(refuses("1")));
  EXPECT_EQ(tokenOf(one.current()) + tokenOf(other.current()), "22");
  EXPECT_EQ(asked_, 2);

  HeldCredentials stubborn(std::make_shared<CredentialsCache>([this] {
    ++asked_;
    return Credentials{.token = "same"};
  }));
  EXPECT_EQ(tokenOf(stubborn.current()), "same");
  EXPECT_FALSE(stubborn.renew(refuses("same")));
  EXPECT_EQ(asked_, 4);
}

TEST_F(CredentialsCacheTest, AFailureIsNotKept) {
  const std::vector<CredentialsCache::Provider> answers = {
      []() -> Outcome<Credentials> { throw std::runtime_error("locked"); },
      []() -> Outcome<Credentials> { throw 1; },
      [] { return failureOf(Kind::kNoConnection, "no key server"); },
      [] { return Credentials{.token = "good"}; },
  };
  std::size_t next = 0;
  const auto failing = std::make_shared<CredentialsCache>([&] { return answers[next++](); });
  const auto first = failing->get();
  EXPECT_EQ(tokenOf(first), "Options::credentials threw: locked");
  EXPECT_EQ(first.error().kind, Kind::kUnauthorized);
  EXPECT_EQ(tokenOf(failing->get()), "Options::credentials threw");
  const auto third = failing->get();
  EXPECT_EQ(third.error().kind, Kind::kNoConnection);
  const Failure passed = failureFrom(errorOf(third.error()), "put");
  EXPECT_EQ(passed.kind, Kind::kNoConnection);
  EXPECT_EQ(passed.message, "put: no key server");
  EXPECT_EQ(tokenOf(failing->get()), "good");
}

TEST_F(CredentialsCacheTest, NobodyWaitsForEverForAProviderThatDoesNotAnswer) {
  std::promise<void> isAsked;
  std::promise<void> goOn;
  std::stop_source stop;
  std::weak_ptr<CredentialsCache> self;
  const auto silent = std::make_shared<CredentialsCache>(
      [&] {
        EXPECT_TRUE(self.lock()->isAskedHere());
        isAsked.set_value();
        goOn.get_future().wait();
        return Credentials{.token = "late", .expires = clock_.now() + 1h};
      },
      clock_);
  self = silent;
  EXPECT_EQ(silent->get({}, 0ms).error().kind, Kind::kTimeout);
  isAsked.get_future().wait();
  EXPECT_FALSE(silent->isAskedHere());
  stop.request_stop();
  EXPECT_EQ(silent->get(stop.get_token()).error().kind, Kind::kCancelled);
  HeldCredentials held(silent, stop.get_token());
  EXPECT_TRUE(held.renew([](const Credentials&) { return true; }))
      << "the stop decides, no refusal";
  EXPECT_EQ(held.atTheEnd(0ms)->current().error().kind, Kind::kTimeout) << "it is over";
  goOn.set_value();
  EXPECT_TRUE(silent->get());
  EXPECT_EQ(tokenOf(silent->get(stop.get_token())), "late") << "what is kept";
}

TEST_F(CredentialsCacheTest, AStopEndsTheWaitForAProvider) {
  std::promise<void> isAsked;
  std::promise<void> goOn;
  const auto silent = std::make_shared<CredentialsCache>([&] {
    isAsked.set_value();
    goOn.get_future().wait();
    return Credentials{};
  });
  std::stop_source stop;
  auto got = std::async(std::launch::async, [&] { return silent->get(stop.get_token()); });
  isAsked.get_future().wait();
  stop.request_stop();
  EXPECT_EQ(got.get().error().kind, Kind::kCancelled);
  goOn.set_value();
  static_cast<void>(silent->get());  // the provider has ended
}

TEST_F(CredentialsCacheTest, ATokenGoesOnlyWhereOneWasAndIsRenewedOnlyWhereItIsToBlame) {
  const auto held = std::make_shared<HeldCredentials>(cache(3600s));
  ServiceAuthorizer authorizer(held);
  platform::HttpRequest none;
  none.headers = {{"Accept", "*/*"}};
  ASSERT_TRUE(authorizer.authorize(none));
  EXPECT_EQ(none.headers.size(), 1U);
  EXPECT_EQ(asked_, 0);
  EXPECT_FALSE(authorizer.renew(none.headers, *answerWith(401, "").response));

  const struct {
    test::ScriptedAnswer answer;
    bool isRenewed;
  } kCases[] = {
      {answerWith(401, ""), true},
      {answerWith(403, std::nullopt), false},
      {answerWith(403, "Not yours; no such token"), false},
      {answerWith(403, R"({"errmsg":"Token EXPIRED"})"), true},
      {answerWith(403, "", {{"www-authenticate", "Bearer error=\"invalid_token\""}}), true},
      {answerWith(500, "token expired"), false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    platform::HttpRequest request;
    request.headers = {{"x-pelmar-authorization", "old"}};
    ASSERT_TRUE(authorizer.authorize(request));
    const int asked = asked_;
    EXPECT_EQ(request.headers[0].value, std::to_string(asked));
    EXPECT_EQ(authorizer.renew(request.headers, *c.answer.response), c.isRenewed);
    EXPECT_EQ(asked_ - asked, c.isRenewed ? 1 : 0);
  }
}

}  // namespace
}  // namespace varo::detail
