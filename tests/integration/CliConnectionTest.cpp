#include "tests/support/CliFixture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestCertificate.h"
#include "tests/support/TestProxy.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

// The built program on the way to its servers: retries, proxies, and what `doctor` finds.

namespace varo::test {
namespace {

using namespace platform;
using testing::HasSubstr;

constexpr char kSecret[] = "pr0xy-marker";

class CliConnectionTest : public CliFixture {
 protected:
  /// The steps of a check and whether each was right; those that were not tried are left out.
  std::map<std::string, bool> checks(const Words& words, int status) {
    const Run result = run(joined({"--json", "doctor"}, words));
    EXPECT_EQ(result.status, status) << result.output << result.errors;
    std::map<std::string, bool> steps;
    for (const Dictionary& event : eventsEndingIn(status == 0 ? "success" : "failure", result)) {
      if (event.contains("ok")) steps[event["step"].textValue()] = event["ok"].boolValue();
      EXPECT_EQ(event.contains("advice"), event["ok"] == Value(false)) << event["step"].textValue();
    }
    return steps;
  }
  std::string config(const std::string& json) {
    const std::string path = makeFile("config.json", 1);
    writeFile(path, json);
    return path;
  }
};

TEST_F(CliConnectionTest, WhatFailsForTheMomentIsRepeatedAsOftenAsItIsAskedFor) {
  const struct {
    Words words;
    int status;
    std::uint64_t requests;
  } cases[] = {
      {{}, 0, 3},
      {{"--retry", "1"}, 1, 2},
      {{"--retry", "0"}, 1, 1},
      {{"--policy", "compatible"}, 0, 1},  // which takes a 503 for a list without files
      {{"--retry-max-time", "0.001"}, 1, 1},
  };
  for (const auto& c : cases) {
    sandbox().clearFaults();
    sandbox().clearStats();
    sandbox().addFault({{.path = "/objects/File", .count = 2},
                        {.status = 503, .headers = {{"Retry-After", "1"}}}});
    const Run result = run(joined({"list", url()}, c.words));
    EXPECT_EQ(result.status, c.status) << result.errors;
    EXPECT_EQ(sandbox().serviceStats().requests, c.requests);
    EXPECT_EQ(result.errors.find("for attempt 2 of") != std::string::npos, c.requests > 1);
  }
}

TEST_F(CliConnectionTest, EachKindOfCommandGoesThroughTheProxyAndNoMessageHasItsPassword) {
  TestProxy proxy({.user = "ann", .password = kSecret});
  const std::string file = makeFile("pw", 1);
  writeFile(file, std::string(kSecret) + "\n");
  const std::string address = proxy.url("http").substr(7);
  const std::string store = sandbox().storeUrl();
  const Words commands[] = {
      {"list", url()},
      {"upload", url(), file, file},
      {"object", "list", "s3://bucket", "--endpoint", store, "--access-key", "sandbox"},
  };
  std::size_t asked = 0;
  for (const Words& command : commands) {
    for (const bool isRight : {true, false}) {
      ChildProcess::Settings settings = settingsFor(
          joined(command, {"--log-level", "trace", "--user-agent", "me/1", "--retry", "0",
                           "--proxy", "http://ann@" + address, "--proxy-password-file", file}));
      settings.environment.emplace_back("VARO_SECRET_KEY", "sandbox-secret-key");
      writeFile(file, isRight ? kSecret : "wr0ng-marker");
      const Run result = run(settings);
      EXPECT_EQ(result.status, isRight ? 0 : 1) << result.errors;
      EXPECT_THAT(result.output + result.errors, Not(HasSubstr("marker")));
      if (!isRight) {
        EXPECT_THAT(result.errors, HasSubstr("hint: Check the user and the password"));
      }
    }
    EXPECT_GT(proxy.asked().size(), asked);
    asked = proxy.asked().size();
  }
  EXPECT_EQ(*sandbox().requests().back().header("User-Agent"), "me/1");
}

TEST_F(CliConnectionTest, DoctorSaysAtWhichStepSomethingIsWrongAndStopsThere) {
  using Steps = std::map<std::string, bool>;
  const std::string store = sandbox().storeUrl();
  const Words bucket = {"s3://bucket",  "--endpoint", store,
                        "--access-key", "sandbox",    "--secret-key-file"};
  const auto signedWith = [&](const std::string& secret) {
    const std::string path = makeFile("key-" + secret, 1);
    writeFile(path, secret);
    Words words = bucket;
    words.push_back(path);
    return words;
  };
  const Steps reached = {{"name", true}, {"connection", true}};
  const auto with = [&](Steps more) {
    more.insert(reached.begin(), reached.end());
    return more;
  };
  TestProxy strict({.user = "ann", .password = "right"});
  const TemporaryDirectory certificate;
  makeTestCertificate(certificate.path());
  const ScriptedServer untrusted([](const WireRequest&) { return reply(200, ""); },
                                 certificate.path());
  const std::string templates = config(R"({"URL":")" + sandbox().templateUrl() +
                                       R"(","uploadParams":{"objectName":"bucket/k"}})");
  const struct {
    Words words;
    Steps steps;
  } cases[] = {
      {{url()}, with({{"service", true}, {"token", true}})},
      {signedWith("sandbox-secret-key"), with({{"token", true}, {"store", true}, {"clock", true}})},
      {signedWith("wrong"), with({{"token", false}, {"clock", true}})},
      {{"--config", templates},
       with({{"service", true},
             {"token", true},
             {"template", true},
             {"store", true},
             {"clock", true}})},
      {{"ftp://h"}, {{"configuration", false}}},
      {{"http://no-such-host.invalid/x"}, {{"name", false}}},
      {{"http://127.0.0.1:1/x"}, {{"name", true}, {"connection", false}}},
      {{url(), "--proxy", strict.url("http")}, {{"connection", false}}},
      {{untrusted.url("/x")}, with({{"tls", false}})},
      {{store}, with({{"service", false}, {"clock", true}})},
  };
  for (const auto& c : cases) {
    const bool isGood =
        std::all_of(c.steps.begin(), c.steps.end(), [](const auto& step) { return step.second; });
    EXPECT_EQ(checks(c.words, isGood ? 0 : 1), c.steps) << c.words[0];
  }
  sandbox().addFault({{}, {.headers = {{"Date", "Sun, 06 Nov 1994 08:49:37 GMT"}}}});
  EXPECT_EQ(checks({url()}, 1), with({{"service", true}, {"token", true}, {"clock", false}}));
  for (const auto& request : sandbox().requests()) {
    EXPECT_EQ(request.method, request.path.ends_with("templates") ? "POST" : "GET");
  }
}

}  // namespace
}  // namespace varo::test
