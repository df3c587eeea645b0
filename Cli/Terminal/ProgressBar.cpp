#include "Cli/Terminal/ProgressBar.h"

#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace varo::cli {

namespace {

/// The rate is that of the last seconds: steady enough to read, and it follows a change.
constexpr std::chrono::seconds kRateWindow{5};
/// Reports may come by the thousand; more samples than this say nothing more.
constexpr std::size_t kMaxSamples = 256;

constexpr std::size_t kLongestLabel = 28;
/// A label up to this is not cut for a bar.
constexpr std::size_t kWholeLabel = 20;
constexpr std::size_t kShortestLabel = 12;
constexpr std::size_t kShortestBar = 10;
constexpr std::size_t kLongestBar = 40;

double secondsBetween(ProgressBar::Clock::time_point from, ProgressBar::Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

std::string bar(std::uint64_t done, std::uint64_t total, std::size_t width) {
  const double share = total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total);
  const auto filled = static_cast<std::size_t>(share * static_cast<double>(width));
  std::string text(filled, '=');
  if (filled < width) text += '>';
  text.resize(width, ' ');
  return "[" + text + "]";
}

}  // namespace

ProgressBar::ProgressBar(const std::string& label, Clock::time_point now)
    : label_(printable(label)), start_(now) {
  samples_.push_back({now, 0});
}

void ProgressBar::rename(const std::string& label) { label_ = printable(label); }

void ProgressBar::resume(std::uint64_t done, std::optional<std::uint64_t> total,
                         Clock::time_point now) {
  const bool isFirst = samples_.size() == 1 && done_ == 0;
  // What an earlier run brought took no time of this one, so it must not count in the rate.
  if (isFirst) samples_.front() = {now, done};
  update(done, total, now);
}

void ProgressBar::update(std::uint64_t done, std::optional<std::uint64_t> total,
                         Clock::time_point now) {
  done_ = std::min(done, total.value_or(done));
  total_ = total;
  samples_.push_back({now, done_});
  // The oldest sample goes only when the one behind it still spans the window.
  const auto tooOld = [&] { return samples_[1].time + kRateWindow < now; };
  while (samples_.size() > 2 && (samples_.size() > kMaxSamples || tooOld())) samples_.pop_front();
}

double ProgressBar::rate(Clock::time_point now) const {
  const Sample& oldest = samples_.front();
  const double seconds = secondsBetween(oldest.time, now);
  // A file may shrink the count when it is started over; a rate is never negative.
  if (seconds <= 0.0 || done_ <= oldest.done) return 0.0;
  return static_cast<double>(done_ - oldest.done) / seconds;
}

std::string ProgressBar::remaining(Clock::time_point now) const {
  const double perSecond = rate(now);
  if (perSecond <= 0.0) return "--:--";
  constexpr double kLongest = 359'999;  // 99:59:59
  const double seconds = static_cast<double>(*total_ - done_) / perSecond;
  const auto milliseconds = static_cast<std::int64_t>(std::min(seconds, kLongest) * 1000);
  return formatDuration(std::chrono::milliseconds(milliseconds));
}

std::string ProgressBar::line(std::size_t width, Clock::time_point now) const {
  const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(now - start_);
  if (!total_) {
    const std::string amount =
        done_ == 0 ? "" : fmt::format("{}  {}  ", formatBytes(done_), formatRate(rate(now)));
    const std::string label = cutMiddleToWidth(label_, std::min(kLongestLabel, width));
    return cutToWidth(fmt::format("{}  {}{}", label, amount, formatDuration(passed)), width);
  }

  const int percent =
      *total_ == 0
          ? 100
          : static_cast<int>(static_cast<double>(done_) * 100.0 / static_cast<double>(*total_));
  const bool complete = done_ == *total_;
  const std::string tail =
      complete
          ? fmt::format("{:>3}%  {}  in {}", percent, formatBytes(done_), formatDuration(passed))
          : fmt::format("{:>3}%  {} of {}  {}  {} left", percent, formatBytes(done_),
                        formatBytes(*total_), formatRate(rate(now)), remaining(now));
  constexpr std::size_t kFrame = 5;  // two blanks, two brackets, one blank
  // A long name gives way to a bar where that makes room for one.
  const std::size_t others = tail.size() + kFrame + kShortestBar;
  const std::size_t room = width - std::min(width, others);
  const bool givesWay = displayWidth(label_) > kWholeLabel && room >= kShortestLabel;
  const std::string label =
      cutMiddleToWidth(label_, std::min({kLongestLabel, width, givesWay ? room : width}));
  const std::size_t used = displayWidth(label) + tail.size() + kFrame;
  std::string text = label + "  ";
  if (used + kShortestBar <= width) {
    text += bar(done_, *total_, std::min(kLongestBar, width - used)) + " ";
  }
  return cutToWidth(text + tail, width);
}

}  // namespace varo::cli
