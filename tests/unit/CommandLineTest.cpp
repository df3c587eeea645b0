#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/CommandLine.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Commands/CommandList.h"
#include "Platform/Foundation/Value.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <optional>
#include <sstream>

namespace varo::cli {
namespace {

using platform::Dictionary;
using Words = std::vector<std::string>;

struct Parsed {
  ParsedCommandLine line;
  std::string results, messages;
};

Parsed parse(const Words& words, const std::string& tokenVariable = "",
             const CommandSet& commands = commandSet()) {
  std::ostringstream results;
  std::ostringstream messages;
  ParsedCommandLine line = parseCommandLine(commands, words, tokenVariable, results, messages);
  return {std::move(line), results.str(), messages.str()};
}

GlobalOptions globalOf(const Words& words, const std::string& tokenVariable = "") {
  const Parsed parsed = parse(words, tokenVariable);
  EXPECT_TRUE(parsed.line.invocation) << parsed.messages;
  return parsed.line.invocation ? parsed.line.invocation->global : GlobalOptions();
}

TEST(CommandLine, ArgumentsBecomeTypedValues) {
  std::string url;
  std::optional<std::string> space, absent;
  Dictionary meta, params;
  std::optional<std::int64_t> size;
  bool raw = false;
  Command command;
  command.name = "send";
  command.define = [&](CommandArguments& arguments) -> CommandRun {
    arguments.text("URL", url, Presence::kRequired);
    arguments.text("--namespace", space);
    arguments.text("--absent", absent);
    arguments.pairs("--meta", meta, {.keysAreUnique = false});
    arguments.pairs("--param", params, {.severalAtOnce = false});
    arguments.parsed("--chunk-size", size, parseChunkSize);
    arguments.flag("--raw", raw);
    return [](Session&) { return 0; };
  };
  const Parsed parsed =
      parse({"send", "--meta", "a=1", "b=x=y", "http://h/services", "--namespace", "", "--meta",
             "a=2", "--param", "p=q", "--chunk-size", "512K", "--raw"},
            "", {{}, {command}});
  EXPECT_TRUE(parsed.line.invocation) << parsed.messages;
  EXPECT_EQ(url, "http://h/services");
  EXPECT_EQ(space, "");
  EXPECT_EQ(absent, std::nullopt);
  EXPECT_EQ(meta, (Dictionary{{"a", "2"}, {"b", "x=y"}}));
  EXPECT_EQ(params, (Dictionary{{"p", "q"}}));
  EXPECT_EQ(size, 512 * 1024);
  EXPECT_TRUE(raw);
}

TEST(CommandLine, BehindTheMarkThatEndsTheOptionsAllWordsAreArguments) {
  std::string url, file;
  Dictionary meta;
  bool raw = false;
  Command command;
  command.name = "send";
  command.define = [&](CommandArguments& arguments) -> CommandRun {
    arguments.parsed("URL", url, parseBaseUrl, Presence::kRequired);
    arguments.text("FILE", file, Presence::kRequired);
    arguments.pairs("--meta", meta);
    arguments.flag("--raw", raw);
    return [](Session&) { return 0; };
  };
  const std::pair<Words, std::string> cases[] = {
      {{"send", "http://h/s//", "--", "--raw"}, "--raw"},
      {{"send", "--", "http://h/s", "-f"}, "-f"},
      {{"send", "http://h/s", "--meta", "a=1", "--", "b=2"}, "b=2"},
      {{"send", "http://h/s", "f", "--"}, "f"},
      {{"send", "http://h/s", "f", "--", "g"}, ""},
  };
  for (const auto& [words, expected] : cases) {
    const Parsed parsed = parse(words, "", {{}, {command}});
    EXPECT_EQ(parsed.line.invocation.has_value(), !expected.empty()) << parsed.messages;
    if (!parsed.line.invocation) continue;
    EXPECT_EQ(url, "http://h/s");
    EXPECT_EQ(file, expected);
    EXPECT_FALSE(raw);
  }
}

TEST(CommandLine, ConfigurationsThatDoNotServeAreRefused) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/config";
  const struct {
    Words command;
    std::string content, message;
  } cases[] = {
      {{"blob", "download"}, "[1]", "holds no JSON object"},
      {{"blob", "download"}, "{", "is not JSON"},
      {{"blob", "download"}, R"({"Streaming":true})", "leaves no file"},
      {{"object", "get", "--stream", "--json"}, "{}", "exclude each other"},
      {{"object", "get", "-o", "-", "--json"}, "{}", "exclude each other"},
      {{"object", "get", "-o", "-", "--if-exists", "keep"}, "{}", "exclude each other"},
      {{"object", "get", "-o", "f", "--stream"}, "{}", "exclude each other"},
      {{"object", "get", "--param", "b=c=d", "--param", "b=twice"}, "{}", "given twice"},
  };
  for (const auto& c : cases) {
    std::ofstream(path) << c.content;
    Words words = c.command;
    words.insert(words.end(), {"--config", path});
    const Parsed parsed = parse(words);
    EXPECT_EQ(parsed.line.exitStatus, 2);
    EXPECT_NE(parsed.messages.find(c.message), std::string::npos) << parsed.messages;
  }
}

TEST(CommandLine, GlobalOptionsStandBeforeOrAfterTheCommand) {
  const Words options = {
      "--json", "--header",    "b:  two ", "--option", "forceDownload=true", "--option",
      "n=-7",   "--option",    "t=007x",   "--policy", "compatible",         "--connect-timeout",
      "2.5",    "--log-level", "off"};
  Words before = options;
  before.insert(before.end(), {"list", "http://h"});
  Words after = {"list", "http://h"};
  after.insert(after.end(), options.begin(), options.end());
  for (const Words& words : {before, after}) {
    const GlobalOptions global = globalOf(words);
    EXPECT_TRUE(global.json);
    EXPECT_EQ(global.headers, (Dictionary{{"b", "two"}}));
    EXPECT_EQ(global.options, (Dictionary{{"forceDownload", true}, {"n", -7}, {"t", "007x"}}));
    EXPECT_EQ(global.policy, binary::TransferPolicy::kCompatible);
    EXPECT_EQ(global.connection.connectTimeout, std::chrono::milliseconds(2500));
    EXPECT_EQ(global.logLevel, platform::LogLevel::kOff);
  }
  EXPECT_EQ(globalOf({"demo"}).policy, binary::TransferPolicy::kSafe);
}

TEST(CommandLine, TokenComesFromOptionThenHeaderThenEnvironment) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/token";
  std::ofstream(path) << "  from-file \r\nsecond line\n";
  const std::string key = "X-Pelmar-Authorization";
  const std::pair<Words, Dictionary> cases[] = {
      {{"demo"}, {{key, "from-environment"}}},
      {{"demo", "--token", "t"}, {{key, "t"}}},
      {{"demo", "--token-file", path}, {{key, "from-file"}}},
      {{"demo", "--header", "x-pelmar-authorization: h"}, {{"x-pelmar-authorization", "h"}}},
      {{"demo", "--header", "x-pelmar-authorization: h", "--token", "t"}, {{key, "t"}}},
  };
  for (const auto& [words, headers] : cases) {
    const GlobalOptions global = globalOf(words, "from-environment");
    EXPECT_EQ(global.headers, headers);
    const platform::Value& token = headers[key];  // missing where it was given as a header
    EXPECT_EQ(global.token, token.isPresent() ? std::optional(token.textValue()) : std::nullopt);
  }
  EXPECT_TRUE(globalOf({"demo"}).headers.empty());
}

