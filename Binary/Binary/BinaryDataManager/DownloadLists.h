#pragma once

#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::binary {

/// Which downloads there are, which of them wait, run, and have ended. Knows the order, starts
/// nothing and calls nobody. Thread-safe; each call is atomic.
class DownloadLists {
 public:
  using TaskPtr = std::shared_ptr<DownloadTask>;

  /// At most `parallelJobs` downloads are in progress at once.
  explicit DownloadLists(std::size_t parallelJobs) : parallelJobs_(parallelJobs) {}

  /// A download as its owner is to see it.
  struct Found {
    TaskPtr task;
    /// The task's own state, except that one that has paused or come to its end counts as Started
    /// until the owner has `note`d that, and one that was claimed as what it is claimed for.
    platform::TaskState state;
    /// Changes when the lists are cleared.
    std::uint64_t generation;
  };
  /// Without a task for an unknown blob id.
  [[nodiscard]] Found find(const std::string& blobId) const;
  /// Enters a new download, which replaces the one of its name. That one stays in its list, and is
  /// kept in mind while it runs.
  void add(const TaskPtr& task);

  /// Notes that the consequences of the task's change to `state` have been drawn.
  void note(const DownloadTask& task, platform::TaskState state);
  /// Has the download, which has been noted to be in `from`, count as NotStarted, until it is and
  /// the caller calls `settle`. One caller alone succeeds, and only while the task is the one of
  /// its name.
  [[nodiscard]] bool claimRestart(const DownloadTask& task, platform::TaskState from);
  /// The same of one that is Paused, which counts as Started. In the same moment the block of its
  /// start is taken, which this returns; none where the claim failed.
  [[nodiscard]] std::optional<DownloadBlock> claimResume(DownloadTask& task);
  /// Whether a resume of the download is under way; the pause is then that caller's to do.
  [[nodiscard]] bool leavePauseToResume(const DownloadTask& task);
  /// Ends a claim. Whether a pause was left to the caller.
  [[nodiscard]] bool settle(const DownloadTask& task);

  /// Whether nothing was cleared since `find` told this generation.
  [[nodiscard]] bool isCurrent(std::uint64_t generation) const;

  /// Puts the task at the end of those that wait, unless it is among them. False, and nothing done,
  /// when the lists were cleared since the task was found.
  [[nodiscard]] bool schedule(const TaskPtr& task, std::uint64_t generation);
  [[nodiscard]] bool hasScheduled() const;
  /// Empties the list of those that wait.
  [[nodiscard]] std::vector<TaskPtr> takeScheduled();
  /// While there is room: moves `task`, if it still waits, to those in progress and returns it. A
  /// task that cannot be started (it was already, or has ended while it waited) makes way for the
  /// first one that waits, and so on. Null when there is none to start. Under
  /// `TransferPolicy::kSafe` a task that was stopped cannot be started, and one waits on while
  /// another of its name runs, or is finished and its row does not say so yet.
  [[nodiscard]] TaskPtr takeToStart(const TaskPtr& task);
  /// The same of the first one that waits.
  [[nodiscard]] TaskPtr takeFirstToStart();

  [[nodiscard]] bool isInProgress(const std::string& blobId) const;
  void removeFromInProgress(const TaskPtr& task);
  void moveToFinished(const TaskPtr& task);
  void removeFromFinished(const TaskPtr& task);

  struct Entry {
    TaskPtr task;
    platform::TaskState noted = platform::TaskState::NotStarted;
    /// Those that have not been settled.
    std::size_t claims = 0;
    bool isPauseLeft = false;
  };
  /// Everything. A task is in at most one of the first three, and often in `tasks` or `replaced`
  /// beside.
  struct Content {
    std::vector<TaskPtr> schedulingQueue;
    std::vector<TaskPtr> inProgressQueue;
    std::vector<TaskPtr> finishedQueue;
    std::map<std::string, Entry> tasks;
    /// Those that ran when another of their name was entered, until they have come to rest.
    std::vector<Entry> replaced;
  };
  [[nodiscard]] std::map<std::string, Entry> tasks() const;
  /// Empties the lists.
  [[nodiscard]] Content takeAll();

 private:
  enum class Fitness { kStartable, kMustWait, kNever };

  /// Of the task of its name; null for any other.
  [[nodiscard]] Entry* entryLocked(const DownloadTask& task) VARO_REQUIRES(mutex_);
  [[nodiscard]] Entry* replacedLocked(const DownloadTask& task) VARO_REQUIRES(mutex_);
  /// Either.
  [[nodiscard]] Entry* keptLocked(const DownloadTask& task) VARO_REQUIRES(mutex_);
  [[nodiscard]] bool claimLocked(const DownloadTask& task, platform::TaskState from,
                                 platform::TaskState to) VARO_REQUIRES(mutex_);
  [[nodiscard]] Fitness fitnessLocked(const TaskPtr& task) const VARO_REQUIRES(mutex_);
  [[nodiscard]] bool anotherRunsLocked(const TaskPtr& task) const VARO_REQUIRES(mutex_);
  /// The first that can be started. What cannot goes to `dropped`.
  [[nodiscard]] TaskPtr takeFirstLocked(std::vector<TaskPtr>& dropped) VARO_REQUIRES(mutex_);

  const std::size_t parallelJobs_;

  /// Of the tasks, only what they are is asked under it, and a block taken. Nothing is called, and
  /// neither a task nor a block is destroyed.
  mutable platform::Mutex mutex_;
  Content content_ VARO_GUARDED_BY(mutex_);
  std::uint64_t generation_ VARO_GUARDED_BY(mutex_) = 0;
};

}  // namespace varo::binary
