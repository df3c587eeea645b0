#include "Cli/Run/Interrupts.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
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
  sigset_t watched;
  ::sigemptyset(&watched);
  for (const int signal : {SIGINT, SIGTERM}) {
    // A shell starts a script's background jobs with SIGINT ignored; a sandbox there still has to
    // stop when it is told to.
    (void)std::signal(signal, SIG_DFL);
    ::sigaddset(&watched, signal);
  }
  struct sigaction hangUp {};
  const bool hangUpIsIgnored =
      ::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler == SIG_IGN;
  if (!hangUpIsIgnored) ::sigaddset(&watched, SIGHUP);  // else nohup asked for it
  // Read by a thread and not caught by a handler, in which almost nothing would be allowed: no
  // lock, no allocation, no output.
  signals_ = ::signalfd(-1, &watched, SFD_CLOEXEC);
  wakeUp_ = ::eventfd(0, EFD_CLOEXEC);
  // Without the descriptors the signals keep their usual effect, which ends the program.
  if (signals_ < 0 || wakeUp_ < 0) return;
  ::pthread_sigmask(SIG_BLOCK, &watched, nullptr);
  thread_ = std::thread([this] { watch(); });
}

Interrupts::~Interrupts() {
  if (thread_.joinable()) {
    const std::uint64_t one = 1;
    // Only a thread that was told to end is joined; a wait for any other could last for ever.
    if (::write(wakeUp_, &one, sizeof one) == sizeof one) thread_.join();
  }
  if (signals_ >= 0) ::close(signals_);
  if (wakeUp_ >= 0) ::close(wakeUp_);
}

void Interrupts::watch() {
  std::array<pollfd, 2> descriptors = {pollfd{signals_, POLLIN, 0}, pollfd{wakeUp_, POLLIN, 0}};
  while (true) {
    if (::poll(descriptors.data(), descriptors.size(), -1) < 0) continue;  // EINTR
    if (descriptors[1].revents != 0) return;
    signalfd_siginfo signal{};
    if (::read(signals_, &signal, sizeof signal) == sizeof signal) raise();
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
