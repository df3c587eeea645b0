#include "Cli/Output.h"

#include <utility>

namespace varo::cli {

using platform::MutexLock;
using platform::Value;

void Output::begin(const std::string& activity) {
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

bool Output::success(const Value& result, const HumanText& text) {
  MutexLock lock(mutex_);
  if (finished_) return false;
  finished_ = true;
  writeSuccess(result, text);
  return true;
}

bool Output::failure(const Value& error, const Explain& explain) {
  MutexLock lock(mutex_);
  if (finished_) return false;
  finished_ = true;
  writeFailure(error, explain);
  return true;
}

bool Output::paused(const platform::Dictionary& state, const HumanText& text) {
  MutexLock lock(mutex_);
  if (finished_) return false;
  finished_ = true;
  writePaused(state, text);
  return true;
}

bool Output::allWritten() const {
  MutexLock lock(mutex_);
  return streamsAreGood();
}

}  // namespace varo::cli
