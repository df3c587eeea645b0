#include "tests/support/EnvironmentVariable.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"
#include "varo/credentials.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::writeFile;
using testing::HasSubstr;
using testing::Not;

/// "token access secret session seconds", or what is wrong.
std::string shown(const Outcome<Credentials>& got) {
  if (!got) return got.error().message;
  std::string all =
      got->token + " " + got->accessKey + " " + got->secretKey + " " + got->sessionToken + " ";
  if (!got->expires) return all + "-";
  return all + std::to_string(std::chrono::system_clock::to_time_t(*got->expires));
}

class CredentialsSourcesTest : public testing::Test {
 protected:
  [[nodiscard]] std::string write(const std::string& text, ::mode_t mode = 0600) const {
    writeFile(path_, text);
    EXPECT_EQ(::chmod(path_.c_str(), mode), 0);
    return path_;
  }

  const test::TemporaryDirectory temporary_;
  const std::string path_ = temporary_.path() + "/key";
};

TEST_F(CredentialsSourcesTest, ReadsAFileAnewEachTimeAndShowsNothingOfIt) {
  const struct {
    std::string text;
    std::string expected;
  } kCases[] = {
      {" Bearer a.b \n", "Bearer a.b    -"},
      {R"({"token":"t","other":1})", "t    -"},
      {R"({"accessKey":"a","secretKey":"s","sessionToken":"x","token":null,)"
       R"("expires":"1994-11-06T09:49:37.5+01:00"})",
       " a s x 784111777"},
      {R"({"token":"t","expires":"9999-12-31T23:59:59Z"})", "t    7258118400"},
      {R"({"token":"t","expires":"0001-01-01T00:00:00Z"})", "t    -5364662400"},
      {R"({"token":"marker","expires":"tomorrow"})", "\"expires\" is no time"},
      {R"({"token":["marker"]})", "\"token\" is no text"},
      {R"({"accessKey":"marker"})", "there is only one"},
      {R"({"token":"marker")", "no JSON object"},
      {R"({"token":"marker\u000aX: y"})", "characters that no header can have"},
      {"marker\nmarker", "characters that no header can have"},
      {"", "neither a token nor an access key"},
      {"marker" + std::string(70'000, 'x'), "more than 64 KiB"},
  };
  const auto provider = credentialsFromFile(path_);
  EXPECT_THAT(shown(provider()), HasSubstr(path_)) << "there is none";
  for (const auto& c : kCases) {
    static_cast<void>(write(c.text));
    EXPECT_THAT(shown(provider()), HasSubstr(c.expected));
    EXPECT_THAT(shown(provider()), Not(HasSubstr("marker")));
  }
}

TEST_F(CredentialsSourcesTest, RefusesAFileThatAllUsersCanReadUnlessToldOtherwise) {
  for (const ::mode_t mode : {0600U, 0640U, 0644U, 0602U}) {
    const std::string path = write("t", mode);
    EXPECT_EQ(credentialsFromFile(path)().has_value(), (mode & 06U) == 0) << mode;
    EXPECT_TRUE(credentialsFromFile(path, ReadableBy::kAnybody)()) << mode;
  }
  EXPECT_FALSE(credentialsFromFile(temporary_.path())()) << "a directory";
}

TEST_F(CredentialsSourcesTest, ReadsTheEnvironment) {
  const auto provider = credentialsFromEnvironment({.token = "VARO_TEST_TOKEN",
                                                    .accessKey = "VARO_TEST_ACCESS",
                                                    .secretKey = "VARO_TEST_SECRET",
                                                    .sessionToken = "VARO_TEST_SESSION",
                                                    .expires = "VARO_TEST_EXPIRES"});
  EXPECT_THAT(shown(provider()), HasSubstr("neither"));
  const test::EnvironmentVariable access("VARO_TEST_ACCESS", "a");
  EXPECT_THAT(shown(provider()), HasSubstr("only one"));
  const test::EnvironmentVariable secret("VARO_TEST_SECRET", "s");
  EXPECT_EQ(shown(provider()), " a s  -");
  const test::EnvironmentVariable expires("VARO_TEST_EXPIRES", "1994-11-06T08:49:37Z");
  EXPECT_EQ(shown(provider()), " a s  784111777");
}

TEST_F(CredentialsSourcesTest, RunsACommandWithoutAShellAndKillsWhatDoesNotEnd) {
  const struct {
    std::vector<std::string> command;
    std::string expected;
  } kCases[] = {
      {{"printf", "%s", "$HOME;*"}, "$HOME;*    -"},
      {{"sh", "-c", "printf '{\"token\":\"t\"}'"}, "t    -"},
      {{"cat"}, "neither a token nor an access key"},  // there is no input
      {{"sh", "-c", "echo marker; exit 3"}, "has ended with status 3"},
      {{"sh", "-c", "kill -9 $$"}, "was ended by signal 9"},
      {{"yes", "marker"}, "more than 64 KiB"},
      {{"sh", "-c", "sleep 600 & sleep 600"}, "has not ended after 200 ms"},
      {{"sh", "-c", "exec >&-; sleep 600"}, "has not ended after 200 ms"},
      {{"/no/such/program"}, "cannot be started"},
      {{}, "no command"},
  };
  for (const auto& c : kCases) {
    const bool isSlow = c.expected.find("200 ms") != std::string::npos;
    const auto got = credentialsFromCommand(c.command, isSlow ? 200ms : 30s)();
    EXPECT_THAT(shown(got), HasSubstr(c.expected));
    EXPECT_THAT(shown(got), Not(HasSubstr("marker")));
  }
  // Files that this program has open are none of the command's.
  const int open = ::dup(STDIN_FILENO);
  ASSERT_GE(open, 0);
  const std::string looks =
      fmt::format("test -e /dev/fd/0 && ! test -e /dev/fd/{} && echo t", open);
  EXPECT_EQ(shown(credentialsFromCommand({"sh", "-c", looks})()), "t    -");
  ::close(open);
  // A program that waits for no children loses their statuses, not their output.
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(shown(credentialsFromCommand({"echo", "t"})()), "t    -");
  std::signal(SIGCHLD, before);
}

}  // namespace
}  // namespace varo
