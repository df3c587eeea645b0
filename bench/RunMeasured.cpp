// Runs one command and prints, as JSON on standard output, what it used:
//
//   run_measured COMMAND [ARGUMENT...]
//
// A process is charged with the memory of the one it was forked from, up to its exec; so a script's
// interpreter would hide a client that needs less than the interpreter. This program is small. The
// command's own standard output goes to standard error.

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: run_measured COMMAND [ARGUMENT...]\n", stderr);
    return 2;
  }
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0 ||
      posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO) != 0) {
    std::perror("run_measured");
    return 1;
  }
  const auto start = std::chrono::steady_clock::now();
  pid_t child = -1;
  if (posix_spawnp(&child, argv[1], &actions, nullptr, argv + 1, environ) != 0) {
    std::perror(argv[1]);
    return 1;
  }
  int status = 0;
  rusage used{};
  if (wait4(child, &status, 0, &used) != child) {
    std::perror("wait4");
    return 1;
  }
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  posix_spawn_file_actions_destroy(&actions);
  std::printf("{\"wall\":%.6f,\"cpu\":%.6f,\"peak_kib\":%ld,\"exit\":%d}\n", wall.count(),
              seconds(used.ru_utime) + seconds(used.ru_stime), used.ru_maxrss,
              WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}
