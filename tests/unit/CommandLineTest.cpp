#include "Cli/CommandLine.h"
#include "Cli/HelpText.h"
#include "Platform/Foundation/Value.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

namespace varo::cli {
namespace {

using platform::Dictionary;
using Words = std::vector<std::string>;

struct Parsed {
  ParsedCommandLine line;
  std::string results;
  std::string messages;
};

Parsed parse(const Words& words, const std::string& tokenVariable = "") {
  std::ostringstream results;
  std::ostringstream messages;
  ParsedCommandLine line = parseCommandLine(words, tokenVariable, results, messages);
  return {std::move(line), results.str(), messages.str()};
}

GlobalOptions globalOf(const Words& words, const std::string& tokenVariable = "") {
  const Parsed parsed = parse(words, tokenVariable);
  EXPECT_TRUE(parsed.line.invocation) << parsed.messages;
  return parsed.line.invocation ? parsed.line.invocation->global : GlobalOptions();
}

template <typename Options>
Options commandOf(const Words& words) {
  const Parsed parsed = parse(words);
  EXPECT_TRUE(parsed.line.invocation) << parsed.messages;
  if (!parsed.line.invocation) return {};
  EXPECT_TRUE(std::holds_alternative<Options>(parsed.line.invocation->command));
  return std::get<Options>(parsed.line.invocation->command);
}

TEST(CommandLine, UploadArgumentsBecomeTypedValues) {
  const auto upload = commandOf<UploadOptions>(
      {"upload", "--meta", "a=1", "b=x=y", "http://h/services", "photo.jpg", "--name", "n",
       "--namespace", "", "--meta", "a=2", "--chunk-size", "512K", "--raw"});
  EXPECT_EQ(upload.url, "http://h/services");
  EXPECT_EQ(upload.file, "photo.jpg");
  EXPECT_EQ(upload.name, "n");
  EXPECT_EQ(upload.nameSpace, "");
  EXPECT_EQ(upload.securityKey, std::nullopt);
  EXPECT_EQ(upload.meta, (Dictionary{{"a", "2"}, {"b", "x=y"}}));
  EXPECT_EQ(upload.chunkSize, 512 * 1024);
  EXPECT_TRUE(upload.raw);
}

TEST(CommandLine, StandardInputAndNamesOfCommandsAreFilesLikeOthers) {
  EXPECT_EQ(commandOf<UploadOptions>({"upload", "http://h", "-"}).file, "-");
  EXPECT_EQ(commandOf<UploadOptions>({"upload", "http://h", "demo"}).file, "demo");
  EXPECT_EQ(commandOf<DownloadOptions>({"download", "http://h", "list"}).fileId, "list");
}

TEST(CommandLine, DeletesTakeAnIdOrWhatTheMetadataMustHold) {
  const auto byId = commandOf<DeleteOptions>({"delete", "http://h", "a=1"});
  EXPECT_EQ(byId.fileId, "a=1");
  EXPECT_TRUE(byId.where.empty());
  const auto byMetadata =
      commandOf<DeleteOptions>({"delete", "--where", "a=1", "b=x=y", "http://h", "--where", "c="});
  EXPECT_EQ(byMetadata.url, "http://h");
  EXPECT_EQ(byMetadata.fileId, std::nullopt);
  EXPECT_EQ(byMetadata.where, (Dictionary{{"a", "1"}, {"b", "x=y"}, {"c", ""}}));
  EXPECT_EQ(commandOf<AbortOptions>({"abort", "http://h", "id"}).fileId, "id");
}

TEST(CommandLine, GlobalOptionsStandBeforeOrAfterTheCommand) {
  const Words options = {"--json",
                         "--header",
                         "A: 1",
                         "--header",
                         "b:  two ",
                         "--option",
                         "forceDownload=true",
                         "--option",
                         "n=-7",
                         "--option",
                         "t=007x",
                         "--policy",
                         "compatible",
                         "--connect-timeout",
                         "2.5",
                         "--log-level",
                         "off"};
  Words before = options;
  before.insert(before.end(), {"list", "http://h"});
  Words after = {"list", "http://h"};
  after.insert(after.end(), options.begin(), options.end());
  for (const Words& words : {before, after}) {
    const GlobalOptions global = globalOf(words);
    EXPECT_TRUE(global.json);
    EXPECT_EQ(global.headers, (Dictionary{{"A", "1"}, {"b", "two"}}));
    EXPECT_EQ(global.options, (Dictionary{{"forceDownload", true}, {"n", -7}, {"t", "007x"}}));
    EXPECT_EQ(global.policy, binary::TransferPolicy::kCompatible);
    EXPECT_EQ(global.connectTimeout, std::chrono::milliseconds(2500));
    EXPECT_EQ(global.stallTimeout, std::nullopt);
    EXPECT_EQ(global.logLevel, platform::LogLevel::kOff);
  }
  EXPECT_EQ(globalOf({"demo"}).policy, binary::TransferPolicy::kSafe);
}

TEST(CommandLine, TokenComesFromOptionThenHeaderThenEnvironment) {
  const std::string path = testing::TempDir() + "command-line-token";
  std::ofstream(path) << "  from-file \r\nsecond line\n";
  const std::string key = "X-Pelmar-Authorization";
  struct Case {
    Words words;
    Dictionary headers;
  };
  const std::vector<Case> cases = {
      {{"demo"}, {{key, "from-environment"}}},
      {{"demo", "--token", "t"}, {{key, "t"}}},
      {{"demo", "--token-file", path}, {{key, "from-file"}}},
      {{"demo", "--header", "x-pelmar-authorization: h"}, {{"x-pelmar-authorization", "h"}}},
      {{"demo", "--header", "x-pelmar-authorization: h", "--token", "t"}, {{key, "t"}}},
  };
  for (const Case& c : cases) EXPECT_EQ(globalOf(c.words, "from-environment").headers, c.headers);
  EXPECT_TRUE(globalOf({"demo"}).headers.empty());
  std::remove(path.c_str());
}

TEST(CommandLine, WrongUsageIsExplainedWithStatusTwo) {
  struct Case {
    Words words;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{}, "no command given"},
      {{"lst", "http://h"}, "there is no command 'lst'; did you mean 'list'?"},
      {{"DOWNLAOD"}, "did you mean 'download'?"},
      {{"frobnicate"}, "there is no command 'frobnicate'\n"},
      {{"list"}, "URL is required"},
      {{"list", "http://h", "--critera", "x"}, "did you mean '--criteria'?"},
      {{"--jsno", "list", "http://h"}, "did you mean '--json'?"},
      {{"list", "http://h", "more"}, "'more' is one argument too many"},
      {{"upload", "http://h"}, "FILE is required"},
      {{"upload", "http://h", "f", "--meta", "nothing"}, "not of the form KEY=VALUE"},
      {{"upload", "http://h", "f", "--chunk-size", "0"}, "'0' is not a positive size"},
      {{"upload", "http://h", "f", "--chunk-size", "9999999999G"}, "not a positive size"},
      {{"delete", "http://h"}, "FILE_ID or --where is required"},
      {{"delete", "http://h", "id", "--where", "a=1"}, "exclude each other"},
      {{"delete", "http://h", "--where", "a=1", "--where", "a=2"}, "given twice"},
      {{"delete", "http://h", "--where", "a"}, "not of the form KEY=VALUE"},
      {{"delete", "http://h", "--wher", "a=1"}, "did you mean '--where'?"},
      {{"abort", "http://h"}, "FILE_ID is required"},
      {{"demo", "--header", "no colon"}, "'no colon' is not of the form"},
      {{"demo", "--header", "A: b\r\nC: d"}, "control characters"},
      {{"demo", "--token", "a\nb"}, "control characters"},
      {{"demo", "--token", "t", "--token-file", "f"}, "--token"},
      {{"demo", "--token-file", "/nowhere/token"}, "/nowhere/token"},
      {{"demo", "--policy", "bold"}, "neither safe nor compatible"},
      {{"demo", "--log-level", "loud"}, "not one of trace, debug"},
      {{"demo", "--stall-timeout", "0"}, "not a number of seconds"},
      {{"demo", "--stall-timeout", "nan"}, "not a number of seconds"},
      {{"sandbox", "--port", "65536"}, "not a port"},
  };
  for (const Case& c : cases) {
    const Parsed parsed = parse(c.words);
    EXPECT_FALSE(parsed.line.invocation) << c.message;
    EXPECT_EQ(parsed.line.exitStatus, 2) << c.message;
    EXPECT_EQ(parsed.results, "") << c.message;
    EXPECT_NE(parsed.messages.find(c.message), std::string::npos) << parsed.messages;
    EXPECT_NE(parsed.messages.find("--help"), std::string::npos) << parsed.messages;
  }
}

TEST(CommandLine, HelpAndVersionAreEverywhere) {
  for (const std::string command :
       {"", "list", "upload", "download", "update", "delete", "abort", "sandbox", "demo"}) {
    Words words;
    if (!command.empty()) words = {command};
    words.emplace_back("--help");
    const Parsed help = parse(words);
    EXPECT_EQ(help.line.exitStatus, 0);
    EXPECT_EQ(help.results, helpText(command));
    words.back() = "--version";
    const Parsed version = parse(words);
    EXPECT_EQ(version.line.exitStatus, 0);
    EXPECT_EQ(version.results, versionText() + "\n");
  }
  EXPECT_EQ(parse({"help", "upload"}).results, helpText("upload"));
}

}  // namespace
}  // namespace varo::cli
