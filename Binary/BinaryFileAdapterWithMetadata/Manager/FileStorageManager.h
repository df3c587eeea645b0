#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryFileDownloaderTask.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/TaskEngine/VSTask.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

class UploadAdmission;

/// The dispatcher behind the facade. For each operation it
/// - checks the arguments; a failed check is reported to the callback at once, and no task is made;
/// - builds the input context of the operation's task and starts the task;
/// - reports the outcome of a download, to which it listens. All other tasks report themselves; if
///   one fails before it could, the manager reports the failure.
///
/// Each operation takes its `OperationSettings` from the options when it is started, with the
/// `platform::Cancellation` that may stand there under "cancellation". One that is cancelled ends
/// with one failure, `kCodeOperationCancelled`, in the domain of its other errors.
///
/// It is a task only to be a listener, and is never run. Thread-safe. Callbacks and tasks are never
/// called with its lock held.
class FileStorageManager final : public platform::VSTask {
 public:
  /// The process's one manager, which is never destroyed.
  [[nodiscard]] static FileStorageManager& sharedInstance();

  /// `criteria` is a ready "$filter" expression. Of the options only "disableIntegrityCheck" is
  /// read, beside the settings.
  void listFilesWithUrl(const std::string& url, const std::optional<std::string>& criteria,
                        const std::optional<platform::Dictionary>& headers,
                        const std::shared_ptr<BinaryCallback>& callback,
                        const std::optional<platform::Dictionary>& options);
  /// `uploadParams` get a positive "chunkSize", of their own or `kDefaultChunkSize`; the input type
  /// only decides what of them is checked. So many run at once as the process may have open files
  /// for, 256 at most; the others wait for their turn.
  void uploadBinaryWithUrl(const std::string& url, UploadInputType inputType,
                           const std::optional<platform::Dictionary>& uploadParams,
                           const std::shared_ptr<BinaryCallback>& callback,
                           const std::optional<platform::Dictionary>& options);
  /// One download of a file at a time: a second one fails with "DownloadError",
  /// `kDownloadNotStartedAlreadyExistsInQueue`. The options reach the tasks under
  /// `TransferPolicy::kSafe` only.
  void downloadWithURL(const std::string& url, const std::optional<platform::Dictionary>& params,
                       const std::shared_ptr<BinaryCallback>& callback,
                       const std::optional<platform::Dictionary>& options);
  /// Sends `params`' "metadata" with their "headers". Of the options only the settings are read.
  void updateWithUrl(const std::string& url, const std::optional<platform::Dictionary>& params,
                     const std::shared_ptr<BinaryCallback>& callback,
                     const std::optional<platform::Dictionary>& options);
  /// The file with this identifier; also what `delete_` says.
  void deleteWithUrl(const std::string& url, const std::optional<std::string>& fileId,
                     const std::optional<platform::Dictionary>& deleteParams,
                     const std::optional<platform::Dictionary>& headers,
                     const std::shared_ptr<BinaryCallback>& callback,
                     const std::optional<platform::Dictionary>& options);
  /// The files whose metadata has all of these entries; also what `delete_` says.
  void deleteByCriteria(const std::string& url,
                        const std::optional<platform::Dictionary>& deleteCriteria,
                        const std::optional<platform::Dictionary>& headers,
                        const std::shared_ptr<BinaryCallback>& callback,
                        const std::optional<platform::Dictionary>& options);
  /// With an identifier, the parameters are further entries that the file has to have; without,
  /// they are the criteria. With neither, the request selects nothing in particular, and what that
  /// deletes is the service's decision; under `TransferPolicy::kSafe` it is an error.
  void delete_(const std::string& url, const std::optional<std::string>& fileId,
               const std::optional<platform::Dictionary>& deleteParams,
               const std::optional<platform::Dictionary>& headers,
               const std::shared_ptr<BinaryCallback>& callback,
               const std::optional<platform::Dictionary>& options);

