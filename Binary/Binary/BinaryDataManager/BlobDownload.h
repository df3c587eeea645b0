#pragma once

#include "Binary/Binary/BinaryDataManager/DownloadRows.h"
#include "Binary/Binary/BinaryDataManager/WaitingBlocks.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

class DownloadPlaces;

/// The download of one blob, from its creation to its end: what callers wait for, its place among
/// the others, its file, its row, and the task that does the work. docs/architecture.md shows its
/// life as a diagram.
///
/// Its state has one owner, the step queue that its task shares. What callers ask for and what the
/// task tells are steps; rows, blocks and tasks are effects, which follow in order:
///
///     start -> waits for a place -> claims the file -> reads the row -> 102 -> fetches
///           -> 50, 104 or 103 -> gives the file back -> blocks -> the next download
///
/// Whoever does not hold the claim on the file writes neither file nor row. Blocks are called on
/// the calling thread or on one of the pool, each at most once. Thread-safe.
class BlobDownload final : public platform::TaskListener,
                           public std::enable_shared_from_this<BlobDownload> {
 public:
  /// `input` is that of the task, with "BlobID" and "DBName". `places` outlives the download.
  [[nodiscard]] static std::shared_ptr<BlobDownload> create(platform::Dictionary input,
                                                            OperationSettings::Ptr settings,
                                                            DownloadPlaces& places);

  [[nodiscard]] const std::string& blobId() const noexcept { return blobId_; }
  /// Whether it waits or runs.
  [[nodiscard]] bool isUnderWay() const;

  // What callers ask for; see `BinaryDataManager`.
  void start(DownloadBlock completion);
  void pause(DownloadBlock completion);
  void resume(DownloadBlock completion);
  /// Ends the run that is under way. A later start, resume or pause continues from there.
  void stop();
  /// For a download that will not be started again: pauses what runs, and stops what waits. The
  /// block of the start hears of it as of a `stop`, after the row says so. Nothing where the
  /// download is over before.
  void halt();
  /// Ends it for good and forgets its blocks.
  void clear();

  // Called by `DownloadPlaces`.
  /// There is a free place: the download runs.
  void begin();
  /// The runtime has shut down, so no place will become free any more.
  void shutDown();

  /// Hears of the task. Called by the engine.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

 private:
  struct Badge {};
  using Effects = StepQueue::Effects;
  using Result = std::optional<platform::Dictionary>;

 public:
  BlobDownload(Badge badge, const platform::Dictionary& input, OperationSettings::Ptr settings,
               DownloadPlaces& places);

 private:
  enum class State {
    kCreated,
    kWaiting,  // for a place, or for another download of this process to give the file back
    kRunning,  // from its place on until the row says how it ended
    kPausing,  // the same, since a pause was asked for
    kPaused,
    kEnded,
    kFailed,
    kStopped,  // in the middle of a run; the next start, resume or pause continues from there
    kCleared,
  };

  void moveTo(State state);
  /// From its place on until the row says how it ended.
  [[nodiscard]] bool runs() const noexcept {
    return state_ == State::kRunning || state_ == State::kPausing;
  }
  [[nodiscard]] std::shared_ptr<DownloadTask> makeTask(platform::Dictionary input);
  /// Makes a new task for the next run: a late notification of the old task must not be taken for
  /// one of the new run.
  void renewTask();
  /// Runs the step of a caller. What it throws becomes the outcome of that call alone.
  void ask(DownloadBlock completion, const std::function<Effects(DownloadBlock&)>& step);

  // Parts of steps. Their order matters: first what may fail, then the change of state, last the
  // blocks are taken. So a step that throws has changed nothing.
  [[nodiscard]] Effects schedule();
  [[nodiscard]] Effects resumePaused(DownloadBlock& completion);
  [[nodiscard]] Effects end(State state, const platform::ErrorPtr& error);
  [[nodiscard]] Effects rest(State state, const platform::ErrorPtr& error, const Result& result);
  [[nodiscard]] Effects refuse(DownloadBlock& completion, std::string_view message) const;
  [[nodiscard]] Effects answer(DownloadBlock& block, const platform::ErrorPtr& error,
                               const Result& result) const;
  [[nodiscard]] StepQueue::Effect calling(const std::shared_ptr<WaitingBlocks>& waiting,
                                          const platform::ErrorPtr& error, const Result& result,
                                          const platform::ErrorPtr& pauseError) const;

  // Effects, and what the task tells.
  enum class Run { kStarts, kResumes };
  void run(Run run);
  /// Null if the run is over, or has to wait for the file.
  [[nodiscard]] FileClaim::Lease claimFile();
  void claimIsFree();
  void launch(Run run, const FileClaim::Lease& claim, const platform::Dictionary& row);
  void endWithWholeFile(const FileClaim::Lease& claim, std::int64_t size);
  void taskChanged(const platform::VSTask& task, const FileClaim::Lease& claim,
                   platform::TaskState to, const platform::Dictionary& output);
  void taskEnded(const FileClaim::Lease& claim, const platform::Dictionary& output);
  /// `claim` is that of the failed run; null if the run could not get one.
  void fail(const FileClaim::Lease& claim, const platform::Dictionary& context);
  void comeToRest(const FileClaim::Lease& claim, State state, const platform::ErrorPtr& error,
                  const Result& result);
  void threw(std::string_view what);

  const std::string blobId_;
  const OperationSettings::Ptr settings_;
  const DownloadRows rows_;
  DownloadPlaces& places_;
  const std::shared_ptr<StepQueue> steps_;

  // Owned by `steps_`.
  State state_ = State::kCreated;
  bool isHalted_ = false;
  std::shared_ptr<DownloadTask> task_;       // carries the blocks that wait
  FileClaim::Lease claim_;                   // while it runs
  std::shared_ptr<BlobDownload> untilRest_;  // itself while it runs, also when it was replaced
};

}  // namespace varo::binary
