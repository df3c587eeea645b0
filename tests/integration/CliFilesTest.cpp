#include "tests/support/Await.h"
#include "tests/support/CliFixture.h"

#include <gmock/gmock.h>

#include <csignal>

// The built program on files of the object service: where they go, and what failures say.

namespace varo::test {
namespace {

using namespace platform;
using testing::HasSubstr;

class CliFilesTest : public CliFixture {
 protected:
  /// Uploads `content` as "f.txt"; its id.
  std::string uploaded(const std::string& content) {
    const std::string file = makeFile("f.txt", 1);
    writeFile(file, content);
    return resultOf(run({"--json", "upload", url(), file}))["file_id"].textValue();
  }
};

TEST_F(CliFilesTest, DownloadGoesWhereItIsAskedToAndReplacesWhatItMay) {
  const std::string id = uploaded("new");
  std::filesystem::create_directories(home() + "/Downloads");
  struct Case {
    Words words;
    int status;
    std::string here, beside, says;
  };
  const Case cases[] = {
      {{}, 1, "old", "", "--if-exists replace, keep or number"},
      {{"--if-exists", "fail"}, 1, "old", "", "is there already"},
      {{"--if-exists", "keep"}, 0, "old", "", "was there already"},
      {{"--if-exists", "number"}, 0, "old", "new", "f (1).txt (3 B)"},
      {{"--if-exists", "replace"}, 0, "new", "", "Downloaded"},
  };
  for (const std::string place : {"/o/f.txt", "/Downloads/f.txt"}) {
    const std::filesystem::path here = home() + place;
    const std::filesystem::path beside = here.parent_path() / "f (1).txt";
    std::filesystem::create_directories(here.parent_path());
    for (const Case& c : cases) {
      const bool isNamed = here.parent_path().filename() == "o";
      if (!isNamed && c.words.empty()) continue;  // that is the library's own way
      writeFile(here, "old");
      std::filesystem::remove(beside);
      const Words words = joined({"download", url() + "/", id}, c.words);
      const Run result = run(isNamed ? joined(words, {"-o", here}) : words);
      EXPECT_EQ(result.status, c.status) << result.errors;
      EXPECT_THAT(result.output + result.errors, HasSubstr(c.says));
      EXPECT_EQ(contentOf(here), c.here);
      EXPECT_EQ(std::filesystem::exists(beside) ? contentOf(beside) : "", c.beside);
    }
  }
  EXPECT_EQ(run({"download", url(), id, "-o", "-"}).output, "new");
  const Run full = runInShell("\"$0\" \"$@\" >/dev/full", {"download", url(), id, "-o", "-"});
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.errors, HasSubstr("cannot write standard output: No space left"));
}

TEST_F(CliFilesTest, FailureSaysWhatAProgramDecidesByInOneShapeAndNothingBesides) {
  struct Case {
    Words words;
    std::string kind, names;
    bool isRetryable;
    std::int64_t status;
  };
  const std::string nowhere = "http://127.0.0.1:1/services";
  const Case cases[] = {
      {{"list", nowhere}, "noConnection", nowhere, true, 0},
      {{"download", nowhere, "x7"}, "noConnection", "x7", true, 0},
      {{"download", nowhere, "x7", "-o", "x"}, "noConnection", "x7", true, 0},
      {{"download", url(), "x7"}, "notFound", "x7", false, 0},
      {{"upload", url(), "/nowhere/f"}, "localFile", "/nowhere/f", false, 0},
      {{"list", url()}, "throttled", url(), true, 429},
  };
  for (const Case& c : cases) {
    sandbox().clearFaults();
    if (c.status != 0) {
      sandbox().addFault(
          {{.path = "/objects/File"},
           {.status = static_cast<int>(c.status), .headers = {{"Retry-After", "7"}}}});
    }
    const Run result = run(joined({"--json", "--retry", "0"}, c.words));
    const Dictionary failure = eventsEndingIn("failure", result).back();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(failure.contains("error"));
    EXPECT_EQ(failure["kind"].textValue(), c.kind) << result.output;
    EXPECT_THAT(failure["message"].textValue(), HasSubstr(c.names));
    EXPECT_EQ(failure["retryable"], Value(c.isRetryable)) << result.output;
    EXPECT_EQ(failure["httpStatus"].integerValue(), c.status);
    EXPECT_EQ(failure["retryAfter"].integerValue(), c.status == 0 ? 0 : 7);
    EXPECT_EQ(result.errors, "");
  }
}

TEST_F(CliFilesTest, SeveralFilesAreUploadedSideBySideAndOneThatFailsIsNamed) {
  const std::string a = makeFile("a.bin", 2'000'000);
  const std::string b = makeFile("-b.bin", 10);
  const std::string empty = makeFile("empty", 0);
  const Words three = {"upload", url(), "--meta", "kind=test", "--", a, b, empty};
  const Run people = run(three);
  EXPECT_EQ(people.status, 1);
  EXPECT_THAT(people.output, testing::AllOf(HasSubstr("Uploaded " + a + " as "),
                                            HasSubstr("Uploaded " + b + " as ")));
  EXPECT_THAT(people.errors, testing::AllOf(HasSubstr(empty), HasSubstr("1 of 3 files failed")));
  std::vector<std::string> ends;
  for (const Dictionary& event : eventsEndingIn("failure", run(joined({"--json"}, three)))) {
    const std::string name = event["event"].textValue();
    EXPECT_EQ(event.contains("file"), name != "failure") << name;
    if (name == "itemSuccess" || name == "itemFailure") {
      ends.push_back(name + event["file"].textValue() + event["kind"].textValue());
    }
  }
  EXPECT_THAT(ends, testing::UnorderedElementsAre("itemSuccess" + a, "itemSuccess" + b,
                                                  "itemFailure" + empty + "invalidArgument"));
  const Dictionary both = resultOf(run({"--json", "upload", url(), a, a, "--parallel", "1"}));
  EXPECT_EQ(both["files"].array()->size(), 2U);
  const Dictionary listed =
      resultOf(run({"--json", "list", url(), "--criteria", "kind eq 'test'"}));
  EXPECT_EQ(listed["records"].array()->size(), 4U);
}

TEST_F(CliFilesTest, InterruptOfSeveralUploadsLeavesNoRecord) {
  const std::string file = makeFile("a.bin", 3'000'000);
  ChildProcess child(settingsFor({"--json", "--limit-rate", "100K", "upload", url(), file, file}));
  ASSERT_TRUE(eventually([&] { return child.output().find("itemProgress") != std::string::npos; }));
  interrupt(child, "failure", SIGINT);
  std::size_t removed = 0;
  for (const auto& request : sandbox().requests()) removed += request.method == "DELETE" ? 1 : 0;
  EXPECT_EQ(removed, 2U);
}

TEST_F(CliFilesTest, DownloadTellsItsBytesAndKeepsTheFileWhole) {
  const std::string id = uploaded(std::string(2'000'000, 'x'));
  const auto events =
      eventsEndingIn("success", run({"--json", "--limit-rate", "2M", "download", url(), id}));
  ASSERT_GT(events.size(), 1U);
  EXPECT_EQ(events.front()["event"], Value("chunk"));
  EXPECT_EQ(events.front()["totalSize"], Value(2'000'000));
  EXPECT_EQ(contentOf(home() + "/Downloads/f.txt"), std::string(2'000'000, 'x'));
}

TEST_F(CliFilesTest, DeleteSaysWhatItWouldDeleteAndAsksOnATerminalOnly) {
  const std::string id = uploaded("content");
  const Words where = {"delete", url(), "--where", "file_name=f.txt"};
  const auto isThere = [&] { return run({"list", url()}).output.find(id) != std::string::npos; };
  for (const Words& words : {where, Words{"delete", url(), id}}) {
    const Words dry = joined(words, {"--dry-run"});
    const Run people = run(dry);
    EXPECT_THAT(people.output, testing::AllOf(HasSubstr(id), HasSubstr("1 file would be deleted")));
    const Dictionary result = resultOf(run(joined(dry, {"--json"})));
    EXPECT_EQ((*result["records"].array())[0].dictionaryValue()["file_id"], Value(id));
    EXPECT_TRUE(isThere());
  }
  // `script` runs it on a terminal of its own.
  const std::string onTerminal =
      "P=\"$0\"; for W; do P=\"$P '$W'\"; done; script -qec \"$P\" /dev/null";
  const Run no = runInShell("echo n | { " + onTerminal + "; }", where);
  EXPECT_THAT(no.output, testing::AllOf(HasSubstr("1 file will be deleted. Type y"),
                                        HasSubstr("nothing was deleted")));
  EXPECT_EQ(no.status, 1);
  EXPECT_TRUE(isThere());
  EXPECT_EQ(runInShell("echo y | { " + onTerminal + "; }", where).status, 0);
  EXPECT_FALSE(isThere());
  (void)uploaded("content");
  EXPECT_EQ(run(where).status, 0);
}

}  // namespace
}  // namespace varo::test
