#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Files/DeleteKind.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::sandbox {

/// The deletes that were accepted for later, and how many status requests each has had. The last
/// few thousand are kept, finished or not: a response may get lost, and its client asks again.
/// Thread-safe.
class AcceptedDeletes {
 public:
  using FileIds = std::shared_ptr<const std::vector<std::string>>;

  /// What one poll is to be told.
  struct Poll {
    enum class Answer { kWorking, kDone, kFailed };
    Answer answer = Answer::kWorking;
    DeleteKind kind;
    /// The files that the delete concerns: to be removed before "done" is said. Null when they are.
    FileIds files;
    std::size_t fileCount = 0;
  };

  struct Limits {
    std::size_t deletes = 4096;
    std::size_t files = 1'000'000;  ///< Of all deletes together, as long as they are not removed.
  };

  explicit AcceptedDeletes(Limits limits) : limits_(limits) {}

  /// Returns the name under which to ask. The oldest ones are forgotten where there are too many.
  [[nodiscard]] std::string add(DeleteKind kind, std::vector<std::string> files);

  /// Counts the poll; nothing for a name that was never given or is forgotten.
  [[nodiscard]] std::optional<Poll> poll(std::string_view name);

  /// Says that the files of `name` are removed.
  void finish(std::string_view name);

 private:
  struct Entry {
    DeleteKind kind;
    FileIds files;
    std::size_t fileCount = 0;
    std::uint64_t polls = 0;
  };
  void forgetOldestLocked() VARO_REQUIRES(mutex_);

  const Limits limits_;
  platform::Mutex mutex_;
  std::map<std::string, Entry, std::less<>> entries_ VARO_GUARDED_BY(mutex_);
  std::deque<std::string> names_ VARO_GUARDED_BY(mutex_);  // oldest first
  /// Of all entries, those that are not removed yet.
  std::size_t heldFiles_ VARO_GUARDED_BY(mutex_) = 0;
};

}  // namespace varo::sandbox
