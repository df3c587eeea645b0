#include "Sandbox/Http/ConnectionThreads.h"

#include <system_error>
#include <utility>

namespace varo::sandbox {

ConnectionThreads::ConnectionThreads(std::size_t limit, std::function<void()> interrupt)
    : limit_(limit), interrupt_(std::move(interrupt)) {}

void ConnectionThreads::enqueue(std::function<void()> job) {
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
    if (jobs_.size() > idle_ && threads_.size() < limit_ && !stopping_) {
      try {
        threads_.emplace_back([this] { work(); });
      } catch (const std::system_error&) {
        // The system has no thread to give: the job waits for one of those that are there.
      }
    }
  }
  condition_.notify_one();
}

void ConnectionThreads::shutdown() {
  std::vector<std::thread> threads;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
  }
  condition_.notify_all();
  interrupt_();
  for (std::thread& thread : threads) thread.join();
}

bool ConnectionThreads::crowded() const {
  const std::lock_guard lock(mutex_);
  return threads_.size() >= limit_ && jobs_.size() > idle_;
}

void ConnectionThreads::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    condition_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
    --idle_;
    if (jobs_.empty()) return;
    auto job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
    job = nullptr;
    lock.lock();
  }
}

}  // namespace varo::sandbox
