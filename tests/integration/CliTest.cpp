#include "tests/support/Await.h"
#include "tests/support/CliFixture.h"

namespace varo::test {
namespace {

using namespace platform;

using CliTest = CliFixture;

TEST_F(CliTest, StandardInputGoesUpLikeAFileWithProgressAndATokenThatIsNotPrinted) {
  ChildProcess::Settings settings =
      settingsFor({"--json", "upload", url(), "-", "--name", "in.bin", "--raw", "--meta", "a=1",
                   "b=2", "--log-level", "trace"});
  settings.input = contentOf(makeFile("source", 2'500'000));
  settings.environment.back().second = "s3cr3t-marker";
  const Run up = run(settings);
  EXPECT_GT(sandbox().serviceStats().tokenHeaders, 0U);
  EXPECT_EQ((up.output + up.errors).find("s3cr3t-marker"), std::string::npos);
  const auto events = eventsEndingIn("success", up);
  std::vector<std::int64_t> states;
  for (const Dictionary& event : events) {
    if (event["event"] == Value("progress")) states.push_back(event["state"].integerValue());
  }
  EXPECT_EQ(states, (std::vector<std::int64_t>{0, 1, 1, 2}));
  const std::string id = events.back()["result"].dictionaryValue()["file_id"].textValue();
  const Run down = run({"download", url(), id});
  EXPECT_NE(down.output.find(home() + "/Downloads/in.bin (2.4 MiB)"), std::string::npos);
  EXPECT_EQ(down.errors, "");
  EXPECT_TRUE(contentOf(home() + "/Downloads/in.bin") == *settings.input);
}

TEST_F(CliTest, TraceHasEachRequestAndTheCommandAndNoSecret) {
  const std::string file = home() + "-trace";
  const struct {
    Words words;
    std::vector<std::string> names;
  } cases[] = {
      {{"upload", url(), makeFile("f", 10)}, {"POST", "PUT", "PUT", "varobinary upload"}},
      {{"list", url()}, {"GET", "varobinary list"}},
      {{"delete", url(), "--where", "file_name=f", "--dry-run"}, {"GET", "varobinary delete"}},
      {{"download", url(), "none"}, {"GET", "varobinary download"}},
  };
  for (const auto& [words, names] : cases) {
    const Run traced = run(joined({"--trace", file, "--token", "s3cret"}, words));
    EXPECT_EQ((std::filesystem::status(file).permissions() & std::filesystem::perms::all),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(contentOf(file).find("s3cret"), std::string::npos);
    std::istringstream lines(contentOf(file));
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
      const Dictionary span = json::parse(line)->dictionaryValue();
      found.push_back(span["name"].textValue());
      const bool isCommand = found.back().starts_with("varobinary");
      EXPECT_EQ(span["parentSpanId"].textValue(), isCommand ? "" : "0000000000000001") << line;
      EXPECT_GE(span["endTimeUnixNano"].integerValue(), span["startTimeUnixNano"].integerValue());
      if (isCommand) {
        const Dictionary attributes = span["attributes"].dictionaryValue();
        EXPECT_EQ(attributes["process.exit.code"].integerValue(), traced.status) << traced.errors;
      }
    }
    EXPECT_EQ(found, names);
  }
  const auto before = sandbox().serviceStats().requests;
  const Run refused = run({"--json", "--trace", home() + "/none/trace", "list", url()});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(eventsEndingIn("failure", refused).back()["message"].textValue().find("/none/trace"),
            std::string::npos)
      << refused.output;
  EXPECT_EQ(sandbox().serviceStats().requests, before);
}

TEST_F(CliTest, PeopleReadTheIdOfAnUploadAndAboutTheAttemptsOfAnAcceptedDelete) {
  sandbox().setDeletes({.mode = sandbox::DeleteKind::Mode::kAccepted, .polls = 1});
  const std::string begin = "Uploaded f as ";
  const Run uploaded = run({"upload", url(), makeFile("f", 10)});
  ASSERT_TRUE(uploaded.output.starts_with(begin)) << uploaded.errors;
  const std::string id =
      uploaded.output.substr(begin.size(), uploaded.output.find('\n') - begin.size());
  const Run result = run({"delete", url(), id});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "Deleted " + id + "\n");
  EXPECT_EQ(result.errors, "The service is still working, attempt 1 of 5\n");
}

TEST_F(CliTest, ExitStatusAndMessagesSayWhatHappened) {
  const std::pair<Words, std::string> cases[] = {
      {{"list", "ftp://host"}, "hint: Give the base URL"},
      {{"list", "http://127.0.0.1:1/services"}, "hint: Is the service running"},
      {{"download", url(), "no-such-id"}, "hint: 'varobinary list URL'"},
      {{"delete", url(), "no-such-id"}, "no file matches"},
      {{"upload", url(), makeFile("empty", 0)}, "hint: The file must exist"},
      {{"upload", url(), "/nowhere/\x1b[2J", "--raw"}, "/nowhere/\uFFFD[2J"},
      {{"sandbox", "--listen", "203.0.113.1"}, "cannot listen"},
  };
  for (const auto& [words, message] : cases) {
    const Run result = run(words);
    EXPECT_EQ(result.status, 1) << result.errors;
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
  }
}

TEST_F(CliTest, UnwritableOutputIsAFailure) {
  const Run result = runInShell("\"$0\" \"$@\" >/dev/full", {"--json", "list", url()});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.errors.find("standard output could not be written"), std::string::npos);
}

TEST_F(CliTest, InterruptWhileStandardInputIsReadEndsPromptlyAndAKillLeavesNothing) {
  ChildProcess::Settings settings = settingsFor({"--json", "upload", url(), "-"});
  settings.input = std::nullopt;
  for (const bool isKilled : {false, true}) {
    ChildProcess child(settings);
    ASSERT_TRUE(eventually([&] { return child.hasFileOf(temporaries()); }));
    if (!isKilled) interrupt(child, "failure", SIGTERM);
    // Otherwise its destructor kills it.
  }
}

TEST_F(CliTest, SandboxSaysWhenItIsReadyAndRunsUntilInterrupted) {
  const std::string database = home() + "/example.db";
  ChildProcess server(settingsFor({"--json", "sandbox", "--example-db", database}));
  ASSERT_TRUE(eventually([&] { return server.output().find('\n') != std::string::npos; }));
  const auto events = eventsOf(server.output());
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0]["event"], Value("ready"));
  EXPECT_TRUE(std::filesystem::exists(database));

  ChildProcess::Settings client = settingsFor({"list", events[0]["url"].textValue()});
  client.directory = home();
  std::filesystem::create_directories(client.directory);
  EXPECT_EQ(run(client).output, "No files.\n");
  server.signal(SIGINT);
  EXPECT_EQ(server.wait(), 130);
}

TEST_F(CliTest, DemoFindsEverythingInOrder) {
  const Run result = run({"--json", "demo"});
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  std::size_t steps = 0;
  for (const Dictionary& event : eventsEndingIn("success", result)) {
    if (event["event"] != Value("step")) continue;
    ++steps;
    EXPECT_EQ(event["ok"], Value(true)) << event["what"].textValue();
  }
  EXPECT_GT(steps, 20U);
}

}  // namespace
}  // namespace varo::test
