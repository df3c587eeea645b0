#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"

#include "Binary/Binary/BinaryDataManager/UploadConfiguration.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/UploadTask/BytesUploadHandlerTask.h"
#include "Binary/Binary/UploadTask/MultiPartUploaderTask.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/UploadTask/UploadTemplateGetterTask.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/WorkQueue.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <exception>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Clock;
using platform::Dictionary;
using platform::Error;
using platform::ErrorPtr;
using platform::SerialQueue;
using platform::TaskState;
using platform::Value;
using platform::VSTask;

namespace {

constexpr std::string_view kUploadQueue = "onlineUploadQueue";
/// Of errors that a template is the reason for.
constexpr std::string_view kUploadTaskDomain = "UploadTask";
constexpr std::string_view kFormUrlEncoded = "application/x-www-form-urlencoded";

constexpr std::string_view kStarting = "Starting UploadTask with sessionId %@";
constexpr std::string_view kInvalidInput = "Input validations failed for uploadTask: %@";
constexpr std::string_view kStartFailed = "UploadTask Failed with unknown exception: %@";
constexpr std::string_view kExceptionPattern = "%@, %@ : %@";
constexpr std::string_view kExceptionOccured = "Exception occured ";

constexpr std::string_view kTemplateTaskEnded =
    "[UploadTask VSTaskListener]  task end event received for UploadTemplateGetterTask";
constexpr std::string_view kTemplateTaskFailed =
    "[UploadTask VSTaskListener] UploadTemplateGetterTask returned error";
constexpr std::string_view kOpstatusNotZero =
    "[UploadTask VSTaskListener] UploadTemplateGetterTask returned response with opstatus 0";
constexpr std::string_view kUploaderEnded =
    "[UploadTask VSTaskListener]  task end event received for UploaderTask";
constexpr std::string_view kUploaderSucceeded =
    "[UploadTask VSTaskListener] UploaderTask completed successfully";
constexpr std::string_view kUploaderFailed =
    "[UploadTask VSTaskListener] UploaderTask returned error";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

/// Missing where the caller gave none.
template <typename B>
Value blockValue(const typename B::Function& function) {
  return function ? Value(std::make_shared<B>(function)) : Value();
}

void callFailure(const OnUploadFailure::Function& block, const std::string& taskName,
                 const Value& error, const Value& uploadParams) {
  if (block) callBlock([&] { block(taskName, error, uploadParams); });
}

void callFailure(const UploadBlocks& blocks, const VSTask& task, const Value& error) {
  callFailure(blocks.onUploadFailureCompletionBlock, task.name(), error,
              task.inputContext()[keys::kUploadParams]);
}

}  // namespace

/// What the caller gave.
struct OnlineBinaryUploadManager::Upload {
  std::optional<Dictionary> configuration;
  UploadBlocks blocks;
  std::optional<Dictionary> options;
};

const std::shared_ptr<OnlineBinaryUploadManager>& OnlineBinaryUploadManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance = *new std::shared_ptr<OnlineBinaryUploadManager>(
      std::make_shared<OnlineBinaryUploadManager>());
  return instance;
}

OnlineBinaryUploadManager::OnlineBinaryUploadManager(const Clock& clock) : clock_(clock) {}

SerialQueue& OnlineBinaryUploadManager::onlineUploadQueue() {
  static auto& queue = *new SerialQueue(std::string(kUploadQueue));
  return queue;
}

// Starting.

void OnlineBinaryUploadManager::createAndStartOnlineUploadTaskFor(
    const std::optional<Dictionary>& configuration,
    OnBytesUploadStarted::Function withOnBinaryUploadStartedCompletionBlock,
    OnByteChunkUploadCompleted::Function andOnChunkUploadCompletedCompletionBlock,
    OnBytesUploadCompleted::Function andOnBinaryUploadCompletedCompletionBlock,
    OnUploadFailure::Function andOnUploadFailureCompletionBlock,
    const std::optional<Dictionary>& andOptions) {
  const auto upload =
      std::make_shared<const Upload>(Upload{configuration,
                                            {std::move(withOnBinaryUploadStartedCompletionBlock),
                                             std::move(andOnChunkUploadCompletedCompletionBlock),
                                             std::move(andOnBinaryUploadCompletedCompletionBlock),
                                             std::move(andOnUploadFailureCompletionBlock)},
                                            andOptions});
  onlineUploadQueue().async([self = shared_from_this(), upload] { self->start(upload); });
}

