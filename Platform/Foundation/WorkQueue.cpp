#include "Platform/Foundation/WorkQueue.h"

#include "Platform/Foundation/LinkedQueue.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Runtime.h"

#include <new>
#include <thread>
#include <utility>

namespace varo::platform {

/// The jobs that wait, and who runs one now. Lives until the last job has run.
class SerialQueue::State final : public std::enable_shared_from_this<State>,
                                 public ThreadPool::Work {
 public:
  State(const char* label, ThreadPool& pool) : label_(label), pool_(pool) {}

  void async(Job job) noexcept {
    std::shared_ptr<Entry> entry;
    try {
      entry = std::make_shared<Entry>();
    } catch (const std::bad_alloc&) {
      // The caller goes on in the belief that the job runs. Without memory to queue it, it runs in
      // its turn on this thread.
      return sync([&job] { ThreadPool::runHere(job); });
    }
    entry->job = std::move(job);
    entry->context = JobContext::current();
    {
      const MutexLock lock(mutex_);
      entries_.push(std::move(entry));
      // Whoever is at it now comes to this entry as well.
      if (std::exchange(active_, true)) return;
    }
    // Without the lock: a pool that has ended runs the job right here.
    passOn();
  }

  void sync(const Job& job) {
    if (runsInThisThread()) return job();
    Turn turn;
    Entry entry;
    entry.turn = &turn;
    {
      MutexLock lock(mutex_);
      if (active_) {
        // Shares nobody's ownership: it leaves the queue before this returns.
        entries_.push(std::shared_ptr<Entry>(std::shared_ptr<Entry>(), &entry));
        while (!turn.come) turn.changed.wait(mutex_);
      }
      active_ = true;
    }
    // In this order, so that the queue is no longer this thread's
    // when the next entry gets its turn.
    const Release release(*this);
    const Running running(*this);
    job();
  }

  [[nodiscard]] bool runsInThisThread() const noexcept {
    const MutexLock lock(mutex_);
    return runner_ == std::this_thread::get_id();
  }

 private:
  /// A thread that waits in `sync`.
  struct Turn {
    bool come = false;  // guarded by the queue's mutex
    ConditionVariable changed;
  };
  /// Either a job for the pool or a waiting thread.
  struct Entry {
    Job job;
    JobContext::Ptr context;
    Turn* turn = nullptr;
    std::shared_ptr<Entry> next;  // guarded by the queue's mutex
  };
  /// Marks the calling thread as the one that runs a job of this queue.
  class Running {
   public:
    explicit Running(State& state) : state_(state) { set(std::this_thread::get_id()); }
    ~Running() { set({}); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

   private:
    void set(std::thread::id id) {
      const MutexLock lock(state_.mutex_);
      state_.runner_ = id;
    }
    State& state_;
  };
  /// Lets the next entry have its turn, also when the job threw.
  class Release {
   public:
    explicit Release(State& state) : state_(state) {}
    ~Release() { state_.next(); }
    Release(const Release&) = delete;
    Release& operator=(const Release&) = delete;

   private:
    State& state_;
  };

  /// The queue is active and nobody runs: has the pool, or else this thread, go on.
  void passOn() noexcept { pool_.postOrRun(std::shared_ptr<Work>(shared_from_this())); }

  /// Runs jobs until the queue is empty or a waiting thread's turn has come.
  void run() override {
    while (true) {
      std::shared_ptr<Entry> entry;
      {
        const MutexLock lock(mutex_);
        entry = takeLocked();
      }
      if (entry == nullptr) return;
      const JobContext::Scope scope(std::move(entry->context));
      runOne(std::move(entry->job));
    }
  }

  /// An exception ends the job, not the queue: what follows is passed on before it travels further.
  void runOne(Job&& taken) {
    try {
      const Running running(*this);
      // What it holds goes while it counts as running: destructors may wait on this queue.
      const Job job = std::move(taken);
      job();
    } catch (...) {
      next();
      throw;
    }
  }

  /// After a job outside `run`: gives the turn to the next entry, if there is one.
  void next() {
    {
      const MutexLock lock(mutex_);
      if (entries_.empty()) {
        active_ = false;
        return;
      }
      if (entries_.front()->turn != nullptr) return grantLocked();
    }
    passOn();
  }

  /// Takes the next job. Null when there is none for the calling thread: the queue is idle then,
  /// or active on the thread whose turn it is.
  std::shared_ptr<Entry> takeLocked() VARO_REQUIRES(mutex_) {
    if (entries_.empty()) {
      active_ = false;
      return nullptr;
    }
    if (entries_.front()->turn != nullptr) {
      grantLocked();
      return nullptr;
    }
    return entries_.pop();
  }

  void grantLocked() VARO_REQUIRES(mutex_) {
    Turn* turn = entries_.pop()->turn;
    turn->come = true;
    turn->changed.notifyOne();
  }

  [[maybe_unused]] const char* const label_;
  ThreadPool& pool_;

  mutable Mutex mutex_;
  LinkedQueue<Entry> entries_ VARO_GUARDED_BY(mutex_);
  /// Whether a job runs, or somebody has been told to run the next one.
  bool active_ VARO_GUARDED_BY(mutex_) = false;
  std::thread::id runner_ VARO_GUARDED_BY(mutex_);
};

SerialQueue::SerialQueue(const char* label) : SerialQueue(label, Runtime::shared().pool()) {}

SerialQueue::SerialQueue(const char* label, ThreadPool& pool)
    : state_(std::make_shared<State>(label, pool)) {}

void SerialQueue::async(Job job) noexcept { state_->async(std::move(job)); }

void SerialQueue::sync(const Job& job) {
  const std::shared_ptr<State> state = state_;  // the job may destroy the queue
  state->sync(job);
}

bool SerialQueue::runsInThisThread() const noexcept { return state_->runsInThisThread(); }

ConcurrentQueue::ConcurrentQueue(const char* label)
    : ConcurrentQueue(label, Runtime::shared().pool()) {}

ConcurrentQueue::ConcurrentQueue(const char* label, ThreadPool& pool)
    : label_(label), pool_(pool) {}

void ConcurrentQueue::async(Job job) noexcept { pool_.postOrRun(std::move(job)); }

}  // namespace varo::platform
