#include "Sandbox/Files/AcceptedDeletes.h"

#include "Sandbox/Storage/RandomName.h"

#include <utility>

namespace varo::sandbox {
namespace {

AcceptedDeletes::Poll::Answer answerTo(const DeleteKind& kind, std::uint64_t pollsBefore) {
  using Answer = AcceptedDeletes::Poll::Answer;
  if (kind.mode == DeleteKind::Mode::kNever || pollsBefore < kind.polls) return Answer::kWorking;
  return kind.mode == DeleteKind::Mode::kFailing ? Answer::kFailed : Answer::kDone;
}

}  // namespace

std::string AcceptedDeletes::add(DeleteKind kind, std::vector<std::string> files) {
  std::string name = randomName();
  Entry entry;
  entry.kind = kind;
  entry.fileCount = files.size();
  entry.files = std::make_shared<const std::vector<std::string>>(std::move(files));

  // The long list is moved in above: polls of other clients wait for this lock.
  const platform::MutexLock lock(mutex_);
  heldFiles_ += entry.fileCount;
  entries_.emplace(name, std::move(entry));
  names_.push_back(name);
  // The new one stays in any case.
  while (names_.size() > 1 && (names_.size() > limits_.deletes || heldFiles_ > limits_.files)) {
    forgetOldestLocked();
  }
  return name;
}

std::optional<AcceptedDeletes::Poll> AcceptedDeletes::poll(std::string_view name) {
  const platform::MutexLock lock(mutex_);
  const auto found = entries_.find(name);
  if (found == entries_.end()) return std::nullopt;
  Entry& entry = found->second;
  // The list of files is shared, not copied, and nobody changes it. The caller removes them outside
  // the lock.
  return Poll{answerTo(entry.kind, entry.polls++), entry.kind, entry.files, entry.fileCount};
}

void AcceptedDeletes::finish(std::string_view name) {
  const platform::MutexLock lock(mutex_);
  const auto found = entries_.find(name);
  // Two polls at once may both have removed the files; they are counted once.
  if (found == entries_.end() || !found->second.files) return;
  heldFiles_ -= found->second.fileCount;
  found->second.files.reset();
}

void AcceptedDeletes::forgetOldestLocked() {
  const auto oldest = entries_.find(names_.front());
  if (oldest->second.files) heldFiles_ -= oldest->second.fileCount;
  entries_.erase(oldest);
  names_.pop_front();
}

}  // namespace varo::sandbox
