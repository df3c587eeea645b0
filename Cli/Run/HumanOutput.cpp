#include "Cli/Run/HumanOutput.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Failures/FailureText.h"
#include "Cli/Terminal/TerminalText.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

/// Fast enough to look alive, slow enough to read and to cost nothing.
constexpr std::chrono::milliseconds kRedrawInterval{100};
/// A line as wide as the terminal would wrap on some; and an interrupt is echoed behind it, as
/// "^C".
constexpr std::size_t kRightMargin = 3;

std::uint64_t countIn(const Dictionary& data, const char* key) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, data[key].integerValue()));
}

}  // namespace

HumanOutput::HumanOutput(std::ostream& results, Console& console,
                         std::function<std::size_t()> width, Asides asides)
    : results_(results), console_(console), width_(std::move(width)), asides_(asides) {}

void HumanOutput::writeBegin(const std::string& activity) {
  if (asides_ == Asides::kNone) return;  // what comes later shows nothing without a bar
  bar_.emplace(activity, ProgressBar::Clock::now());
}

void HumanOutput::writeProgress(const Value& progress) {
  const Dictionary data = progress.dictionaryValue()[binary::keys::kProgressData].dictionaryValue();
  if (!bar_ || !data.contains(binary::keys::kTotalBytesToUpload)) return;
  const auto now = ProgressBar::Clock::now();
  const std::uint64_t total = countIn(data, binary::keys::kTotalBytesToUpload);
  const std::uint64_t done = countIn(data, binary::keys::kBytesUploadedTillNow);
  bar_->update(done, total, now);
  showBar(now, done >= total);
}

void HumanOutput::writeChunk(const std::string&, std::int64_t bytesWritten,
                             std::int64_t totalSize) {
  const auto count = [](std::int64_t number) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, number));
  };
  writeMoved(count(bytesWritten), count(totalSize));
}

void HumanOutput::writeMoved(std::uint64_t done, std::uint64_t total) {
  if (!bar_) return;
  const auto now = ProgressBar::Clock::now();
  bar_->resume(done, total == 0 ? std::nullopt : std::optional(total), now);
  showBar(now, total > 0 && done >= total);
}

void HumanOutput::writeBeginItems(std::size_t count, std::optional<std::uint64_t> bytes) {
  bar_.reset();
  if (asides_ == Asides::kShown) items_.emplace(count, bytes, ProgressBar::Clock::now());
}

void HumanOutput::writeItemProgress(const Item& item, std::uint64_t done, std::uint64_t total) {
  if (!items_) return;
  const auto now = ProgressBar::Clock::now();
  items_->update(item.number, item.name, done, total == 0 ? std::nullopt : std::optional(total),
                 now);
  showBar(now, false);
}

void HumanOutput::writeItemSucceeded(const Item& item, const Value&, const HumanText& text) {
  const std::string line = text();
  endItem(item, TransferList::End::kSucceeded);
  if (line.empty()) return;
  console_.aside([&] { results_ << line << std::flush; });
}

void HumanOutput::writeItemFailed(const Item& item, const Value& error, const Explain& explain) {
  endItem(item, TransferList::End::kFailed);
  printFailure(explain(error));
}

void HumanOutput::endItem(const Item& item, TransferList::End how) {
  if (!items_) return;
  const auto now = ProgressBar::Clock::now();
  items_->end(item.number, how, now);
  // Its bar goes before its last line comes.
  showBar(now, true);
}

void HumanOutput::writeTick() {
  if (bar_ || items_) showBar(ProgressBar::Clock::now(), false);
}

void HumanOutput::showBar(ProgressBar::Clock::time_point now, bool isLast) {
  // The last report is shown in any case: the line would otherwise stop a little short of the end.
  if (!console_.isTerminal() || (!isLast && now - lastShown_ < kRedrawInterval)) return;
  lastShown_ = now;
  const std::size_t width = width_();
  const std::size_t columns = width - std::min(width, kRightMargin);
  console_.setProgressLine(items_ ? items_->text(columns, now) : bar_->line(columns, now));
}

void HumanOutput::writeEvent(const std::string&, const Dictionary&, const HumanText& text) {
  bar_.reset();
  takeProgressAway();
  results_ << text() << std::flush;
}

void HumanOutput::writeNote(const std::string& text) {
  if (asides_ == Asides::kShown) console_.print(text);
}

void HumanOutput::writeWarning(const std::string& text) {
  console_.print(text, "warning: ", Console::Style::kWarning);
}

void HumanOutput::writeSuccess(const Value&, const HumanText& text) {
  takeProgressAway();
  results_ << text() << std::flush;
}

void HumanOutput::writePaused(const Dictionary&, const HumanText& text) {
  takeProgressAway();
  console_.print(text(), "paused: ", Console::Style::kWarning);
}

void HumanOutput::writeFixedFailure() {
  takeProgressAway();
  console_.print(
      "the command was broken off: there was no memory left, or something unexpected happened",
      "error: ", Console::Style::kError);
}

void HumanOutput::writeFailure(const Value& error, const Explain& explain) {
  takeProgressAway();
  printFailure(explain(error));
}

void HumanOutput::printFailure(const FailureText& failure) {
  console_.print(printable(failure.message), "error: ", Console::Style::kError);
  if (!failure.hint.empty()) console_.print(failure.hint, "hint: ", Console::Style::kFaint);
}

void HumanOutput::takeProgressAway() { console_.setProgressLine({}); }

}  // namespace varo::cli
