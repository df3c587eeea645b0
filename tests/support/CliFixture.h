#pragma once

#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Value.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace varo::test {

using Words = std::vector<std::string>;

/// The built program against a sandbox in this process.
class CliFixture : public testing::Test {
 protected:
  struct Run {
    int status = 0;
    std::string output;
    std::string errors;
  };

  void SetUp() override {
    const auto error = sandbox_.start();
    ASSERT_FALSE(error) << error->message;
    std::filesystem::create_directories(temporaries());
  }
  // A program that is gone leaves nothing in the directory for temporary files.
  void TearDown() override { EXPECT_TRUE(std::filesystem::is_empty(temporaries())); }

  static Words joined(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  [[nodiscard]] std::string home() const { return directory_.path() + "/home"; }
  [[nodiscard]] std::string temporaries() const { return directory_.path() + "/tmp"; }
  [[nodiscard]] std::string url() const { return sandbox_.url(); }
  [[nodiscard]] sandbox::SandboxServer& sandbox() { return sandbox_; }

  [[nodiscard]] ChildProcess::Settings settingsFor(Words arguments) const {
    arguments.insert(arguments.begin(), {"--home", home()});
    return {VARO_PROGRAM,
            arguments,
            {{"TMPDIR", temporaries()}, {"VARO_TOKEN", ""}},
            directory_.path()};
  }
  /// Runs `command` of a shell, where "$0" "$@" stands for the program and its arguments.
  [[nodiscard]] Run runInShell(const std::string& command, const Words& arguments) const {
    ChildProcess::Settings settings = settingsFor(arguments);
    settings.arguments.insert(settings.arguments.begin(), {"-c", command, settings.program});
    settings.program = "/bin/sh";
    return run(settings);
  }
  [[nodiscard]] static Run run(const ChildProcess::Settings& settings) {
    ChildProcess child(settings);
    const int status = child.wait();
    return {status, child.output(), child.errors()};
  }
  [[nodiscard]] Run run(const Words& arguments) const { return run(settingsFor(arguments)); }

  /// Sample bytes in a file.
  std::string makeFile(const std::string& name, std::size_t size) {
    writeFile(directory_ / name, sampleBytes(size));
    return directory_ / name;
  }

  /// Interrupts a run with --json that has to end promptly then.
  static std::vector<platform::Dictionary> interrupt(ChildProcess& child,
                                                     const std::string& outcome, int signal) {
    child.signal(signal);
    const int status = child.wait(std::chrono::seconds(10));
    EXPECT_EQ(status, 130);
    return eventsEndingIn(outcome, {status, child.output(), child.errors()});
  }

  /// The events of a run with --json; each line must be a JSON object with "event".
  static std::vector<platform::Dictionary> eventsOf(const std::string& output) {
    std::vector<platform::Dictionary> events;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
      const auto value = platform::json::parse(line);
      EXPECT_TRUE(value.ok() && value->isDictionary()) << line;
      if (value.ok()) events.push_back(value->dictionaryValue());
      EXPECT_TRUE(!events.empty() && events.back().contains("event")) << line;
    }
    return events;
  }
  /// The events, of which only the last may be an outcome, and is `outcome`.
  static std::vector<platform::Dictionary> eventsEndingIn(const std::string& outcome,
                                                          const Run& run) {
    std::vector<platform::Dictionary> events = eventsOf(run.output);
    EXPECT_FALSE(events.empty()) << run.errors;
    if (events.empty()) return {platform::Dictionary()};
    for (std::size_t i = 0; i < events.size(); ++i) {
      const std::string name = events[i]["event"].textValue();
      const bool isOutcome = name == "success" || name == "failure" || name == "paused";
      EXPECT_EQ(isOutcome, i + 1 == events.size()) << run.output;
    }
    EXPECT_EQ(events.back()["event"], platform::Value(outcome)) << run.output << run.errors;
    return events;
  }
  /// Of a run with --json that succeeded.
  static platform::Dictionary resultOf(const Run& run) {
    return eventsEndingIn("success", run).back()["result"].dictionaryValue();
  }

 private:
  TemporaryDirectory directory_;
  sandbox::SandboxServer sandbox_{[this] {
    sandbox::SandboxOptions options;
    options.dataDirectory = directory_ / "sandbox";
    return options;
  }()};
};

}  // namespace varo::test
