#include "Client/CredentialsCommand.h"

#include "Client/CredentialsSources.h"
#include "Client/Failures.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/System/SpawnDescriptors.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

// POSIX has it in no header.
extern char** environ;

namespace varo::detail {

using Steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

/// Between two looks at whether a process has ended: POSIX has no wait with a time-out.
constexpr int kLookMs = 10;
constexpr milliseconds kLongestTimeout = std::chrono::hours(24);

/// A descriptor, closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  [[nodiscard]] int get() const noexcept { return descriptor_; }

 private:
  int descriptor_;
};

/// How to start a child: no input, our end of a pipe as its output, no other open file but the
/// standard error, a process group of its own, and no signal blocked or ignored that we have no use
/// for.
class SpawnSettings {
 public:
  explicit SpawnSettings(int output) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
    keep(::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    keep(::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO));
    // The application's files, of which not all are marked to be closed.
    keep(platform::system::closeFrom(actions_, STDERR_FILENO + 1));
    sigset_t signals;
    ::sigemptyset(&signals);
    keep(::posix_spawnattr_setsigmask(&attributes_, &signals));
    ::sigaddset(&signals, SIGPIPE);
    keep(::posix_spawnattr_setsigdefault(&attributes_, &signals));
    keep(::posix_spawnattr_setpgroup(&attributes_, 0));
    keep(::posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  /// 0, or an errno.
  [[nodiscard]] int spawn(const std::vector<std::string>& command, ::pid_t& child) const {
    if (error_ != 0) return error_;
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
      arguments.push_back(const_cast<char*>(argument.c_str()));  // which it only reads
    }
    arguments.push_back(nullptr);
    return ::posix_spawnp(&child, arguments.front(), &actions_, &attributes_, arguments.data(),
                          environ);
  }

 private:
  void keep(int error) noexcept {
    if (error_ == 0) error_ = error;
  }

  ::posix_spawn_file_actions_t actions_ = {};
  ::posix_spawnattr_t attributes_ = {};
  int error_ = 0;
};

/// A child that runs, with what it writes. Killed and waited for at the end.
class Child {
 public:
  Child(::pid_t id, Descriptor output, Steady::time_point deadline) noexcept
      : id_(id), output_(std::move(output)), deadline_(deadline) {}
  ~Child() {
    if (hasEnded_) return;
    ::kill(-id_, SIGKILL);
    while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// All that it writes, or the beginning; none where it took too long.
  [[nodiscard]] std::optional<std::string> read() {
    std::string all;
    std::array<char, 4096> piece{};
    while (all.size() <= kLongestCredentials) {
      ::pollfd waited{.fd = output_.get(), .events = POLLIN, .revents = 0};
      const int left = millisecondsLeft();
      if (left == 0) return std::nullopt;
      const int ready = ::poll(&waited, 1, left);
      if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
      const ::ssize_t length = ::read(output_.get(), piece.data(), piece.size());
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) break;
      all.append(piece.data(), static_cast<std::size_t>(length));
    }
    return all;
  }

  /// Its status as `waitpid` has it; none where it took too long.
  [[nodiscard]] std::optional<int> awaitEnd() {
    for (;;) {
      int status = 0;
      const ::pid_t ended = ::waitpid(id_, &status, WNOHANG);
      if (ended < 0 && errno == EINTR) continue;
      if (ended != 0) {
        hasEnded_ = true;
        // Where the program waits for all children itself, or for none, nobody knows the status.
        return ended == id_ ? status : 0;
      }
      if (millisecondsLeft() == 0) return std::nullopt;
      ::poll(nullptr, 0, kLookMs);
    }
  }

 private:
  [[nodiscard]] int millisecondsLeft() const {
    const auto left = std::chrono::ceil<milliseconds>(deadline_ - Steady::now()).count();
    return static_cast<int>(std::max<std::int64_t>(left, 0));
  }

  const ::pid_t id_;
  const Descriptor output_;
  const Steady::time_point deadline_;
  bool hasEnded_ = false;
};

Failure failed(const std::vector<std::string>& command, std::string_view what) {
  return failureOf(Kind::kUnauthorized,
                   fmt::format("The command \"{}\" for credentials {}", command.front(), what));
}

std::string textOf(int error) { return std::generic_category().message(error); }

}  // namespace

Outcome<std::string> outputOf(const std::vector<std::string>& command, milliseconds timeout) {
  // No child may get another one's pipe, whose end would not be seen then until that one ends, too.
  static auto& spawning = *new platform::Mutex();
  const auto deadline = Steady::now() + std::clamp(timeout, milliseconds(0), kLongestTimeout);
  std::array<int, 2> ends{-1, -1};
  ::pid_t id = -1;
  {
    const platform::MutexLock lock(spawning);
    if (::pipe(ends.data()) != 0) return failed(command, "cannot be started: " + textOf(errno));
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    const Descriptor childs(ends[1]);
    if (const int error = SpawnSettings(ends[1]).spawn(command, id); error != 0) {
      ::close(ends[0]);
      return failed(command, "cannot be started: " + textOf(error));
    }
  }
  Child child(id, Descriptor(ends[0]), deadline);
  auto output = child.read();
  // One that writes without an end is not waited for.
  if (output && output->size() > kLongestCredentials) return *std::move(output);
  const auto status = output ? child.awaitEnd() : std::nullopt;
  if (!status) return failed(command, fmt::format("has not ended after {} ms", timeout.count()));
  if (WIFSIGNALED(*status)) {
    return failed(command, fmt::format("was ended by signal {}", WTERMSIG(*status)));
  }
  if (WEXITSTATUS(*status) != 0) {
    return failed(command, fmt::format("has ended with status {}", WEXITSTATUS(*status)));
  }
  return *std::move(output);
}

}  // namespace varo::detail
