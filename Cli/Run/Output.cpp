#include "Cli/Run/Output.h"

#include "Platform/Foundation/Redaction.h"

#include <utility>

namespace varo::cli {

using platform::MutexLock;
using platform::Value;

void Output::begin(const std::string& activity) {
  // Held while writing, here and below: lines of several threads stay whole, and nothing is
  // written behind the last event.
  MutexLock lock(mutex_);
  if (!finished_) writeBegin(activity);
}

void Output::progress(const Value& progress) {
  MutexLock lock(mutex_);
  if (!finished_) writeProgress(progress);
}

void Output::started(const std::string& id) {
  MutexLock lock(mutex_);
  if (!finished_ && !std::exchange(started_, true)) writeStarted(id);
}

void Output::chunk(const std::string& id, std::int64_t bytesWritten, std::int64_t totalSize) {
  MutexLock lock(mutex_);
  if (!finished_) writeChunk(id, bytesWritten, totalSize);
}

void Output::moved(std::uint64_t done, std::uint64_t total) {
  MutexLock lock(mutex_);
  if (!finished_) writeMoved(done, total);
}

void Output::beginItems(std::size_t count, std::optional<std::uint64_t> bytes) {
  MutexLock lock(mutex_);
  if (!finished_) writeBeginItems(count, bytes);
}

void Output::itemProgress(const Item& item, std::uint64_t done, std::uint64_t total) {
  MutexLock lock(mutex_);
  if (!finished_) writeItemProgress(item, done, total);
}

void Output::itemSucceeded(const Item& item, const Value& result, const HumanText& text) {
  MutexLock lock(mutex_);
  if (!finished_) writeItemSucceeded(item, result, text);
}

void Output::itemFailed(const Item& item, const Value& error, const Explain& explain) {
  MutexLock lock(mutex_);
  if (!finished_) writeItemFailed(item, platform::withoutSecrets(error), explain);
}

void Output::tick() {
  MutexLock lock(mutex_);
  if (!finished_) writeTick();
}

void Output::event(const std::string& name, const platform::Dictionary& details,
                   const HumanText& text) {
  MutexLock lock(mutex_);
  if (!finished_) writeEvent(name, details, text);
}

void Output::note(const std::string& text) {
  MutexLock lock(mutex_);
  if (!finished_) writeNote(text);
}

void Output::warning(const std::string& text) {
  MutexLock lock(mutex_);
  if (!finished_) writeWarning(text);
}

bool Output::success(const Value& result, const HumanText& text) {
  return finish([&] { writeSuccess(result, text); });
}

bool Output::failure(const Value& error, const Explain& explain) {
  return finish([&] { writeFailure(platform::withoutSecrets(error), explain); });
}

bool Output::paused(const platform::Dictionary& state, const HumanText& text) {
  return finish([&] { writePaused(state, text); });
}

/// A line is written when it is complete, so that what throws before has written nothing.
bool Output::finish(const std::function<void()>& write) {
  MutexLock lock(mutex_);
  // Set before the write, so that a write that throws is not taken for one that never was.
  if (std::exchange(finished_, true)) return false;
  try {
    write();
    return true;
  } catch (...) {
    writeFixedFailureLocked();
    return false;
  }
}

void Output::failWithFixedWords() noexcept {
  MutexLock lock(mutex_);
  if (!std::exchange(finished_, true)) writeFixedFailureLocked();
}

void Output::writeFixedFailureLocked() noexcept {
  try {
    writeFixedFailure();
  } catch (...) {
    // A stream that throws: `allWritten` tells.
  }
}

bool Output::allWritten() const {
  MutexLock lock(mutex_);
  return streamsAreGood();
}

}  // namespace varo::cli