  /// "url", "callback" and, where there are options, "options" and "disableIntegrityCheck" (of the
  /// options, else true). Without options a warning names the method.
  [[nodiscard]] static platform::Dictionary generateCommonInputContextWithMethodName(
      std::string_view methodName, const std::string& url,
      const std::shared_ptr<BinaryCallback>& binaryCallback,
      const std::optional<platform::Dictionary>& options);

  /// Hears of the downloads. Called by the engine.
  void task(const std::shared_ptr<VSTask>& task, platform::TaskState from, platform::TaskState to,
            const platform::Dictionary& context) override;

 private:
  struct Badge {};
  using DownloadPtr = std::shared_ptr<BinaryFileDownloaderTask>;

 public:
  /// For `sharedInstance` alone, as the badge says.
  explicit FileStorageManager(Badge badge);

 private:
  /// Notes which operation is entered. False, after a report, where it cannot go on.
  [[nodiscard]] bool enterWithUrl(std::string_view functionTag, const std::string& url,
                                  const std::shared_ptr<BinaryCallback>& callback);
  /// What an upload was called with, and its settings: thousands of them may wait.
  struct Upload {
    std::string url;
    platform::Dictionary params;
    std::shared_ptr<BinaryCallback> callback;
    std::optional<platform::Dictionary> options;
    OperationSettings::Ptr settings;
  };
  /// Starts one that has been admitted; `place` goes with it.
  void startUpload(const Upload& asked, std::shared_ptr<void> place);
  /// Starts the task of an operation, which is told of its end whatever happens.
  void start(const std::shared_ptr<VSTask>& operation);
  [[nodiscard]] std::string functionTag() const;
  /// Logs `message`, with the error as its third value, and hands the error to the callback.
  void reportInvalid(std::string_view message, const std::shared_ptr<BinaryCallback>& callback,
                     const platform::ErrorPtr& error);
  void reportFailure(const std::shared_ptr<BinaryCallback>& callback,
                     const platform::ErrorPtr& error);
  /// Adds "headers" to `input`, or logs that there are none.
  void addHeaders(const std::optional<platform::Dictionary>& headers, platform::Dictionary& input);
  /// Adds "requestContext", which says what to delete, to `input`, where there is anything to say.
  /// False, after a report, where the arguments are not valid.
  [[nodiscard]] bool addDeleteContext(const std::optional<std::string>& fileId,
                                      const std::optional<platform::Dictionary>& deleteParams,
                                      const std::shared_ptr<BinaryCallback>& callback,
                                      platform::Dictionary& input);
  /// Enters a download as in progress; false when there is one of the same file.
  [[nodiscard]] bool enterDownload(const DownloadPtr& download);
  /// Makes room for the next one of this file. Does nothing where that is there already.
  void leaveDownload(const std::string& fileId, const std::weak_ptr<VSTask>& download);

  void handleSuccessForDownloadTask(const DownloadPtr& download);
  void handleFailureForDownloadTask(const DownloadPtr& download);
  /// Reports the failure of a task that has not done so itself.
  static void reportUntold(const VSTask& operation);
  [[nodiscard]] static std::shared_ptr<BinaryCallback> getBinaryCallback(const VSTask& task);
  /// A download's output as the caller knows it: without "records" and the options, which may hold
  /// a token, and what was asked for under "requestContext".
  [[nodiscard]] static platform::Dictionary trimOutputContextFor(const VSTask& download);

  const std::string _classTag;
  const std::shared_ptr<UploadAdmission> uploads_;  // never null

  mutable platform::Mutex mutex_;
  /// The operation that was entered last, by whatever thread; also named by lines that are logged
  /// later.
  std::string _functionTag VARO_GUARDED_BY(mutex_);
  /// By file identifier. Weak: a download that ends in silence keeps its identifier in use, as
  /// callers know it, but not its memory.
  std::map<std::string, std::weak_ptr<BinaryFileDownloaderTask>> _downloadTaskMap
      VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
