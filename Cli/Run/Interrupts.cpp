#include "Cli/Run/Interrupts.h"

#include <pthread.h>
#include <unistd.h>
#include <utility>

namespace varo::cli {

using platform::MutexLock;

Interrupts::Interrupts() {
  // A closed pipe behind standard output is an error of the write, seen there.
  (void)std::signal(SIGPIPE, SIG_IGN);
  // So is a file that reaches the shell's limit.
  (void)std::signal(SIGXFSZ, SIG_IGN);
  // Before the first thread starts: they all inherit the mask, so no thread is ever interrupted by
  // a signal, and the one below reads them as it likes.
  ::sigemptyset(&watched_);
  for (const int signal : {SIGINT, SIGTERM}) {
    // A shell starts a script's background jobs with SIGINT ignored; a sandbox there still has to
    // stop when it is told to.
    (void)std::signal(signal, SIG_DFL);
    ::sigaddset(&watched_, signal);
  }
  struct sigaction hangUp {};
  const bool hangUpIsIgnored =
      ::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler == SIG_IGN;
  if (!hangUpIsIgnored) ::sigaddset(&watched_, SIGHUP);  // else nohup asked for it
  // Awaited by a thread and not caught by a handler, in which almost nothing would be allowed: no
  // lock, no allocation, no output.
  ::pthread_sigmask(SIG_BLOCK, &watched_, nullptr);
  thread_ = std::thread([this] { watch(); });
}

Interrupts::~Interrupts() {
  isEnding_ = true;
  // One of those that it waits for, to the thread alone. It is blocked, so it terminates nothing.
  // NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
  ::pthread_kill(thread_.native_handle(), SIGTERM);
  thread_.join();
}

void Interrupts::watch() {
  while (true) {
    int signal = 0;
    const bool hasCome = ::sigwait(&watched_, &signal) == 0;
    if (isEnding_) return;
    if (hasCome) raise();
  }
}

void Interrupts::raise() {
  std::vector<std::weak_ptr<Interruptible>> targets;
  {
    MutexLock lock(mutex_);
    // The second interrupt: whoever sends it no longer wants to wait for an orderly end.
    if (raised_) ::_exit(kExitStatus);
    raised_ = true;
    targets = std::exchange(targets_, {});
  }
  // Without the lock, since a target may ask `raised` or subscribe.
  for (const auto& weak : targets) {
    if (const auto target = weak.lock()) target->interrupted();
  }
}

bool Interrupts::raised() const {
  MutexLock lock(mutex_);
  return raised_;
}

void Interrupts::subscribe(const std::shared_ptr<Interruptible>& target) {
  {
    MutexLock lock(mutex_);
    if (!raised_) {
      std::erase_if(targets_, [](const auto& weak) { return weak.expired(); });
      targets_.push_back(target);
      return;
    }
  }
  // It came too late to be in the list, so it hears of the interrupt here.
  target->interrupted();
}

}  // namespace varo::cli
