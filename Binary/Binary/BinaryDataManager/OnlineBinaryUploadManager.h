#pragma once

#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"
#include "Binary/Binary/UploadTask/UploadBlocks.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varo::platform {
class SerialQueue;
}

namespace varo::binary {

class UploadTemplateGetterTask;
class UploaderTask;

/// The entry point for online uploads, which have nothing to do with the offline database: asks a
/// back end for an upload template, then sends the bytes to where the template says, as a form
/// ("multipart") or as they are ("binary"), signed where it asks for that.
///
/// At most `MAX_PARALLEL_JOBS` steps of uploads run at once, the others wait in their order:
/// - One that waits starts before the completed or failure block of the one that ended is called.
/// - An upload keeps its place while its started block runs.
/// - After the runtime's shutdown every upload fails.
///
/// Owned by a `std::shared_ptr`, which outlives its uploads. Thread-safe.
class OnlineBinaryUploadManager final
    : public platform::TaskListener,
      public std::enable_shared_from_this<OnlineBinaryUploadManager> {
 public:
  /// The process's one manager, which is never destroyed.
  [[nodiscard]] static const std::shared_ptr<OnlineBinaryUploadManager>& sharedInstance();

  /// `clock` names the sessions, dates the signatures and lives as long as the manager.
  explicit OnlineBinaryUploadManager(const platform::Clock& clock = platform::Clock::system());

  /// Starts an upload and returns at once. `configuration` holds:
  /// - "URL" (text): who sends the template;
  /// - "FilePath" (text) or "rawBytes" (bytes);
  /// - optionally "headers" (dictionary), those of the request for the template;
  /// - optionally "uploadParams" (dictionary). They are posted to "URL", fill the template's
  ///   placeholders, hold the keys for the signature ("accessKeyID", "secretAccessKey", ...) and
  ///   come back in every block.
  ///
  /// `andOptions` may hold:
  /// - "domain", which stands for "#middlewaredomain" in a template;
  /// - "X-Pelmar-Authorization", the service's token: goes wherever a template has an unsigned
  ///   upload go, under `TransferPolicy::kSafe` only to the servers of "URL" and "domain";
  /// - an `OperationSettings` under "settings" and a `platform::Cancellation` under "cancellation",
  ///   both taken now for the whole upload. One that is cancelled fails.
  ///
  /// Blocks:
  /// - Exactly one of the completed and the failure block is called, once, after the started block
  ///   if that is called at all.
  /// - They run on a thread of the runtime's pool, with no lock held. There is one exception: when
  ///   the runtime's shutdown overtakes an upload, its failure block may run on the thread that
  ///   calls this or `Runtime::shutdown`. There it must not wait for another upload.
  /// - Each may be empty, and may start further uploads. What it throws is logged and goes no
  ///   further. None is copied once this has returned.
  ///
  /// The file must not change before one of the two was called.
  ///
  /// Errors:
  /// - those of `validateInput`;
  /// - "UploadError", 6006, for what could not be started;
  /// - "UploadTask", with the template, its secrets replaced, as user information: 6006 for an
  ///   "opstatus" other than 0, 6013 for an unknown "uploadMode";
  /// - "UploadTask", 6012, under `TransferPolicy::kSafe`: for an unknown "uploadMode", and for a
  ///   "method" other than PUT for "binary" and POST for "multipart";
  /// - those that the tasks raise, as an array.
  void createAndStartOnlineUploadTaskFor(
      const std::optional<platform::Dictionary>& configuration,
      OnBytesUploadStarted::Function withOnBinaryUploadStartedCompletionBlock,
      OnByteChunkUploadCompleted::Function andOnChunkUploadCompletedCompletionBlock,
      OnBytesUploadCompleted::Function andOnBinaryUploadCompletedCompletionBlock,
      OnUploadFailure::Function andOnUploadFailureCompletionBlock,
      const std::optional<platform::Dictionary>& andOptions);

  /// Null, or the first rule that the configuration breaks: domain "UploadError", 6010 for what is
  /// missing, 6011 for what has the wrong type and for an empty file, 6012 for a value that cannot
  /// be used.
  [[nodiscard]] static platform::ErrorPtr validateInput(
      const std::optional<platform::Dictionary>& configuration);

  /// Hears of the tasks. Called by the engine.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

 private:
  struct Upload;

  /// Serialises the starts of all managers.
  static platform::SerialQueue& onlineUploadQueue();
  [[nodiscard]] std::string makeSessionId() const;
  void start(const std::shared_ptr<const Upload>& upload);
  void schedule(const std::string& sessionId, const Upload& upload);
  void startWaiting();

  /// A call of a block that is still to be made; empty for none. Blocks are called last: one that
  /// waits for an upload must find that on its way.
  using BlockCall = std::function<void()>;
  [[nodiscard]] BlockCall taskEnded(const TaskQueueManager::TaskPtr& task,
                                    platform::TaskState state);
  [[nodiscard]] BlockCall templateTaskEnded(UploadTemplateGetterTask& task,
                                            platform::TaskState state);
  [[nodiscard]] BlockCall templateReceived(UploadTemplateGetterTask& task);
  [[nodiscard]] static BlockCall uploaderEnded(UploaderTask& task, platform::TaskState state);
  void scheduleUploader(const std::shared_ptr<UploaderTask>& uploader,
                        const UploadTemplateGetterTask& after);

  const platform::Clock& clock_;
  TaskQueueManager uploadTaskQueue_;
};

}  // namespace varo::binary
