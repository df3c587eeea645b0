#pragma once

#include <functional>
#include <memory>
#include <utility>

namespace varo::platform {

/// What the work of a thread belongs to at the moment, such as whose messages it logs. It follows
/// the work from thread to thread: a job of a pool, a queue or a timer runs in the context that it
/// was posted in, the completion of a request in that of its `send`.
///
/// Immutable, shared by all that runs in it.
class JobContext {
 public:
  using Ptr = std::shared_ptr<const JobContext>;

  JobContext() = default;
  JobContext(const JobContext&) = delete;
  JobContext& operator=(const JobContext&) = delete;
  virtual ~JobContext() = default;

  /// That of this thread; null for none.
  [[nodiscard]] static const Ptr& current() noexcept { return slot(); }
  /// `job`, to run in that of this thread, whoever posts it.
  [[nodiscard]] static std::function<void()> keeping(std::function<void()> job);

  /// Has this thread work in another context, or none, until the end of the scope.
  class Scope {
   public:
    explicit Scope(Ptr context) noexcept : former_(std::exchange(slot(), std::move(context))) {}
    ~Scope() { slot() = std::move(former_); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    Ptr former_;
  };

 private:
  static Ptr& slot() noexcept;
};

}  // namespace varo::platform