TEST(CommandLine, ProxyIsTakenApartAndItsPasswordIsNeverQuoted) {
  const test::TemporaryDirectory directory;
  const std::string file = directory.path() + "/password";
  std::ofstream(file) << "from file\n";
  const struct {
    std::string proxy;
    Words more;
    std::string url, user, password;
  } cases[] = {
      {"proxy:3128", {}, "http://proxy:3128", "", ""},
      {"socks5h://[::1]:1", {}, "socks5h://[::1]:1", "", ""},
      {"http://ann:a%40b%25@h:1", {}, "http://h:1", "ann", "a@b%"},
      {"ann:a@b:c@h", {}, "http://h", "ann", "a@b:c"},
      {"https://ann@h/", {"--proxy-password-file", file}, "https://h/", "ann", "from file"},
  };
  for (const auto& c : cases) {
    Words words = {"list", "http://h", "--proxy", c.proxy};
    words.insert(words.end(), c.more.begin(), c.more.end());
    const auto proxy = globalOf(words).connection.proxy;
    ASSERT_TRUE(proxy);
    EXPECT_EQ(proxy->url, c.url);
    EXPECT_EQ(proxy->user, c.user);
    EXPECT_EQ(proxy->password, c.password);
  }
  for (const std::string wrong :
       {"http://ann:marker@h/path", "http://:marker@h", "socks4://ann:marker@h",
        "http://ann:marker@", "x://ann:marker@h"}) {
    const Parsed parsed = parse({"list", "http://h", "--proxy", wrong});
    EXPECT_EQ(parsed.line.exitStatus, 2) << wrong;
    EXPECT_EQ(parsed.messages.find("marker"), std::string::npos) << parsed.messages;
  }
}

