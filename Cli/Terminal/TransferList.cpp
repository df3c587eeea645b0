#include "Cli/Terminal/TransferList.h"

#include <fmt/format.h>

#include <algorithm>

namespace varo::cli {

namespace {

/// So that the list fits on every terminal.
constexpr std::size_t kMostLines = 8;

}  // namespace

TransferList::TransferList(std::size_t count, std::optional<std::uint64_t> bytes,
                           Clock::time_point now)
    : count_(count), bytes_(bytes), all_({}, now) {
  updateAll(now);
}

void TransferList::update(std::size_t number, const std::string& name, std::uint64_t done,
                          std::optional<std::uint64_t> total, Clock::time_point now) {
  // Of a known number of bytes those count as well that were there before.
  const std::uint64_t before = bytes_ ? 0 : done;
  const auto at = running_.try_emplace(number, Running{ProgressBar(name, now), before}).first;
  at->second.done = done;
  at->second.bar.resume(done, total, now);
  updateAll(now);
}

void TransferList::end(std::size_t number, End how, Clock::time_point now) {
  ++(how == End::kSucceeded ? succeeded_ : failed_);
  if (const auto at = running_.find(number); at != running_.end()) {
    movedBefore_ += at->second.done - std::min(at->second.first, at->second.done);
    running_.erase(at);
  }
  updateAll(now);
}

void TransferList::updateAll(Clock::time_point now) {
  std::uint64_t moved = movedBefore_;
  for (const auto& [number, transfer] : running_) {
    moved += transfer.done - std::min(transfer.first, transfer.done);
  }
  const std::string failed = failed_ == 0 ? "" : fmt::format(", {} failed", failed_);
  all_.rename(fmt::format("{} of {}{}", succeeded_ + failed_, count_, failed));
  all_.update(moved, bytes_, now);
}

std::string TransferList::text(std::size_t width, Clock::time_point now) const {
  std::string text;
  std::size_t shown = 0;
  for (const auto& [number, transfer] : running_) {
    if (++shown > kMostLines) break;
    text += transfer.bar.line(width, now) + '\n';
  }
  return text + all_.line(width, now);
}

}  // namespace varo::cli
