#include "Cli/Failures/FailureText.h"
#include "Cli/Run/HumanOutput.h"
#include "Cli/Run/Interrupts.h"
#include "Cli/Run/JsonEvents.h"
#include "Cli/Run/JsonOutput.h"
#include "Cli/Run/LastEvent.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"
#include "Cli/Terminal/TransferList.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/TransportFailure.h"
#include "tests/support/Await.h"
#include "tests/support/OwnProcess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <limits>
#include <new>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace varo::cli {
namespace {

using namespace platform;

TEST(TerminalText, WhatAServerSendsCannotSteerTheTerminal) {
  EXPECT_EQ(printable("a\x1b[2J\nb\x7f\xff"), "a\uFFFD[2J\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(printable("x\u202Egpj.exe"), "x\uFFFDgpj.exe");
  EXPECT_EQ(displayWidth("日本e\u0301"), 5U);
  EXPECT_EQ(cutToWidth("日本語", 5), "日本…");
  EXPECT_EQ(cutMiddleToWidth("holiday-2024.jpeg", 9), "holi…jpeg");
  EXPECT_EQ(cutMiddleToWidth("abc", 0), "");
}

TEST(JsonEvents, EveryValueHasAForm) {
  const auto error = Error::make("D", 7, "text");
  Value deep = 1;
  for (int i = 0; i < 400; ++i) deep = Array{deep};
  const Dictionary details{{"data", Data::fromBytes("abc")},
                           {"error", error},
                           {"nan", std::numeric_limits<double>::quiet_NaN()},
                           {"text", std::string("\xff\n")},
                           {"event", "forged"},
                           {"list", Array{Value(), true, -5}},
                           {"deep", deep}};
  const std::string line = eventLine("failure", details);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  EXPECT_EQ(line.find("{\"event\":\"failure\","), 0U);
  const auto parsed = platform::json::parse(line);
  ASSERT_TRUE(parsed.ok()) << line;
  const Dictionary read = parsed->dictionaryValue();
  EXPECT_EQ(read["data"], Value(Dictionary{{"length", 3}}));
  EXPECT_EQ(read["error"],
            Value(Dictionary{{"domain", "D"},
                             {"code", 7},
                             {"userInfo", Dictionary{{"NSLocalizedDescription", "text"}}}}));
  EXPECT_TRUE(read["nan"].isNull());
  EXPECT_EQ(read["text"], Value("\uFFFD\n"));
  EXPECT_EQ(read["list"], Value(Array{nullptr, true, -5}));
  EXPECT_TRUE(read["deep"].isArray());
}

TEST(FailureText, ReadsEveryShapeOfFailure) {
  const auto noRecord = Error::make("DownloadError", 5004, "no record");
  const auto tooSlow = std::make_shared<const Error>(
      "Exceeded number of retries, the current operation is taking longer time, status is not "
      "available yet",
      6003, Dictionary());
  const auto refused = std::make_shared<const Error>(
      "BinaryNetworkUtils", 6003,
      Dictionary{{"NSLocalizedDescription", "unexpected opstatus : 9"},
                 {"userInfo", Dictionary{{"opstatus", 9}, {"errmsg", "token missing"}}}});
  struct Case {
    Value failure;
    std::int64_t code;
    std::string message, hint;
  };
  const std::vector<Case> cases = {
      {Dictionary{{"error", Dictionary{{"Errors", Array{Value(noRecord)}}}}}, 5004, "no record",
       "varobinary list"},
      {Value(std::make_shared<const Error>("DownloadTaskError", 4,
                                           Dictionary{{"Errors", Array{Value(noRecord)}}})),
       5004, "no record", "varobinary list"},
      {Value(refused), 6003, "unexpected opstatus : 9 (token missing)", "--token-file"},
      {Dictionary{{"code", "6003"},
                  {"domain", "BinaryNetworkUtils"},
                  {"localizedDescription", "HTTP status 401"},
                  {"userInfo", Dictionary{{"httpStatusCode", 401}}}},
       6003, "HTTP status 401", "valid token"},
      {Dictionary{{"code", "6003"},
                  {"domain", "Network operation failed"},
                  {"userInfo", Dictionary{{"Errors", Array{Value(tooSlow)}}}}},
       6003, tooSlow->localizedDescription(), "may still finish"},
  };
  for (const Case& c : cases) {
    const FailureText text = describeFailure(c.failure);
    EXPECT_EQ(text.code, c.code);
    EXPECT_EQ(text.message, c.message);
    EXPECT_NE(text.hint.find(c.hint), std::string::npos) << text.hint;
  }
}

TEST(FailureText, HintIsAboutTheFirstCauseOfAWrappedError) {
  const auto wrap = [](const platform::ErrorPtr& cause) -> platform::ErrorPtr {
    const Dictionary userInfo{{"message", "Upload error: " + cause->localizedDescription()},
                              {std::string(platform::kUnderlyingError), cause}};
    return std::make_shared<const Error>("BackendUploaderTask", 6006, userInfo);
  };
  const auto readOnly = Error::fromErrno(EROFS, "Creating", "/documents/blobs/7");
  const auto refused = std::make_shared<const Error>(
      "AnotherTransport", 111,
      Dictionary{{std::string(platform::kLocalizedDescriptionKey), "refused"},
                 {std::string(platform::kTransportFailureKey),
                  platform::nameOf(platform::TransportFailure::kNoConnection)}});
  const auto unknown = Error::make("Other", 7, "odd");
  EXPECT_EQ(describeFailure(wrap(wrap(readOnly))).hint,
            "Check the room and the permissions of /documents/blobs/7.");
  EXPECT_NE(describeFailure(wrap(refused)).hint.find("Is the service running"), std::string::npos);
  EXPECT_EQ(describeFailure(wrap(unknown)).hint, "");
  const Dictionary reported{{"code", "6006"}, {"userInfo", wrap(refused)->userInfo()}};
  EXPECT_NE(describeFailure(reported).hint.find("Is the service running"), std::string::npos);
}

TEST(FailureText, CodeOfAnotherDomainNeverGetsItsHint) {
  const auto hintOf = [](std::string_view domain, std::int64_t code) {
    return describeFailure(Value(Error::make(domain, code, "text"))).hint;
  };
  EXPECT_NE(hintOf("DownloadError", 5004), "");
  EXPECT_EQ(hintOf("DownloadTaskErrorDomain", 5004), "");
  EXPECT_EQ(hintOf("DownloadTaskErrorDomain", 5), "");  // a row; 5 and 6 are a host name elsewhere
  EXPECT_EQ(hintOf("HttpTransport", 1), "");            // a number of the library's, no kind
  EXPECT_EQ(hintOf("UploadError", 6), "");
  EXPECT_EQ(hintFor(Topic::kBlob, "DownloadError", 5004), "");
}

/// Cannot be told, as if there were no memory.
struct Untellable final : public platform::Object {
  [[nodiscard]] std::string description() const override { throw std::bad_alloc(); }
};

/// The last events of a run with --json that ends as `command` does, and the exit status.
std::string lastEvents(const std::function<int(Output&)>& command) {
  std::ostringstream stream;
  JsonOutput output(stream);
  const int status = runToItsLastEvent(output, [&] { return command(output); });
  return stream.str() + std::to_string(status);
}

TEST(LastEvent, IsToldOnceWhateverFails) {
  const Value untellable = std::make_shared<Untellable>();
  const auto nothing = [] { return std::string(); };
  const std::string fixed =
      eventLine("failure", {{"error", jsonForm(unexpectedFailure())},
                            {"kind", "other"},
                            {"message", unexpectedFailure().error()->localizedDescription()},
                            {"retryable", false}}) +
      "\n1";
  const auto isOver = [](bool told) { return told ? 0 : 1; };
  const std::function<int(Output&)> commands[] = {
      [&](Output& output) { return isOver(output.success(untellable, nothing)); },
      [&](Output& output) { return isOver(output.failure(untellable)); },
      [&](Output& output) {
        return isOver(output.paused({{"id", untellable}}, nothing));
      },
      [](Output&) -> int { throw std::bad_alloc(); },
      [](Output&) -> int { throw 5; },
  };
  for (const auto& command : commands) EXPECT_EQ(lastEvents(command), fixed);

  const std::string told = lastEvents([](Output&) -> int { throw std::runtime_error("odd"); });
  EXPECT_NE(told.find(R"("NSLocalizedDescription":"odd"}},"kind":"other","message":"odd",)"
                      R"("retryable":false})"
                      "\n1"),
            std::string::npos)
      << told;
  EXPECT_EQ(lastEvents([&](Output& output) -> int {
              output.success(1, nothing);
              throw std::bad_alloc();
            }),
            "{\"event\":\"success\",\"result\":1}\n1");

  std::ostringstream results, messages;
  Console console(messages, {});
  HumanOutput output(results, console, [] { return 80; });
  EXPECT_FALSE(output.success(1, []() -> std::string { throw std::bad_alloc(); }));
  EXPECT_EQ(results.str(), "");
  EXPECT_EQ(messages.str(), "error: " + unexpectedFailure().error()->localizedDescription() + "\n");
}

TEST(LastEvent, FailureShowsNoSecret) {
  const auto cause = std::make_shared<const Error>(
      "D", 6003,
      Dictionary{{"NSLocalizedDescription", "select=security_key eq 'marker-1'&a=b: it expired"},
                 {"response_headers", Dictionary{{"Set-Cookie", "sid=marker-2"}, {"Age", "1"}}}});
  const auto error = std::make_shared<const Error>(
      "D", 6006,
      Dictionary{{"message", cause->localizedDescription()},
                 {std::string(platform::kUnderlyingError), platform::ErrorPtr(cause)}});
  for (const Value& failure :
       {Value(platform::ErrorPtr(error)), Value(Array{platform::ErrorPtr(error)}),
        Value(Dictionary{{"error", Dictionary{{"Errors", Array{platform::ErrorPtr(error)}}}}}),
        Value(Dictionary{{"localizedDescription", cause->localizedDescription()},
                         {"userInfo", cause->userInfo()}})}) {
    std::ostringstream results, messages;
    JsonOutput(results).failure(failure);
    Console console(messages, {});
    HumanOutput(results, console, [] { return 80; }).failure(failure);
    const std::string all = results.str() + messages.str();
    EXPECT_EQ(all.find("marker-"), std::string::npos) << all;
    EXPECT_NE(all.find(R"("Age":"1")"), std::string::npos) << all;
  }
}

TEST(TransferList, HasALineForEachThatRunsAndOneForAll) {
  const auto start = ProgressBar::Clock::now();
  TransferList list(3, 4000, start);
  const auto later = start + std::chrono::seconds(1);
  list.update(0, "a.bin", 0, 1000, start);
  list.update(1, "b.bin", 500, 2000, start);  // resumed: 500 bytes were there before
  list.update(0, "a.bin", 1000, 1000, later);
  list.update(1, "b.bin", 1000, 2000, later);
  EXPECT_EQ(list.text(60, later), "a.bin  [" + std::string(29, '=') +
                                      "] 100%  1000 B  in 0:01\n"
                                      "b.bin   50%  1000 B of 2.0 KiB  500 B/s  0:02 left\n"
                                      "0 of 3   50%  2.0 KiB of 3.9 KiB  2.0 KiB/s  0:01 left");
  list.end(0, TransferList::End::kSucceeded, later);
  list.end(1, TransferList::End::kFailed, later);
  EXPECT_TRUE(list.text(60, later).starts_with("2 of 3, 1 failed  ")) << list.text(60, later);
  ProgressBar named(std::string(32, 'x'), start);  // a name gives way to what is measured
  named.update(25'000'000, 30'000'000, later);
  const std::string line = named.line(77, later);
  EXPECT_TRUE(line.find("==>") != std::string::npos && line.ends_with(" left")) << line;
}

TEST(Console, LinesOfSeveralTransfersAreErasedTogether) {
  std::ostringstream stream;
  Console console(stream, {.isTerminal = true});
  console.setProgressLine("one\ntwo");
  stream.str({});
  console.print("message");
  EXPECT_EQ(stream.str(), "\r\x1b[K\x1b[A\r\x1b[Kmessage\none\ntwo");
}

TEST(Interrupts, SecondOneEndsTheProgramThatIsStillBusyWithTheFirst) {
  struct Busy final : Interruptible {
    void interrupted() override { test::require(::kill(::getpid(), SIGINT) == 0, "sent again"); }
  };
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const auto body = [] {
    Interrupts interrupts;
    const auto busy = std::make_shared<Busy>();
    interrupts.subscribe(busy);
    test::require(::kill(::getpid(), SIGINT) == 0, "sent");
    test::require(test::eventually([] { return false; }), "the program has ended");
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(Interrupts::kExitStatus), "");
}

TEST(LastEvent, BlockThatThrowsEndsItsOperation) {
  const auto operation = std::make_shared<Operation>();
  const Session::Blocks blocks{operation->onSuccess(), operation->onFailure(), {}, {}};
  blocks.guarded([](const std::string&) { throw std::bad_alloc(); })("id");
  const Outcome outcome = operation->wait([] { return std::nullopt; });
  EXPECT_EQ(outcome.kind, Outcome::Kind::kFailure);
  EXPECT_EQ(outcome.value, unexpectedFailure());
}

}  // namespace
}  // namespace varo::cli
