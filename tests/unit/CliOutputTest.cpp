#include "Cli/ByteFormat.h"
#include "Cli/Commands/ListCommand.h"
#include "Cli/Console.h"
#include "Cli/FailureText.h"
#include "Cli/HumanOutput.h"
#include "Cli/JsonEvents.h"
#include "Cli/JsonOutput.h"
#include "Cli/Operation.h"
#include "Cli/ProgressBar.h"
#include "Cli/Table.h"
#include "Cli/TerminalText.h"
#include "Cli/WaitNotices.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Value.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace varo::cli {
namespace {

using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::Error;
using platform::Value;
using std::chrono::milliseconds;

TEST(ByteFormat, RoundsToTheUnitThatPeopleRead) {
  const std::vector<std::pair<std::uint64_t, std::string>> cases = {
      {0, "0 B"},
      {1023, "1023 B"},
      {1024, "1.0 KiB"},
      {1'048'575, "1.0 MiB"},
      {2'500'000, "2.4 MiB"},
      {std::numeric_limits<std::uint64_t>::max(), "16.0 EiB"}};
  for (const auto& [bytes, text] : cases) EXPECT_EQ(formatBytes(bytes), text);
  EXPECT_EQ(formatRate(0.0), "-");
  EXPECT_EQ(formatRate(std::numeric_limits<double>::infinity()), "-");
  EXPECT_EQ(formatRate(1536.0), "1.5 KiB/s");
  EXPECT_EQ(formatDuration(milliseconds(1)), "0:01");
  EXPECT_EQ(formatDuration(milliseconds(3'723'000)), "1:02:03");
}

TEST(TerminalText, WhatAServerSendsCannotSteerTheTerminal) {
  EXPECT_EQ(printable("a\x1b[2J\nb\x7f\xff"), "a\uFFFD[2J\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(printable("x\u202Egpj.exe"), "x\uFFFDgpj.exe");
  EXPECT_EQ(displayWidth("日本e\u0301"), 5U);
  EXPECT_EQ(cutToWidth("日本語", 5), "日本…");
  EXPECT_EQ(cutToWidth("日本語", 4), "日…");
  EXPECT_EQ(cutMiddleToWidth("holiday-2024.jpeg", 9), "holi…jpeg");
  EXPECT_EQ(cutMiddleToWidth("abc", 0), "");
}

TEST(Table, WidestColumnsShrinkAndIdsStayWhole) {
  Table table(
      {{"ID", Table::Align::kLeft, false}, {"NAME"}, {"SIZE", Table::Align::kRight, false}});
  table.addRow({"0123456789", "a-rather-long-name.jpeg", "1.0 KiB"});
  table.addRow({"01", "short"});
  EXPECT_EQ(table.text(std::nullopt),
            "ID          NAME                        SIZE\n"
            "0123456789  a-rather-long-name.jpeg  1.0 KiB\n"
            "01          short\n");
  EXPECT_EQ(table.text(33),
            "ID          NAME             SIZE\n"
            "0123456789  a-rath….jpeg  1.0 KiB\n"
            "01          short\n");
}

TEST(ProgressBar, ShowsShareRateAndRemainingTime) {
  const ProgressBar::Clock::time_point start{};
  ProgressBar bar("photo.jpg", start);
  EXPECT_EQ(bar.line(80, start + milliseconds(61'000)), "photo.jpg  1:01");
  bar.update(1'048'576, 4'194'304, start + milliseconds(1000));
  const auto now = start + milliseconds(1000);
  EXPECT_EQ(bar.line(71, now),
            "photo.jpg  [==>        ]  25%  1.0 MiB of 4.0 MiB  1.0 MiB/s  0:03 left");
  EXPECT_EQ(bar.line(24, now), "photo.jpg   25%  1.0 Mi…");
  // More than there is, as some counts say, is all there is.
  bar.update(5'000'000, 4'194'304, start + milliseconds(2000));
  EXPECT_EQ(bar.line(40, start + milliseconds(2000)), "photo.jpg  100%  4.0 MiB  in 0:02");
  EXPECT_EQ(bar.line(0, start), "");
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

TEST(JsonOutput, TheFirstOutcomeIsTheLastLine) {
  std::ostringstream stream;
  JsonOutput output(stream);
  output.progress(Dictionary{{"state", 0}});
  EXPECT_TRUE(output.success(Dictionary{{"a", 1}}, {}));
  EXPECT_FALSE(output.failure(Value()));
  output.progress(Dictionary{{"state", 1}});
  EXPECT_EQ(stream.str(),
            "{\"event\":\"progress\",\"state\":0}\n"
            "{\"event\":\"success\",\"result\":{\"a\":1}}\n");

  std::ostringstream second;
  JsonOutput missing(second);
  EXPECT_TRUE(missing.failure(Value()));
  EXPECT_EQ(second.str(), "{\"event\":\"failure\",\"error\":null}\n");
}

TEST(Operation, FirstOutcomeCountsAndEndsProgress) {
  const auto operation = std::make_shared<Operation>();
  int reports = 0;
  const auto progress = operation->onProgress([&](const Value&) { ++reports; });
  progress(1);
  operation->onFailure()(Value("first"));
  operation->onSuccess()(Value("second"));
  operation->interrupted();
  progress(2);
  const Outcome outcome = operation->wait([] { return std::nullopt; });
  EXPECT_EQ(outcome.kind, Outcome::Kind::kFailure);
  EXPECT_EQ(outcome.value, Value("first"));
  EXPECT_EQ(reports, 1);
}

TEST(HumanOutput, ProgressLineGivesWayToLogLinesAndResults) {
  std::ostringstream results;
  std::ostringstream errors;
  Console console(errors, {true, false});
  HumanOutput output(results, console, [] { return 41; });
  output.begin("f");
  output.progress(Dictionary{
      {"state", 2},
      {"progressData", Dictionary{{"totalBytesToUpload", 10}, {"bytesUploadedTillNow", 10}}}});
  console.print("note");
  output.success(Dictionary(), [] { return std::string("done\n"); });
  EXPECT_NE(errors.str().find("\r\x1b[Knote\n"), std::string::npos) << errors.str();
  EXPECT_EQ(errors.str().substr(errors.str().size() - 4), "\r\x1b[K");
  EXPECT_NE(errors.str().find("100%"), std::string::npos);
  EXPECT_EQ(results.str(), "done\n");
}

TEST(HumanOutput, WithoutATerminalThereIsNoProgressLine) {
  std::ostringstream results;
  std::ostringstream errors;
  Console console(errors, {false, false});
  HumanOutput output(results, console, [] { return 80; });
  output.begin("f");
  output.progress(Dictionary{{"progressData", Dictionary{{"totalBytesToUpload", 10}}}});
  output.tick();
  output.failure(Dictionary{{"code", "6018"}, {"localizedDescription", "bad\x1b[2J"}});
  EXPECT_EQ(errors.str().find("error: bad\uFFFD[2J\nhint: "), 0U) << errors.str();
  EXPECT_EQ(results.str(), "");
}

/// Keeps the lines it is given.
class LineKeeper final : public platform::LogSink {
 public:
  void write(std::string_view, platform::LogLevel, const platform::LogLocation&,
             std::string_view message) override {
    lines_ += std::string(message) + "\n";
  }
  void flush() override {}
  [[nodiscard]] const std::string& lines() const { return lines_; }

 private:
  std::string lines_;
};

TEST(WaitNotices, PeopleReadThatTheServiceStillWorksWhateverTheLevel) {
  using platform::LogLevel;
  for (const LogLevel least : {LogLevel::kInfo, LogLevel::kWarning, LogLevel::kOff}) {
    std::ostringstream results;
    std::ostringstream errors;
    Console console(errors, {false, false});
    const auto lines = std::make_shared<LineKeeper>();
    WaitNotices notices(lines, least,
                        std::make_shared<HumanOutput>(results, console, [] { return 80; }));
    notices.write("Binary", LogLevel::kInfo, {}, "The service is still working, attempt 3");
    notices.write("Binary", LogLevel::kInfo, {}, "something else");
    notices.write("Binary", LogLevel::kError, {}, "failed");
    EXPECT_EQ(errors.str(), "The service is still working, attempt 3 of 5\n");
    std::string passedOn = least < LogLevel::kOff ? "failed\n" : "";
    if (least == LogLevel::kInfo) {
      passedOn = "The service is still working, attempt 3\nsomething else\n" + passedOn;
    }
    EXPECT_EQ(lines->lines(), passedOn);
  }
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
    std::string message;
    std::string hint;
  };
  const std::vector<Case> cases = {
      {Dictionary{{"code", "7"},
                  {"domain", "BinaryNetworkUtils"},
                  {"localizedDescription", "no connection"}},
       7, "no connection", "Is the service running"},
      {Dictionary{{"error", Dictionary{{"Errors", Array{Value(noRecord)}}}}}, 5004, "no record",
       "varobinary list"},
      {Dictionary{{"error", noRecord}}, 5004, "no record", "varobinary list"},
      {Value(refused), 6003, "unexpected opstatus : 9 (token missing)", "--token-file"},
      {Dictionary{{"code", "6003"},
                  {"localizedDescription", "HTTP status 401"},
                  {"userInfo", Dictionary{{"httpStatusCode", 401}}}},
       6003, "HTTP status 401", "valid token"},
      {Dictionary{{"code", "6003"},
                  {"domain", "Network operation failed"},
                  {"userInfo", Dictionary{{"Errors", Array{Value(tooSlow)}}}}},
       6003, tooSlow->localizedDescription(), "may still finish"},
      {Value(), 0, "the operation failed", ""},
  };
  for (const Case& c : cases) {
    const FailureText text = describeFailure(c.failure);
    EXPECT_EQ(text.code, c.code);
    EXPECT_EQ(text.message, c.message);
    if (c.hint.empty()) {
      EXPECT_EQ(text.hint, "");
    } else {
      EXPECT_NE(text.hint.find(c.hint), std::string::npos) << text.hint;
    }
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
  EXPECT_EQ(describeFiles({{"records", Array{first}}}, 35),
            "FILE ID  FILE NAME  FILE SIZE\n"
            "a1       x\uFFFDy          2.0 KiB\n"
            "\n1 file, 2.0 KiB\n");
  EXPECT_EQ(describeFiles({}, 80), "No files.\n");
}

}  // namespace
}  // namespace varo::cli
