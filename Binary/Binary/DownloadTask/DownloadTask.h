#pragma once

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::binary {

class DataPersistenceTask;
class FileClaim;
class NetworkTask;
class StepQueue;

/// One download of one object: a `NetworkTask` that fetches it range by range, beside a
/// `DataPersistenceTask` that writes the ranges to the object's file or hands them to a block. Its
/// name is the blob id.
///
/// It is at rest before its start, and again once it is Paused, Ended or Errored:
/// - It comes to rest when the persistence task ends.
/// - The state of the network task then decides which of the three states it is in. It is also
///   Errored if the bytes could not be stored.
/// - A download that is stopped stays in its state and is freed.
///
/// Input: "BlobID", and what the two subtasks read. Output: "BlobID", "FilePath", "TotalFileSize";
/// a context change tells of "FilePath" as soon as a first part of the object is in the file.
/// Error context: "DownloadError", or what the subtask that failed has in its own.
///
/// No other download writes its file:
/// - with a `FileClaim` in the input, as long as the claim has leases;
/// - without one, from the first chunk until the download is paused, has failed or is destroyed, or
///   `stop` or `releaseFile` is called.
///
/// Thread-safe.
class DownloadTask final : public platform::VSTask {
 public:
  /// A task of this name (the blob id) with its two subtasks. `steps` owns its state; who watches
  /// the task may share it. Null: the task makes its own. `clock` is the network task's.
  [[nodiscard]] static std::shared_ptr<DownloadTask> create(
      std::string name, std::shared_ptr<StepQueue> steps = nullptr,
      const platform::Clock& clock = platform::Clock::system());
  ~DownloadTask() override;

  void execute() override;

  /// Ends the requests that are under way. The task is Paused when all that was received before is
  /// in the file. Does nothing to a task at rest.
  void pauseDownload();
  /// Resumes a paused download at the input's "TotalBytesDownloaded".
  void resumeDownload();
  /// Ends the requests that are under way, writes no further byte and releases the file. Final.
  void stop();
  /// Lets other downloads write the file. Called by the owner of a task at rest, after it has noted
  /// how the task ended. `lease`, which may be null, is dropped when nothing writes the file any
  /// more.
  void releaseFile(std::shared_ptr<FileClaim> lease = nullptr);
  /// Replaces the input context.
  void updateInputContext(platform::Dictionary dictionary);

  /// Hears of the two subtasks.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

  // Carried for the manager, never called by the task. Owned by the manager's steps.
  DownloadBlock startDownloadTaskCompletionBlock;
  DownloadBlock pauseDownloadTaskCompletionBlock;
  DownloadBlock resumeDownloadTaskCompletionBlock;
  OnFileDownloadStarted::Function onFileDownloadStartedCompletionBlock;
  OnDownloadFailure::Function onDownloadFailureCompletionBlock;
  OnFileDownloadCompleted::Function onFileDownloadCompletedCompletionBlock;

 private:
  struct Badge {};

 public:
  DownloadTask(Badge badge, std::string name, std::shared_ptr<StepQueue> steps,
               const platform::Clock& clock);

 private:
  /// Where a run stands. Idle -> running, or pausing when the pause comes before the subtasks run;
  /// running -> pausing; both -> resting, until the task's own state says so too, -> idle;
  /// everything -> stopped.
  enum class Run { kIdle, kRunning, kPausing, kResting, kStopped };

  void createAndAddSubtasks();
  void setupListeners();
  [[nodiscard]] bool validateInput() const;
  /// Does nothing: the listener decides when the download ends, not the end of a subtask.
  void subtaskFinished(const std::shared_ptr<platform::VSTask>& subtask,
                       platform::TaskState state) override;

  // Steps.
  [[nodiscard]] std::vector<std::function<void()>> beginRun();
  [[nodiscard]] std::vector<std::function<void()>> persistenceEnded();
  [[nodiscard]] std::vector<std::function<void()>> comeToRest(platform::TaskState state);
  void moveTo(Run run);

  // Effects.
  /// Raises a context change when the file has its first bytes and there are more to come.
  void announceFile(const platform::Value& filePath);
  void rest(platform::TaskState state);

  void persistenceChanged(platform::TaskState to);
  void threw(std::string_view what);

  const std::shared_ptr<StepQueue> steps_;
  const std::shared_ptr<NetworkTask> _networkTask;
  const std::shared_ptr<DataPersistenceTask> _dataPersistenceTask;

  // Owned by `steps_`.
  Run run_ = Run::kIdle;
  /// Itself while it runs, whoever else holds it.
  std::shared_ptr<DownloadTask> untilRest_;
};

}  // namespace varo::binary
