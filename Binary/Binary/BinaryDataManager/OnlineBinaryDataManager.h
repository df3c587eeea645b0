#pragma once

#include "Binary/Binary/BinaryDataManager/BoundedQueue.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace varo::platform {
class SerialQueue;
}

namespace varo::binary {

struct OnlineDownload;

/// The entry point for downloads of single objects from a back end or an object store, into a file
/// or through a block, signed where the configuration says so. It has nothing to do with the
/// offline database.
///
/// At most `MAX_PARALLEL_JOBS` downloads run at once, the others wait:
/// - By default one that waits starts when another has succeeded.
/// - Under `TransferPolicy::kSafe` they start in the order of their requests, each when another has
///   come to any end (docs/policy.md).
/// - The runtime's shutdown ends them all with an error.
///
/// Under `TransferPolicy::kCompatible` the name of the file is computed anew at each use, and it
/// begins with the second. A download that is under way when one second becomes the next can
/// therefore leave its bytes in several files and report success with one that is incomplete.
/// Applications that do not depend on those names use `TransferPolicy::kSafe`.
///
/// Blocks are called with no lock held, on threads of the runtime's pool; those of the chunks on
/// the queue that all downloads share. Each may start further downloads. What it throws is logged
/// and goes no further.
///
/// Owned by a `std::shared_ptr` that outlives its downloads. Thread-safe.
class OnlineBinaryDataManager final : public platform::TaskListener,
                                      public std::enable_shared_from_this<OnlineBinaryDataManager> {
 public:
  using TaskPtr = std::shared_ptr<DownloadTask>;

  /// Downloads that run at once.
  static constexpr std::size_t MAX_PARALLEL_JOBS = 5;

  /// The process's one manager, which is never destroyed.
  [[nodiscard]] static const std::shared_ptr<OnlineBinaryDataManager>& sharedInstance();

  /// `clock` names downloads without an identifier and dates signatures; it lives as long as the
  /// manager.
  explicit OnlineBinaryDataManager(const platform::Clock& clock = platform::Clock::system());

  /// Starts a download, or has it wait for its turn. Returns at once.
  ///
  /// The file parameters
  /// - name the download with "fileId". Without it the name is "_" and the seconds since 1970, so
  ///   the second of two such downloads within one second is refused;
  /// - fill the placeholders of the configuration;
  /// - are passed to every block.
  ///
  /// The bytes go to the file "downloads/SECONDS_NAME" in the documents directory or, with
  /// `withStreaming`, only to the stream block.
  ///
  /// The configuration:
  /// - where the object is: "endpointUrl", a text with placeholders; or "domain" and
  ///   "relativepath". The domain "#middlewaredomain" stands for the "domain" of the options. With
  ///   a domain the "X-Pelmar-Authorization" of the options is sent too;
  /// - "headers", "X-Pelmar-Authorization", "queryParams";
  /// - "ChunkSize": bytes of a range, 1 MiB unless given;
  /// - "Auth" = "HMACDigest": the request carries the headers of `S3HMACGenerator` instead, made
  ///   from "method", "Host" and "AuthParameters", whose placeholders are filled first. Under
  ///   `TransferPolicy::kSafe` each range is signed when it is requested; otherwise they are signed
  ///   now, and the signature must still be valid for the last range.
  ///
  /// The options, beside those above: "settings" (`OperationSettings`) and "cancellation"
  /// (`platform::Cancellation`), both taken now. A download that is cancelled fails.
  ///
  /// The blocks, each of which may be empty:
  /// - The started block is called once. The chunk and stream blocks need not wait for it.
  /// - Then exactly one of the completed and the failure block is called, after all calls of the
  ///   chunk and stream blocks.
  /// - For a download that is refused only the failure block is called.
  /// - The name can be used again from inside the failure block, and after the completed block has
  ///   returned.
  ///
  /// Errors:
  /// - "File Download already in queue, Download not started", 10002: a download of this name waits
  ///   or runs;
  /// - "Template Parsing Error", 10003: a placeholder without a value, or a signed configuration
  ///   that is no JSON;
  /// - "DownloadTaskErrorDomain", 5001: after the runtime's shutdown;
  /// - "DownloadTaskError", 4: a download that has failed, with the task's error context as user
  ///   information; or one whose blocks could not be copied, with a "message".
  void createAndStartOnlineDownloadTaskFor(
      const platform::Dictionary& fileParams, bool withStreaming,
      const platform::Dictionary& downloadConfig,
      OnFileDownloadStarted::Function withOnFileDownloadStartedCompletionBlock,
      OnChunkDownloadCompleted::Function andOnChunkDownloadCompletedCompletionBlock,
      OnStreamDownloadCompleted::Function andOnStreamDownloadCompletedCompletionBlock,
      OnFileDownloadCompleted::Function andOnFileDownloadCompletedCompletionBlock,
      OnDownloadFailure::Function andOnDownloadFailureCompletionBlock,
      const std::optional<platform::Dictionary>& andOptions);

  /// Starts the task if fewer than `MAX_PARALLEL_JOBS` run; else leaves it where it is. One that
  /// was started before is left alone.
  void checkAndStartExecution(const TaskPtr& task);

  /// Hears of the downloads. Called by the engine.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

 private:
  /// Where downloads are made and those that waited are started, one at a time; the class's own.
  static platform::SerialQueue& onlineDownloadQueue();

  void create(const std::shared_ptr<const OnlineDownload>& download);
  void schedule(const std::shared_ptr<const OnlineDownload>& download,
                const std::string& identifier);
  [[nodiscard]] platform::Result<TaskPtr> makeTask(const OnlineDownload& download,
                                                   const std::string& identifier);
  void endWithRuntime();

  void downloadStarted(DownloadTask& task);
  void downloadEnded(const TaskPtr& task, const platform::Dictionary& output);
  void downloadPaused(const TaskPtr& task);
  void downloadErrored(const TaskPtr& task);
  void downloadFailed(const TaskPtr& task, const platform::ErrorPtr& error);

  /// Keeps the task under its name, which nobody has yet.
  void enter(const TaskPtr& task);
  [[nodiscard]] bool isKnown(const std::string& identifier) const;
  void forget(const TaskPtr& task);
  /// Takes a block that the task carries, so that it is called once.
  template <typename Block>
  [[nodiscard]] Block take(DownloadTask& task, Block DownloadTask::*block) const;
  void startNextScheduledTask();
  /// After an end that is no success.
  void placeLeft(const DownloadTask& task);

  const platform::Clock& clock_;
  /// Whether it hears of the runtime's shutdown. Owned by the queue.
  bool endsWithRuntime_ = false;

  /// Those that wait and those that run.
  BoundedQueue<DownloadTask> queue_{MAX_PARALLEL_JOBS};

  /// Also of the blocks that the tasks carry. Nothing is called under it, and no task is destroyed.
  mutable platform::Mutex mutex_;
  /// By their names.
  std::map<std::string, TaskPtr> tasks VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
