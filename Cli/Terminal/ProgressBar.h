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
  ProgressBar(const std::string& label, Clock::time_point now);

  void rename(const std::string& label);

  /// `done` of `total` bytes, if that is known. A count that goes past the total is shown as the
  /// total.
  void update(std::uint64_t done, std::optional<std::uint64_t> total, Clock::time_point now);
  /// The same where some bytes may have been there before: the rate is of those that follow the
  /// first report.
  void resume(std::uint64_t done, std::optional<std::uint64_t> total, Clock::time_point now);

  /// One line without a newline, at most `width` columns: bar, percentage, bytes, rate and
  /// remaining time; without a total the bytes, if there are any, and the time that has passed.
  /// What does not fit is left out, the bar first.
  [[nodiscard]] std::string line(std::size_t width, Clock::time_point now) const;

 private:
  struct Sample {
    Clock::time_point time;
    std::uint64_t done;
  };

  /// Bytes per second over the last seconds; 0 while nothing is known.
  [[nodiscard]] double rate(Clock::time_point now) const;
  [[nodiscard]] std::string remaining(Clock::time_point now) const;

  std::string label_;
  const Clock::time_point start_;
  std::uint64_t done_ = 0;
  std::optional<std::uint64_t> total_;
  std::deque<Sample> samples_;  // oldest first; spans a few seconds
};

}  // namespace varo::cli
