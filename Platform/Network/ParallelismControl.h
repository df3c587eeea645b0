#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace varo::platform {

/// How many requests for the parts of one object are worth having in flight.
///
/// It begins with one, and allows more while that makes the whole faster: each that was added has
/// to bring at least half of what the others bring on average. First it allows eight times as many
/// at once; where that is in vain, half as many of those; from then on, or when a request failed,
/// one more. What was in vain is taken back, and one more is tried after a while, which grows with
/// every vain attempt. After a failure half as many are allowed, as a server in trouble is not to
/// be pressed.
///
/// Pure: the time is an argument. Not thread-safe: its owner's lock guards it.
class ParallelismControl {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// A request in flight.
  struct Flight {
    TimePoint begun;
    std::uint64_t level = 0;
  };

  /// Never more than `most` at once; 0 counts as 1.
  explicit ParallelismControl(std::size_t most) noexcept;

  /// Counts a request as in flight; none where there are as many as are worth it.
  [[nodiscard]] std::optional<Flight> begin(TimePoint now) noexcept;
  /// The head of its response has come. Where the first one is late, eight are allowed at once:
  /// while one waits for its answer, the bytes of others can come.
  void answered(const Flight& flight, TimePoint now) noexcept;
  /// It has moved `bytes`, and is in flight no more.
  void succeeded(const Flight& flight, TimePoint now, std::uint64_t bytes) noexcept;
  /// It has come to nothing, and is in flight no more.
  void failed(const Flight& flight) noexcept;
  /// An attempt has failed, and another one follows: it stays in flight. Its time measures nothing
  /// any more.
  void hadTrouble(Flight& flight) noexcept;

  /// So many may be in flight now, from 1 on.
  [[nodiscard]] std::size_t allowed() const noexcept { return allowed_; }
  [[nodiscard]] std::size_t inFlight() const noexcept { return inFlight_; }

 private:
  /// Allows so many from now on, and measures anew, with `samples` requests.
  void enter(std::size_t allowed, std::size_t samples) noexcept;
  void decide() noexcept;
  /// Allows half of those that were added in vain, and compares these with what was before.
  void tryAgain(double rateBefore) noexcept;
  /// Of all requests in flight together, in bytes a nanosecond.
  [[nodiscard]] double rate() const noexcept;

  const std::size_t most_;
  std::size_t allowed_ = 1;
  std::size_t inFlight_ = 0;
  /// Changes with `allowed_`: what was begun before measures nothing.
  std::uint64_t level_ = 1;
  /// From when on failures count: where a line breaks all fail together, and that is one reason to
  /// step back.
  std::uint64_t firstThatCounts_ = 1;
  /// Of `allowedBefore_`; none where that was not measured just before.
  std::optional<double> rateBefore_;
  std::size_t allowedBefore_ = 1;
  /// Whether eight times as many are tried, not one more.
  bool leaps_ = true;
  /// Requests to measure before the next decision, and what they have taken so far.
  std::size_t missing_ = 1;
  double bytes_ = 0;
  double nanoseconds_ = 0;
  /// Requests until one more is tried after it was in vain.
  std::size_t patience_;
};

}  // namespace varo::platform
