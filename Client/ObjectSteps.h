#pragma once

#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/outcome.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace varo::detail {

/// The numbered steps of one run, the parts of an object say: so many run at once, until all are
/// done. The first that fails stops the others. Thread-safe.
class ObjectSteps : public std::enable_shared_from_this<ObjectSteps> {
 public:
  using Done = std::function<void(Outcome<void>)>;
  /// Carries out one step, and calls `done` once, from any thread. The token stops it.
  using Step = std::function<void(std::size_t index, const std::stop_token& stop, Done done)>;

  /// Starts the steps on threads of the pool. `end` is called once, when none runs any more, with
  /// the first failure if there was one. `cancellation` stops them all.
  static void run(std::vector<std::size_t> indices, std::size_t atOnce,
                  const std::stop_token& cancellation, Step step, Done end);

  ObjectSteps(std::vector<std::size_t> indices, Step step, Done end);

 private:
  void watch(const std::stop_token& cancellation);
  /// Starts the step that is next, if there is one.
  void startNext();
  void ended(Outcome<void> outcome);

  const std::vector<std::size_t> indices_;
  const Step step_;
  const Done end_;
  const std::shared_ptr<platform::Cancellation> stop_ = std::make_shared<platform::Cancellation>();
  /// Of the cancellation from outside. Constant once the steps run.
  std::optional<std::stop_callback<std::function<void()>>> watch_;

  platform::Mutex mutex_;
  std::size_t next_ VARO_GUARDED_BY(mutex_) = 0;
  std::size_t running_ VARO_GUARDED_BY(mutex_) = 0;
  std::optional<Failure> failure_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
