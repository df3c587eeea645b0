#pragma once

#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/ParallelismControl.h"
#include "varo/outcome.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace varo::detail {

/// The numbered steps of one run, the parts of an object say: as many at once as pay, until all are
/// done. The first that fails stops the others. Thread-safe.
class ObjectSteps : public std::enable_shared_from_this<ObjectSteps> {
 public:
  /// One of them. Its functions may be called from any thread.
  struct Step {
    std::size_t index = 0;
    std::stop_token stop;
    /// Called when a request of it has failed and is sent again.
    std::function<void()> onRetry;
    /// Called when it is over, with the bytes that it has moved; only the first call counts.
    std::function<void(Outcome<std::uint64_t> moved)> done;
  };
  using Work = std::function<void(Step step)>;
  using End = std::function<void(Outcome<void>)>;

  struct Pace {
    platform::ParallelismControl control;
    /// A step begins so close behind the earliest that is not done, and not farther: what waits
    /// for that one is bounded.
    std::size_t window = std::numeric_limits<std::size_t>::max();
    /// Of the first step, where that has begun before the steps.
    std::optional<platform::ParallelismControl::Flight> begun = {};
  };

  /// Starts the steps on threads of the pool, in ascending order. `end` is called once, when none
  /// runs any more, with the first failure if there was one. `cancellation` stops them all.
  static void run(std::vector<std::size_t> indices, Pace pace, const std::stop_token& cancellation,
                  Work work, End end);

  ObjectSteps(std::vector<std::size_t> indices, Pace pace, Work work, End end);

 private:
  void watch(const std::stop_token& cancellation);
  /// Starts the steps that are next, as many as may begin.
  void startNext();
  /// The step that may begin now, counted as running.
  [[nodiscard]] std::optional<std::size_t> takeNext();
  void perform(std::size_t index);
  void retried(std::size_t index);
  void ended(std::size_t index, Outcome<std::uint64_t> moved);

  const std::vector<std::size_t> indices_;
  const std::size_t window_;
  const Work work_;
  const End end_;
  const std::shared_ptr<platform::Cancellation> stop_ = std::make_shared<platform::Cancellation>();
  /// Of the cancellation from outside. Constant once the steps run.
  std::optional<std::stop_callback<std::function<void()>>> watch_;

  platform::Mutex mutex_;
  platform::ParallelismControl control_ VARO_GUARDED_BY(mutex_);
  std::optional<platform::ParallelismControl::Flight> begun_ VARO_GUARDED_BY(mutex_);
  std::size_t next_ VARO_GUARDED_BY(mutex_) = 0;
  /// Those that run, by their index.
  std::map<std::size_t, platform::ParallelismControl::Flight> running_ VARO_GUARDED_BY(mutex_);
  std::optional<Failure> failure_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
