#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace varo::cli {

/// The text of a progress line: how much, how fast, how long still.
///
/// Pure text: who shows it, and where, is somebody else's business. Times come from the caller.
/// Not thread-safe.
class ProgressBar {
 public:
  using Clock = std::chrono::steady_clock;

  /// `label` stands in front, cut where there is little room.
  ProgressBar(std::string label, Clock::time_point now);

  /// `done` of `total` bytes. A count that goes past the total is shown as the total.
  void update(std::uint64_t done, std::uint64_t total, Clock::time_point now);

  /// One line without a newline, at most `width` columns: bar, percentage, bytes, rate and
  /// remaining time once a total is known, before that the time that has passed. What does not fit
  /// is left out, the bar first.
  [[nodiscard]] std::string line(std::size_t width, Clock::time_point now) const;

 private:
  struct Sample {
    Clock::time_point time;
    std::uint64_t done;
  };

  /// Bytes per second over the last seconds; 0 while nothing is known.
  [[nodiscard]] double rate(Clock::time_point now) const;
  [[nodiscard]] std::string remaining(Clock::time_point now) const;

  const std::string label_;
  const Clock::time_point start_;
  std::uint64_t done_ = 0;
  std::optional<std::uint64_t> total_;
  std::deque<Sample> samples_;  // oldest first; spans a few seconds
};

}  // namespace varo::cli
