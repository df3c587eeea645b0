#pragma once

#include "Platform/Network/RateLimit.h"

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

namespace varo::platform {

/// Holds exchanges back that would move faster than their limits. Private to the curl adapter;
/// owned by the I/O thread.
///
/// An exchange asks before each piece. Where it has to wait, its callback pauses it, which stops
/// the reading of its socket, so that the peer slows down; it goes on when its turn comes. Those
/// that wait for the same limit take turns.
class CurlPacer {
 public:
  enum class Direction : std::uint8_t { kReceiving, kSending };

  /// `bytesPerSecond` of all exchanges together; 0 for no limit.
  explicit CurlPacer(std::uint64_t bytesPerSecond);

  /// Whether a piece may move now. False: the exchange is to be paused, and is noted for `resume`.
  /// `own`: the limit of the exchange beside the common one; null for none.
  [[nodiscard]] bool mayMove(CURL* easy, RateLimit* own, Direction direction);
  void moved(RateLimit* own, Direction direction, std::uint64_t bytes);
  /// Bytes to move at once, at most `most`.
  [[nodiscard]] std::size_t piece(const RateLimit* own, std::size_t most) const noexcept;

  /// Lets those go on whose turn it is; they may ask again from inside. Returns the ones that
  /// failed at it, which libcurl does not report otherwise.
  [[nodiscard]] std::vector<std::pair<CURL*, CURLcode>> resume();
  /// Until the next turn; none where nobody waits.
  [[nodiscard]] std::optional<TokenBucket::Duration> untilNext();
  [[nodiscard]] bool isPaused(const CURL* easy) const noexcept;
  /// The exchange has ended.
  void forget(const CURL* easy) noexcept;

 private:
  struct Paused {
    CURL* easy;
    RateLimit* own;
    Direction direction;
  };
  [[nodiscard]] TokenBucket::Duration wait(RateLimit* own, Direction direction);
  /// Whether one of those that send, by their own limits, shares a limit with this one.
  [[nodiscard]] bool hasSender(const std::vector<const RateLimit*>& sending,
                               const RateLimit* own) const;

  std::optional<RateLimit> common_;
  std::deque<Paused> paused_;  // each exchange at most once
};

}  // namespace varo::platform