TEST(CommandLine, KeyOfARecordAndKeyOfACertificateKeepApart) {
  const test::TemporaryDirectory directory;
  const std::string pem = directory.path() + "/c.pem";
  std::ofstream(pem) << "";
  const GlobalOptions global =
      globalOf({"--cert", pem, "--key", pem, "blob", "path", "--db", "d", "--table", "t",
                "--column", "c", "--key", "id=1", "--retry", "2", "--limit-rate", "64K"});
  EXPECT_EQ(global.connection.key, pem);
  EXPECT_EQ(global.connection.retries, 2);
  EXPECT_EQ(global.connection.limitRate, 64 * 1024);
}

TEST(CommandLine, WrongUsageIsExplainedWithStatusTwo) {
  const std::pair<Words, std::string> cases[] = {
      {{}, "no command given"},
      {{"list", "http://h", "more"}, "'more' is one argument too many"},
      {{"upload", "http://h", "f", "--meta", "nothing"}, "not of the form KEY=VALUE"},
      {{"upload", "http://h", "f", "--chunk-size", "9999999999G"}, "not a positive size"},
      {{"delete", "http://h"}, "FILE_ID or --where is required"},
      {{"delete", "http://h", "--where", "a=1", "--where", "a=2"}, "given twice"},
      {{"demo", "--header", "A: b\r\nC: d"}, "control characters"},
      {{"demo", "--token", "t", "--token-file", "f"}, "--token"},
      {{"demo", "--stall-timeout", "nan"}, "not a number of seconds"},
      {{"upload", "http://h", "f", "--dry-run"}, "there is no --dry-run of this command"},
      {{"demo", "--parallel", "0"}, "not a number from 1 to 64"},
      {{"download", "http://h", "f", "--if-exists", "ask"}, "not one of fail, replace, keep"},
      {{"download", "http://h", "f", "-o", "-", "--json"}, "exclude each other"},
      {{"object", "list", "s3://b"}, "'b' is no name of a bucket"},
      {{"object", "put", "s3://bkt/k", "--file", "f", "--part-size", "1M"}, "from 5M to 5G"},
      {{"object", "get", "s3://bkt/k", "-o", "/tmp"}, "'/tmp' is a directory"},
      {{"upload", "http://h", "a", "b", "--name", "n"}, "is for one file"},
      {{"upload", "http://h", "a", "-"}, "'-' is for one file alone"},
      {{"doctor"}, "one of URL, s3://BUCKET and --config is required"},
      {{"list", "http://h", "--retry", "-1"}, "not a number from 0 to 99"},
      {{"list", "http://h", "--limit-rate", "0"}, "not a positive size"},
      {{"list", "http://h", "--proxy", "ftp://h"}, "--proxy: begins with none of http://"},
      {{"list", "http://h", "--proxy", "h", "--proxy-env"}, "--proxy"},
      {{"list", "http://h", "--key", "/nowhere.pem"}, "there is no file '/nowhere.pem'"},
      {{"list", "http://h", "--cert-key", "/dev/../etc/passwd"}, "needs --cert"},
      {{"list", "http://h", "--pinned-key", "abc"}, "--pinned-key: has an entry"},
      {{"list", "http://h", "--user-agent", "a\nb"}, "--user-agent: has control characters"},
      {{"sandbox", "--port", "65536"}, "not a port"},
      {{"sandbox", "--object-store", "http://h/bucket"}, "not scheme, host and port"},
      {{"object", "get"}, "--config"},
      {{"object", "get", "s3://bkt/k", "--endpoint", "http://h/path"}, "not scheme, host and port"},
      {{"object", "get", "s3://bkt/"}, "s3://bkt/ has no key"},
      {{"object", "get", "s3://"}, "not of the form s3://BUCKET/KEY"},
      {{"object", "head", "http://b/k"}, "not of the form s3://BUCKET/KEY"},
      {{"object", "put", "s3://bkt/k"}, "--file is required"},
      {{"object", "delete", "s3://bkt/k", "--endpoint", "http://h", "--access-key", "a"}, "secret"},
      {{"object", "put", "--config", "/nowhere.json"}, "cannot read /nowhere.json"},
      {{"blob", "donwload"}, "there is no command 'blob donwload'; did you mean 'blob download'?"},
      {{"blob", "path", "--db", "d", "--table", "t", "--column", "c"}, "at least one pair"},
  };
  for (const auto& [words, message] : cases) {
    const Parsed parsed = parse(words);
    EXPECT_FALSE(parsed.line.invocation) << message;
    EXPECT_EQ(parsed.line.exitStatus, 2) << message;
    EXPECT_EQ(parsed.results, "") << message;
    EXPECT_NE(parsed.messages.find(message), std::string::npos) << parsed.messages;
    EXPECT_NE(parsed.messages.find("--help"), std::string::npos) << parsed.messages;
  }
}

}  // namespace
}  // namespace varo::cli