std::string OnlineBinaryUploadManager::makeSessionId() const {
  const auto now = clock_.now();
  const auto second = std::chrono::floor<std::chrono::seconds>(now);
  const std::time_t time = std::chrono::system_clock::to_time_t(second);
  std::tm local{};
  ::localtime_r(&time, &local);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y_%m_%d_%I_%M_%S", &local);
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(now - second);
  std::string uuid = boost::uuids::to_string(boost::uuids::random_generator()());
  std::transform(uuid.begin(), uuid.end(), uuid.begin(), [](char c) {
    return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return fmt::format("{}.{:03}_{}", std::string_view(text.data(), length), milliseconds.count(),
                     uuid);
}

void OnlineBinaryUploadManager::start(const std::shared_ptr<const Upload>& upload) {
  const std::string sessionId = makeSessionId();
  logger().logInfo(kStarting, sessionId);
  // Not on this queue: a block may wait for an upload that it starts.
  const auto fail = [&](const ErrorPtr& error) {
    platform::Runtime::shared().pool().postOrRun([upload, sessionId, error] {
      const Dictionary configuration = upload->configuration.value_or(Dictionary());
      callFailure(upload->blocks.onUploadFailureCompletionBlock, sessionId, error,
                  configuration[keys::kUploadParams]);
    });
  };
  const auto failWith = [&](std::string_view exception) {
    logger().logError(kStartFailed, exception);
    fail(CommonUtils::generateErrorWith(
        kUploadErrorDomain, kCodeUploadFailure,
        platform::formatMessage(kExceptionPattern,
                                {kUploadFailure, kExceptionOccured, exception})));
  };
  try {
    if (const ErrorPtr error = validateInput(upload->configuration)) {
      logger().logError(kInvalidInput, error->localizedDescription());
      return fail(error);
    }
    // The engine would refuse the task without telling anybody.
    if (platform::Runtime::shared().isShutDown()) {
      return fail(CommonUtils::generateErrorWith(
          kUploadErrorDomain, kCodeUploadFailure,
          platform::formatMessage(kMessageAndDetail, {kUploadFailure, kLibraryShutDown})));
    }
    schedule(sessionId, *upload);
  } catch (const std::exception& exception) {
    failWith(exception.what());
  } catch (...) {
    failWith(kUnknownException);
  }
}

void OnlineBinaryUploadManager::schedule(const std::string& sessionId, const Upload& upload) {
  const auto task = std::make_shared<UploadTemplateGetterTask>(sessionId);
  task->subscribeForTaskUpdates(shared_from_this());
  Dictionary input = *upload.configuration;
  const UploadBlocks& blocks = upload.blocks;
  input.set(upload::kOnBytesUploadStarted,
            blockValue<OnBytesUploadStarted>(blocks.onBytesUploadStartedCompletionBlock));
  input.set(
      upload::kOnByteChunkUploadCompleted,
      blockValue<OnByteChunkUploadCompleted>(blocks.onByteChunkUploadCompletedCompletionBlock));
  input.set(upload::kOnBytesUploadCompleted,
            blockValue<OnBytesUploadCompleted>(blocks.onBytesUploadCompletedCompletionBlock));
  input.set(upload::kOnUploadFailure,
            blockValue<OnUploadFailure>(blocks.onUploadFailureCompletionBlock));
  input.set(upload::kContext, *upload.configuration);
  // Nobody reads these: the request has the configuration's "headers".
  input.set(kDownloadHeaders, Dictionary{{kContentType, kFormUrlEncoded}});
  if (upload.options) input.set(keys::kOptions, *upload.options);
  task->setInputContext(std::move(input));
  uploadTaskQueue_.addTaskAndCheckStartExecution(task, sessionId);
}

ErrorPtr OnlineBinaryUploadManager::validateInput(const std::optional<Dictionary>& configuration) {
  return checkUploadConfiguration(configuration);
}

// Hearing of tasks.

void OnlineBinaryUploadManager::task(const std::shared_ptr<VSTask>& task, TaskState from,
                                     TaskState to, const Dictionary& /*context*/) {
  if (from == to || (to != TaskState::Ended && to != TaskState::Errored)) return;
  uploadTaskQueue_.removeTaskFromInProgressQueue(task);
  uploadTaskQueue_.removeKey(task->name());
  task->unsubscribeForTaskUpdates(shared_from_this());
  if (const auto getter = std::dynamic_pointer_cast<UploadTemplateGetterTask>(task)) {
    templateTaskEnded(*getter, to);
  } else if (const auto uploader = std::dynamic_pointer_cast<UploaderTask>(task)) {
    uploaderEnded(*uploader, to);
  }
  uploadTaskQueue_.startNextScheduledTask();
}

void OnlineBinaryUploadManager::templateTaskEnded(UploadTemplateGetterTask& task, TaskState state) {
  logger().logInfo(kTemplateTaskEnded);
  if (state == TaskState::Ended) return templateReceived(task);
  logger().logError(kTemplateTaskFailed);
  callFailure(task.blocks(), task, task.errorContext()[platform::kTaskErrors]);
}

void OnlineBinaryUploadManager::templateReceived(UploadTemplateGetterTask& task) {
  const Dictionary uploadTemplate =
      task.outputContext()[upload::kRedirectionTemplate].dictionaryValue();
  const auto fail = [&](std::int32_t code) {
    callFailure(
        task.blocks(), task,
        std::make_shared<const Error>(std::string(kUploadTaskDomain), code, uploadTemplate));
  };
  if (uploadTemplate[kOpStatus].integerValue() != 0) {
    logger().logError(kOpstatusNotZero);
    return fail(kCodeUploadFailure);
  }
  const Value& mode = uploadTemplate[keys::kUploadMode];
  if (mode == Value(kUploadModeBinary)) {
    scheduleUploader(std::make_shared<BytesUploadHandlerTask>(task.name(), clock_), task);
  } else if (mode == Value(kUploadModeMultipart)) {
    scheduleUploader(std::make_shared<MultiPartUploaderTask>(task.name()), task);
  } else {
    fail(kCodeUploadTaskInstanceFailure);
  }
}

void OnlineBinaryUploadManager::scheduleUploader(const std::shared_ptr<UploaderTask>& uploader,
                                                 const UploadTemplateGetterTask& after) {
  uploader->subscribeForTaskUpdates(shared_from_this());
  const Dictionary former = after.inputContext();
  Dictionary input{{keys::kDisableIntegrityCheck, true}};
  input.addEntries(after.outputContext());
  input.addEntries(former[upload::kContext].dictionaryValue());
  if (former.contains(keys::kOptions)) input.set(keys::kOptions, former[keys::kOptions]);
  uploader->setInputContext(std::move(input));
  uploader->setBlocks(after.blocks());
  uploadTaskQueue_.addTask(uploader, uploader->name());
  uploadTaskQueue_.addToScheduledQueue(uploader);
}

void OnlineBinaryUploadManager::uploaderEnded(UploaderTask& task, TaskState state) {
  logger().logInfo(kUploaderEnded);
  if (state == TaskState::Errored) {
    logger().logError(kUploaderFailed);
    return callFailure(task.blocks(), task, task.errorContext()[platform::kTaskErrors]);
  }
  logger().logInfo(kUploaderSucceeded);
  const auto& completed = task.blocks().onBytesUploadCompletedCompletionBlock;
  if (!completed) return;
  callBlock([&] {
    completed(task.name(), task.outputContext()[upload::kFileDetails].textValue(),
              task.inputContext()[keys::kUploadParams]);
  });
}

}  // namespace varo::binary
