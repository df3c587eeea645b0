#include "Cli/Commands/ListCommand.h"
#include "Cli/FailureText.h"
#include "Cli/JsonEvents.h"
#include "Cli/ProgressBar.h"
#include "Cli/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Value.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>

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

TEST(ProgressBar, RateOfAResumedDownloadLeavesOutWhatWasThere) {
  using std::chrono::seconds;
  const ProgressBar::Clock::time_point start{};
  ProgressBar bar("f", start);
  bar.resume(500 << 10, std::nullopt, start);
  bar.resume(502 << 10, std::nullopt, start + seconds(1));
  EXPECT_EQ(bar.line(60, start + seconds(1)), "f  502.0 KiB  2.0 KiB/s  0:01");
  bar.resume(504 << 10, 1 << 20, start + seconds(2));
  EXPECT_EQ(bar.line(60, start + seconds(2)),
            "f   49%  504.0 KiB of 1.0 MiB  2.0 KiB/s  4:20 left");
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

TEST(ListCommand, TableHasTheWellKnownColumnsFirstAndATotal) {
  const Dictionary first{{"created", "today"},       {"file_size", 2048},
                         {"file_id", "a1"},          {"download_template", "{}"},
                         {"security_key", "hidden"}, {"file_name", "x\ty"}};
  const Dictionary second{{"file_id", "b2"}, {"file_namespace", "n"}, {"tags", Array{1}}};
  EXPECT_EQ(describeFiles({{"records", Array{first, second, "no record"}}}, std::nullopt),
            "FILE ID  FILE NAME  FILE SIZE  FILE NAMESPACE  CREATED\n"
            "a1       x\uFFFDy          2.0 KiB                  today\n"
            "b2                             n\n"
            "\n2 files, 2.0 KiB\n");
  EXPECT_EQ(describeFiles({}, 80), "No files.\n");
}

}  // namespace
}  // namespace varo::cli
