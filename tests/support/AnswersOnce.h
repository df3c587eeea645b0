#pragma once

#include "varo/options.h"

#include <atomic>
#include <functional>
#include <future>
#include <utility>

namespace varo::test {

/// A provider that gives credentials once, and then keeps silent as long as this lives.
class AnswersOnce {
 public:
  explicit AnswersOnce(Credentials given = {}) : given_(std::move(given)) {}
  ~AnswersOnce() { end_.set_value(); }
  AnswersOnce(const AnswersOnce&) = delete;
  AnswersOnce& operator=(const AnswersOnce&) = delete;

  [[nodiscard]] std::function<Outcome<Credentials>()> provider() {
    return [this, ended = ended_]() -> Outcome<Credentials> {
      if (hasAnswered_.exchange(true)) ended.wait();
      return given_;
    };
  }

 private:
  const Credentials given_;
  std::promise<void> end_;
  const std::shared_future<void> ended_{end_.get_future()};
  std::atomic<bool> hasAnswered_{false};
};

}  // namespace varo::test
