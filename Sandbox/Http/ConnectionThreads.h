#pragma once

#include <httplib.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace varo::sandbox {

/// One thread a connection, made when needed and kept for the next one, up to a limit; further
/// connections wait for a thread. Thread-safe.
class ConnectionThreads final : public httplib::TaskQueue {
 public:
  /// `interrupt` is called once when the shutdown begins; it must make the running jobs end.
  ConnectionThreads(std::size_t limit, std::function<void()> interrupt);

  void enqueue(std::function<void()> job) override;
  /// Runs what is waiting and returns when all threads have ended.
  void shutdown() override;

  /// Whether connections wait for a thread, so that idle ones should go.
  [[nodiscard]] bool crowded() const;

 private:
  void work();

  const std::size_t limit_;
  const std::function<void()> interrupt_;
  mutable std::mutex mutex_;
  std::condition_variable condition_;
  // Guarded by mutex_.
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool stopping_ = false;
};

}  // namespace varo::sandbox
