#pragma once

#include "Binary/Binary/DownloadTask/CarriedBlock.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace varo::binary {

class DataPersistenceTask;
class NetworkTask;

/// The outcome of a start, pause or resume: blob id, error or null, result or none.
using DownloadBlock =
    std::function<void(const std::optional<std::string>& blobId, const platform::ErrorPtr& error,
                       const std::optional<platform::Dictionary>& result)>;

/// One download of one object: a `NetworkTask` that fetches it range by range, beside a
/// `DataPersistenceTask` that writes the ranges to the object's file or hands them to a block. Its
/// name is the blob id.
///
/// Ends when the persistence task has, in the state of the network task: Paused, Ended or Errored;
/// or Errored where the bytes could not be kept. A download that was stopped stays in the state it
/// was in and is freed.
///
/// Input: "BlobID", and what the two subtasks read. Output: "BlobID", "FilePath", "TotalFileSize";
/// a context change tells of "FilePath" as soon as a first part of the object is in the file.
/// Error context: "DownloadError", or what the subtask that failed has in its own. The file of a
/// download belongs to it alone from its first chunk until it is paused, stopped, has failed or
/// `releaseFile` is called; another download of it in any process fails meanwhile.
class DownloadTask final : public platform::VSTask {
 public:
  /// A task of this name (the blob id) with its two subtasks.
  [[nodiscard]] static std::shared_ptr<DownloadTask> create(std::string name);
  ~DownloadTask() override;

  void execute() override;

  /// Asks for no further range. The task is Paused when all that has arrived is in the file.
  void pauseDownload();
  /// Goes on with a paused download, from the input's "TotalBytesDownloaded" on.
  void resumeDownload();
  /// Asks for no further range and writes no further byte. Final.
  void stop();
  /// Whether `stop` was called.
  [[nodiscard]] bool isStopped() const;
  /// Lets other downloads write the file: for the owner of an Ended task that has noted its end.
  void releaseFile();
  /// Replaces the input context.
  void updateInputContext(platform::Dictionary dictionary);

  /// Hears of the two subtasks.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

  // Carried for the manager, never called by the task. A block that is taken is gone, so that each
  // request is answered once.
  void setStartDownloadTaskCompletionBlock(DownloadBlock block) {
    _startDownloadTaskCompletionBlock.set(std::move(block));
  }
  [[nodiscard]] DownloadBlock takeStartDownloadTaskCompletionBlock() {
    return _startDownloadTaskCompletionBlock.take();
  }
  void setPauseDownloadTaskCompletionBlock(DownloadBlock block) {
    _pauseDownloadTaskCompletionBlock.set(std::move(block));
  }
  [[nodiscard]] DownloadBlock takePauseDownloadTaskCompletionBlock() {
    return _pauseDownloadTaskCompletionBlock.take();
  }
  void setResumeDownloadTaskCompletionBlock(DownloadBlock block) {
    _resumeDownloadTaskCompletionBlock.set(std::move(block));
  }
  [[nodiscard]] DownloadBlock takeResumeDownloadTaskCompletionBlock() {
    return _resumeDownloadTaskCompletionBlock.take();
  }
  void setOnFileDownloadStartedCompletionBlock(OnFileDownloadStarted::Function block) {
    _onFileDownloadStartedCompletionBlock.set(std::move(block));
  }
  [[nodiscard]] OnFileDownloadStarted::Function takeOnFileDownloadStartedCompletionBlock() {
    return _onFileDownloadStartedCompletionBlock.take();
  }
  void setOnDownloadFailureCompletionBlock(OnDownloadFailure::Function block) {
    _onDownloadFailureCompletionBlock.set(std::move(block));
  }
  [[nodiscard]] OnDownloadFailure::Function takeOnDownloadFailureCompletionBlock() {
    return _onDownloadFailureCompletionBlock.take();
  }
  void setOnFileDownloadCompletedCompletionBlock(OnFileDownloadCompleted::Function block) {
    _onFileDownloadCompletedCompletionBlock.set(std::move(block));
  }
  [[nodiscard]] OnFileDownloadCompleted::Function takeOnFileDownloadCompletedCompletionBlock() {
    return _onFileDownloadCompletedCompletionBlock.take();
  }

 private:
  struct Badge {};

 public:
  DownloadTask(Badge, std::string name);

 private:
  void createAndAddSubtasks();
  void setupListeners();
  [[nodiscard]] bool validateInput() const;
  void subtaskFinished(const std::shared_ptr<platform::VSTask>& subtask,
                       platform::TaskState state) override;
  /// Raises a context change when the file has its first bytes and there are more to come.
  void announceFile(const platform::Value& filePath);
  void endAsNetworkTask();

  void noteSubtasksRun();
  void stopSubtasks();
  void comeToRest(platform::TaskState state);

  const std::shared_ptr<NetworkTask> _networkTask;
  const std::shared_ptr<DataPersistenceTask> _dataPersistenceTask;

  mutable platform::Mutex controlMutex_;
  bool subtasksRun_ VARO_GUARDED_BY(controlMutex_) = false;
  bool isResuming_ VARO_GUARDED_BY(controlMutex_) = false;
  /// Asked for before there was a subtask to tell; done as soon as they run.
  bool isPausePending_ VARO_GUARDED_BY(controlMutex_) = false;
  bool isStopped_ VARO_GUARDED_BY(controlMutex_) = false;
  /// Itself, from the end of the network task until it comes to rest: a persistence task that has
  /// Ended before tells of that end again, and only its listeners, which are held weakly.
  std::shared_ptr<DownloadTask> untilRest_ VARO_GUARDED_BY(controlMutex_);

  CarriedBlock<DownloadBlock> _startDownloadTaskCompletionBlock;
  CarriedBlock<DownloadBlock> _pauseDownloadTaskCompletionBlock;
  CarriedBlock<DownloadBlock> _resumeDownloadTaskCompletionBlock;
  CarriedBlock<OnFileDownloadStarted::Function> _onFileDownloadStartedCompletionBlock;
  CarriedBlock<OnDownloadFailure::Function> _onDownloadFailureCompletionBlock;
  CarriedBlock<OnFileDownloadCompleted::Function> _onFileDownloadCompletedCompletionBlock;
};

}  // namespace varo::binary
