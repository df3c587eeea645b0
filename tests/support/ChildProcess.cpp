#include "tests/support/ChildProcess.h"

#include "tests/support/Await.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace varo::test {

ChildProcess::ChildProcess(const Settings& settings)
    : outputPath_(settings.directory + "/stdout"), errorsPath_(settings.directory + "/stderr") {
  int input = -1;
  if (settings.input) {
    const std::string path = settings.directory + "/stdin";
    writeFile(path, *settings.input);
    input = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } else {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    input = ends[0];
    inputWriter_ = ends[1];
  }
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputPath_.c_str(), flags, 0600);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorsPath_.c_str(), flags, 0600);

  std::vector<std::string> words = {"env"};
  for (const auto& [name, value] : settings.environment) words.push_back(name + "=" + value);
  words.push_back(settings.program);
  words.insert(words.end(), settings.arguments.begin(), settings.arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const int failed = ::posix_spawnp(&pid_, "env", &actions, nullptr, pointers.data(), ::environ);
  EXPECT_EQ(failed, 0) << settings.program;
  if (failed != 0) pid_ = -1;
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(input);
}

ChildProcess::~ChildProcess() {
  if (inputWriter_ >= 0) ::close(inputWriter_);
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void ChildProcess::signal(int number) const {
  ASSERT_GT(pid_, 0);
  EXPECT_EQ(::kill(pid_, number), 0);
}

int ChildProcess::wait(std::chrono::seconds limit) {
  int status = 0;
  if (pid_ <= 0) return -1;
  const auto ended = [&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; };
  if (!eventually(ended, limit)) {
    ADD_FAILURE() << "the program still runs\n" << output() << errors();
    return -1;
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool ChildProcess::hasFileOf(const std::string& directory) const {
  std::error_code gone;
  const std::filesystem::directory_iterator files("/proc/" + std::to_string(pid_) + "/fd", gone);
  return !gone && std::any_of(begin(files), end(files), [&directory](const auto& file) {
    std::error_code closed;
    const std::string target = std::filesystem::read_symlink(file.path(), closed);
    // The thread sanitizer has a file of its own there before the program begins.
    return !closed && target.starts_with(directory + '/') &&
           !target.starts_with(directory + "/tsan.");
  });
}

std::string ChildProcess::output() const { return contentOf(outputPath_); }
std::string ChildProcess::errors() const { return contentOf(errorsPath_); }

}  // namespace varo::test
