#pragma once

#include "Platform/Network/RetryPolicy.h"
#include "varo/options.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace varo::detail {

[[nodiscard]] platform::RetryPolicy policyFrom(const Retry& retry);

/// The retries of one operation, over all its runs: those that its requests tell of, and those that
/// are runs of their own, where a request is not repeated because a part of its answer is there.
///
/// Runs count together with the requests in them, and from 1 again once bytes have come: so
/// whatever fails without getting anywhere has an end. Not thread-safe.
class Retries {
 public:
  explicit Retries(const Retry& retry);

  /// Of all requests, whatever run they belong to. Thread-safe.
  [[nodiscard]] const std::shared_ptr<platform::RetryBudget>& budget() const noexcept {
    return budget_;
  }

  void runBegins() noexcept { waiting_ = 0; }
  /// The attempts count from 1 again; what the budget has given is not given back.
  void startOver() noexcept { attempt_ = 1; }
  /// A request waits for this attempt; so many bytes of the transfer are done.
  void requestWaits(int attempt, std::uint64_t done) noexcept;
  void requestHasWaited() noexcept;
  /// Whether a request of this run does.
  [[nodiscard]] bool isWaiting() const noexcept { return waiting_ != 0; }

  struct NextRun {
    int attempt = 1;
    std::chrono::milliseconds wait{0};
  };
  /// After a run that has failed with so many bytes done; none: it was the last.
  [[nodiscard]] std::optional<NextRun> nextRun(std::uint64_t done);

 private:
  void noteProgress(std::uint64_t done) noexcept;

  const platform::RetryPolicy policy_;
  const std::shared_ptr<platform::RetryBudget> budget_;
  /// Attempts since bytes have come.
  int attempt_ = 1;
  std::uint64_t done_ = 0;
  std::size_t waiting_ = 0;
};

}  // namespace varo::detail
