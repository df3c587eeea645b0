#pragma once

#include "Binary/Binary/DownloadTask/RangeArrival.h"
#include "Binary/Binary/DownloadTask/RangeVerdict.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Network/ParallelismControl.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace varo::binary {

/// The ranges of one run that are asked for and not published yet, in the order of their bytes and
/// without a gap. They arrive in any order, and are taken in that of their bytes: those that come
/// early wait here.
///
/// The first range of an object goes alone, since it tells the size and what the object is known
/// by. More are asked ahead only while ranges come as they were asked for: whatever else arrives is
/// judged, when its turn comes, as if it had been asked for alone. Not thread-safe.
class RangeWindow {
 public:
  /// Ranges that may have arrived and not be written yet where one is asked for at a time; each
  /// that may be asked ahead adds one.
  static constexpr std::size_t kMaxWaitingChunks = 4;

  struct Range {
    std::int64_t number = 0;  // of the run's requests, from 1
    RangeQuestion question;
    platform::VRONetworkUtility::TransferPtr transfer = nullptr;  // once it is known
    std::optional<RangeArrival> arrival = {};
    platform::ParallelismControl::Flight flight = {};
  };
  using Transfers = std::vector<platform::VRONetworkUtility::TransferPtr>;

  /// At most `most` in flight at once. `clock` lives as long as the window.
  RangeWindow(std::size_t most, const platform::Clock& clock);

  [[nodiscard]] bool isEmpty() const noexcept { return ranges_.empty(); }
  [[nodiscard]] std::size_t count() const noexcept { return ranges_.size(); }
  /// Ranges that may be here or not written yet.
  [[nodiscard]] std::size_t mostChunks() const noexcept { return kMaxWaitingChunks + most_ - 1; }
  /// The position behind the last range; none where there is none.
  [[nodiscard]] std::optional<std::int64_t> end() const noexcept;
  /// Whether another one may be asked for, while so many that were taken are not written.
  [[nodiscard]] bool hasRoom(std::size_t unwritten) const noexcept;
  /// Adds a range that begins at `end`. The reference is good until the window changes.
  const Range& ask(RangeQuestion question);
  /// Null where it was given up or taken.
  [[nodiscard]] Range* find(std::int64_t number) noexcept;

  /// One of these ranges has arrived. Where it is no range, those behind it are given up: returns
  /// their transfers, to be cancelled.
  [[nodiscard]] Transfers arrived(Range& range, RangeArrival arrival);
  /// The first one, if it has arrived.
  [[nodiscard]] std::optional<Range> takeArrived();
  /// Whether more than one may be asked for from now on.
  void setOpen(bool isOpen) noexcept { isOpen_ = isOpen; }
  /// Gives up all, after which the next one goes alone. Returns their transfers.
  [[nodiscard]] Transfers giveUp();

 private:
  [[nodiscard]] Transfers giveUpFrom(std::size_t index);

  const std::size_t most_;
  const platform::Clock& clock_;
  platform::ParallelismControl control_;
  std::deque<Range> ranges_;
  std::int64_t requests_ = 0;
  bool isOpen_ = false;
};

}  // namespace varo::binary
