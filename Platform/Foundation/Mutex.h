#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Clang's thread-safety analysis proves the guards that these attributes declare; other compilers
// ignore them. https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#if defined(__clang__)
#define VARO_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VARO_THREAD_ANNOTATION(x)
#endif

#define VARO_CAPABILITY(x) VARO_THREAD_ANNOTATION(capability(x))
#define VARO_SCOPED_CAPABILITY VARO_THREAD_ANNOTATION(scoped_lockable)
#define VARO_GUARDED_BY(x) VARO_THREAD_ANNOTATION(guarded_by(x))
#define VARO_REQUIRES(...) VARO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VARO_ACQUIRE(...) VARO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VARO_RELEASE(...) VARO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace varo::platform {

/// A mutex that the thread-safety analysis knows. Lock it with `MutexLock`.
class VARO_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() VARO_ACQUIRE() { mutex_.lock(); }
  void unlock() VARO_RELEASE() { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

/// Holds a `Mutex` for a scope.
class VARO_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) VARO_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() VARO_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// Waits on a `Mutex` that the caller holds. Wake-ups may be spurious: loop over the condition.
class ConditionVariable {
 public:
  void wait(Mutex& mutex) VARO_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }
  template <typename Clock, typename Duration>
  std::cv_status waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& when)
      VARO_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    const std::cv_status status = condition_.wait_until(lock, when);
    lock.release();
    return status;
  }
  void notifyOne() noexcept { condition_.notify_one(); }
  void notifyAll() noexcept { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace varo::platform
