#include "Binary/Binary/DownloadTask/RangeWindow.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace varo::binary {

RangeWindow::RangeWindow(std::size_t most, const platform::Clock& clock)
    : most_(std::max<std::size_t>(most, 1)), clock_(clock), control_(most_) {}

std::optional<std::int64_t> RangeWindow::end() const noexcept {
  if (ranges_.empty()) return std::nullopt;
  return ranges_.back().question.last() + 1;
}

bool RangeWindow::hasRoom(std::size_t unwritten) const noexcept {
  if (ranges_.size() + unwritten >= mostChunks()) return false;
  return ranges_.empty() || (isOpen_ && control_.inFlight() < control_.allowed());
}

const RangeWindow::Range& RangeWindow::ask(RangeQuestion question) {
  question.isAhead = !ranges_.empty();
  Range range{.number = requests_ + 1, .question = std::move(question)};
  ranges_.push_back(std::move(range));
  ++requests_;
  ranges_.back().flight = control_.begin(clock_.steadyNow()).value_or(ranges_.back().flight);
  return ranges_.back();
}

RangeWindow::Range* RangeWindow::find(std::int64_t number) noexcept {
  const auto found = std::find_if(ranges_.begin(), ranges_.end(),
                                  [&](const Range& range) { return range.number == number; });
  return found == ranges_.end() ? nullptr : &*found;
}

RangeWindow::Transfers RangeWindow::arrived(Range& range, RangeArrival arrival) {
  range.arrival = std::move(arrival);
  range.transfer = nullptr;  // a cancel would do nothing
  if (range.arrival->isRange()) {
    control_.succeeded(range.flight, clock_.steadyNow(), range.arrival->answer.body.size());
    return {};
  }
  control_.failed(range.flight);
  isOpen_ = false;
  const auto self = std::find_if(ranges_.begin(), ranges_.end(),
                                 [&](const Range& each) { return &each == &range; });
  return giveUpFrom(static_cast<std::size_t>(std::distance(ranges_.begin(), self)) + 1);
}

std::optional<RangeWindow::Range> RangeWindow::takeArrived() {
  if (ranges_.empty() || !ranges_.front().arrival) return std::nullopt;
  Range range = std::move(ranges_.front());
  ranges_.pop_front();
  return range;
}

RangeWindow::Transfers RangeWindow::giveUp() {
  isOpen_ = false;
  return giveUpFrom(0);
}

RangeWindow::Transfers RangeWindow::giveUpFrom(std::size_t index) {
  Transfers transfers;
  while (ranges_.size() > index) {
    Range& last = ranges_.back();
    if (last.transfer != nullptr) transfers.push_back(std::move(last.transfer));
    if (!last.arrival) control_.failed(last.flight);
    ranges_.pop_back();
  }
  return transfers;
}

}  // namespace varo::binary
