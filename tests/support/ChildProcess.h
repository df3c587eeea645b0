#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace varo::test {

/// A program run as a user runs it. What it prints goes to files in a directory of the test's, so
/// that no pipe can fill up. Killed with this object if it still runs.
class ChildProcess {
 public:
  struct Settings {
    std::string program;
    std::vector<std::string> arguments;
    /// Set on top of the test's own environment.
    std::vector<std::pair<std::string, std::string>> environment;
    /// Exists, and outlives the process.
    std::string directory;
    /// What it reads, then the end; none: an input that neither has anything nor ends.
    std::optional<std::string> input = std::string();
  };

  /// Starts it; a failure to do so fails the test.
  explicit ChildProcess(const Settings& settings);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void signal(int number) const;
  /// The exit status, minus the signal that ended it; fails the test when it takes too long.
  int wait(std::chrono::seconds limit = std::chrono::seconds(60));

  /// Whether it has a file of this directory open, one without a name too.
  [[nodiscard]] bool hasFileOf(const std::string& directory) const;
  /// What it has printed so far.
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string errors() const;

 private:
  const std::string outputPath_;
  const std::string errorsPath_;
  pid_t pid_ = -1;
  int inputWriter_ = -1;  // kept open while the input is not to end
};

}  // namespace varo::test
