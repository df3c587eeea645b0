#include "Platform/Network/ParallelismControl.h"

#include <algorithm>

namespace varo::platform {
namespace {

/// What an added request has to bring, of the average of the others. On a line that is full it
/// brings nothing, on one that waits as much as they do; between both it may be a chance.
constexpr double kWorthwhileShare = 1.0 / 2;
/// Where one more is allowed, two requests begin together, of which one opens a connection: so the
/// cost of that is in every measure alike. After a leap several open one, which counts against it.
constexpr std::size_t kSamples = 2;
/// So many times as many are tried at once, until that was in vain for the first time. On a line
/// whose answers come late, one more at a time would take longer than most transfers do.
constexpr std::size_t kLeap = 8;
/// From when on an answer is late. Within one machine or house none is.
constexpr std::chrono::milliseconds kLate{10};
constexpr std::size_t kFirstPatience = 8;
constexpr std::size_t kLongestPatience = 128;
/// Of what measures nothing.
constexpr std::uint64_t kNoLevel = 0;

}  // namespace

ParallelismControl::ParallelismControl(std::size_t most) noexcept
    : most_(std::max<std::size_t>(most, 1)), patience_(kFirstPatience) {}

std::optional<ParallelismControl::Flight> ParallelismControl::begin(TimePoint now) noexcept {
  if (inFlight_ >= allowed_) return std::nullopt;
  ++inFlight_;
  return Flight{now, level_};
}

void ParallelismControl::answered(const Flight& flight, TimePoint now) noexcept {
  if (flight.level != level_ || allowed_ > 1 || !leaps_ || now - flight.begun < kLate) return;
  enter(std::min(kLeap, most_), kSamples);
}

void ParallelismControl::succeeded(const Flight& flight, TimePoint now,
                                   std::uint64_t bytes) noexcept {
  --inFlight_;
  if (flight.level != level_) return;
  // All that it took was taken with as many in flight as now, so each is a sample of the others.
  bytes_ += static_cast<double>(bytes);
  nanoseconds_ += static_cast<double>(std::chrono::nanoseconds(now - flight.begun).count());
  if (--missing_ == 0) decide();
}

void ParallelismControl::failed(const Flight& flight) noexcept {
  Flight ended = flight;
  hadTrouble(ended);
  --inFlight_;
}

void ParallelismControl::hadTrouble(Flight& flight) noexcept {
  if (flight.level >= firstThatCounts_) {
    leaps_ = false;
    enter(std::max<std::size_t>(allowed_ / 2, 1), patience_);
    firstThatCounts_ = level_;
  }
  flight.level = kNoLevel;
}

void ParallelismControl::decide() noexcept {
  const double now = rate();
  if (rateBefore_) {
    const auto others = static_cast<double>(allowedBefore_);
    const auto added = static_cast<double>(allowed_) - others;
    if (now < *rateBefore_ * (1 + kWorthwhileShare * added / others)) {
      leaps_ = false;
      // A leap too far says nothing of half as many more.
      if (allowed_ - allowedBefore_ > 1) return tryAgain(*rateBefore_);
      const std::size_t wait = patience_;
      patience_ = std::min(patience_ * 2, kLongestPatience);
      return enter(allowedBefore_, wait);
    }
    patience_ = kFirstPatience;
  }
  if (allowed_ == most_) return enter(allowed_, kLongestPatience);
  allowedBefore_ = allowed_;
  enter(std::min(leaps_ ? allowed_ * kLeap : allowed_ + 1, most_), kSamples);
  rateBefore_ = now;
}

void ParallelismControl::tryAgain(double rateBefore) noexcept {
  enter(allowedBefore_ + (allowed_ - allowedBefore_) / 2, kSamples);
  rateBefore_ = rateBefore;
}

void ParallelismControl::enter(std::size_t allowed, std::size_t samples) noexcept {
  allowed_ = allowed;
  ++level_;
  rateBefore_.reset();
  missing_ = samples;
  bytes_ = 0;
  nanoseconds_ = 0;
}

double ParallelismControl::rate() const noexcept {
  return static_cast<double>(allowed_) * bytes_ / std::max(nanoseconds_, 1.0);
}

}  // namespace varo::platform
