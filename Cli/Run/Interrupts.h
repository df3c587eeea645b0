#pragma once

#include "Platform/Foundation/Mutex.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

namespace varo::cli {

/// Told when the user asks the program to stop. Held weakly by `Interrupts`.
class Interruptible {
 public:
  virtual ~Interruptible() = default;
  /// Called at most once, on the signal thread. Must not block.
  virtual void interrupted() = 0;
};

/// SIGINT, SIGTERM and SIGHUP as ordinary calls on a thread of its own, so that nothing runs inside
/// a signal handler.
///
/// Make it first thing in `main`, on the only thread: it blocks the signals, and threads made later
/// inherit that. The first signal is passed to who subscribed; with the second the process ends at
/// once, with exit status 130, in case the orderly way takes too long. Thread-safe.
class Interrupts {
 public:
  /// Exit status of an interrupted program.
  static constexpr int kExitStatus = 130;

  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  /// Whether there was a signal.
  [[nodiscard]] bool raised() const;

  /// Tells `target` of the first signal, at once where it came already.
  void subscribe(const std::shared_ptr<Interruptible>& target);

 private:
  void watch();
  void raise();

  sigset_t watched_;  // constant while the thread runs
  std::atomic<bool> isEnding_{false};
  mutable platform::Mutex mutex_;
  bool raised_ VARO_GUARDED_BY(mutex_) = false;
  std::vector<std::weak_ptr<Interruptible>> targets_ VARO_GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace varo::cli
