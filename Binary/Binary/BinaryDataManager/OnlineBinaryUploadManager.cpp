#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"

#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/BinaryDataManager/UploadConfiguration.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/UploadTask/BytesUploadHandlerTask.h"
#include "Binary/Binary/UploadTask/MultiPartUploaderTask.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/UploadTask/UploadTemplateGetterTask.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/KnownKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/UploadErrors.h"
#include "Platform/Foundation/Redaction.h"
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
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::binary {

using platform::Clock;
using platform::SerialQueue;

namespace {

namespace texts = log_texts::online_binary_upload_manager;

constexpr char kUploadQueue[] = "onlineUploadQueue";
/// Bytes that an error shows of a template's entry.
constexpr std::size_t kLongestEntry = 64;
constexpr std::string_view kNoBytesSent =
    "the upload template's \"uploadMode\" '%@' and \"method\" '%@' would have no bytes sent";
constexpr std::string_view kFormUrlEncoded = "application/x-www-form-urlencoded";

constexpr std::string_view kExceptionPattern = "%@, %@ : %@";
constexpr std::string_view kExceptionOccured = "Exception occured ";

/// Null where the caller gave none.
template <typename B>
std::shared_ptr<B> sharedBlock(typename B::Function& function) {
  return function ? std::make_shared<B>(std::move(function)) : nullptr;
}

std::function<void()> failure(const UploadBlocks& blocks, std::string taskName, Value error,
                              Value uploadParams) {
  if (blocks.onUploadFailureCompletionBlock == nullptr) return {};
  return [block = blocks.onUploadFailureCompletionBlock, name = std::move(taskName),
          error = std::move(error),
          params = std::move(uploadParams)] { block->function()(name, error, params); };
}

std::function<void()> failure(const UploadBlocks& blocks, const VSTask& task, Value error) {
  return failure(blocks, task.name(), std::move(error), task.inputContext()[keys::kUploadParams]);
}

ErrorPtr exceptionError(std::string_view exception) {
  logger().logError(texts::kStartFailed, exception);
  return CommonUtils::generateErrorWith(
      kUploadErrorDomain, kCodeUploadFailure,
      platform::formatMessage(kExceptionPattern, {kUploadFailure, kExceptionOccured, exception}));
}

/// The error that tells of what leaves `step`; null where nothing does.
ErrorPtr caught(const std::function<void()>& step) {
  try {
    step();
  } catch (const std::exception& exception) {
    return exceptionError(exception.what());
  } catch (...) {
    return exceptionError(kUnknownException);
  }
  return nullptr;
}

/// Whether the engine has been shut down and told no listener of the task's end.
bool wasRefused(const VSTask& task) {
  return task.state() == TaskState::Errored && platform::Runtime::shared().isShutDown();
}

/// Not on this thread while the runtime has others: who starts an upload must not wait for a block.
void tell(std::function<void()> call) {
  if (!call) return;
  platform::Runtime::shared().pool().postOrRun([call = std::move(call)] { callBlock(call); });
}

/// The entries that an upload reads of what the caller gives.
constexpr std::array<std::string_view, 5> kConfigurationKeys = {
    kURL, kFilePath, keys::kRawBytes, keys::kHeaders, keys::kUploadParams};
constexpr std::array<std::string_view, 4> kOptionKeys = {kTemplateParamDomain, kVaroAuthorization,
                                                         kOperationSettings, kCancellation};

void warnOfMisspelledKeys(const Dictionary& configuration,
                          const std::optional<Dictionary>& options) {
  warnOfUnknownKeys("the configuration", configuration, kConfigurationKeys);
  if (options) warnOfUnknownKeys("the options", *options, kOptionKeys);
}

/// How the bytes are sent under one "uploadMode" of a template.
struct UploadMode {
  std::string_view name;
  std::string_view method;  // which the uploader sends, whatever the template asks for
  std::shared_ptr<UploaderTask> (*makeUploader)(std::string taskName, const Clock& clock);
};

/// All modes. This is the place to add one.
constexpr std::array<UploadMode, 2> kUploadModes = {{
    {kUploadModeBinary, "PUT",
     [](std::string taskName, const Clock& clock) -> std::shared_ptr<UploaderTask> {
       return std::make_shared<BytesUploadHandlerTask>(std::move(taskName), clock);
     }},
    {kUploadModeMultipart, "POST",
     [](std::string taskName, const Clock& /*clock*/) -> std::shared_ptr<UploaderTask> {
       return std::make_shared<MultiPartUploaderTask>(std::move(taskName));
     }},
}};

/// Null where there is none of that name; the letter case counts.
const UploadMode* uploadModeNamed(const Value& name) {
  const auto* const mode =
      std::find_if(kUploadModes.begin(), kUploadModes.end(),
                   [&](const UploadMode& each) { return name == Value(each.name); });
  return mode == kUploadModes.end() ? nullptr : mode;
}

/// Whether the mode's uploader sends what the template asks for.
bool wouldSendBytes(const UploadMode* mode, const Value& method) {
  if (mode == nullptr) return false;
  return !CommonUtils::isGiven(method) ||
         platform::equalIgnoringCase(method.textValue(), mode->method);
}

ErrorPtr noBytesError(const Value& mode, const Value& method) {
  const auto shown = [](const Value& entry) {
    const std::string text = CommonUtils::isGiven(entry) ? entry.textValue() : std::string();
    return std::string(platform::utf8Prefix(text, kLongestEntry));
  };
  const std::string detail = platform::formatMessage(kNoBytesSent, {shown(mode), shown(method)});
  return CommonUtils::generateErrorWith(
      kUploadTaskErrorDomain, kCodeUploadInvalidParameterValue,
      platform::formatMessage(kMessageAndDetail, {kUploadInvalidParameterValue, detail}));
}

}  // namespace

/// What the caller gave.
struct OnlineBinaryUploadManager::Upload {
  std::optional<Dictionary> configuration;
  UploadBlocks blocks;
  std::optional<Dictionary> options;
  OperationSettings::Ptr settings;
};

const std::shared_ptr<OnlineBinaryUploadManager>& OnlineBinaryUploadManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static const auto& instance = *new std::shared_ptr<OnlineBinaryUploadManager>(
      std::make_shared<OnlineBinaryUploadManager>());
  return instance;
}

OnlineBinaryUploadManager::OnlineBinaryUploadManager(const Clock& clock) : clock_(clock) {}

SerialQueue& OnlineBinaryUploadManager::onlineUploadQueue() {
  static auto& queue = *new SerialQueue(kUploadQueue);
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
  const UploadBlocks blocks = {
      sharedBlock<OnBytesUploadStarted>(withOnBinaryUploadStartedCompletionBlock),
      sharedBlock<OnByteChunkUploadCompleted>(andOnChunkUploadCompletedCompletionBlock),
      sharedBlock<OnBytesUploadCompleted>(andOnBinaryUploadCompletedCompletionBlock),
      sharedBlock<OnUploadFailure>(andOnUploadFailureCompletionBlock)};
  const auto upload = std::make_shared<const Upload>(
      Upload{configuration, blocks, andOptions,
             OperationSettings::take(andOptions.value_or(Dictionary()))});
  // On the queue, so that uploads get their places in the order in which they were asked for.
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
  std::string sessionId;
  ErrorPtr error;
  const ErrorPtr unexpected = caught([&] {
    sessionId = makeSessionId();
    logger().logInfo(texts::kStarting, sessionId);
    error = validateInput(upload->configuration);
    if (error != nullptr) {
      logger().logError(texts::kInvalidInput, error);
    } else if (platform::Runtime::shared().isShutDown()) {
      // The engine would refuse the task without telling anybody.
      error = uploadError(kCodeUploadFailure, kUploadFailure, kLibraryShutDown);
    } else {
      schedule(sessionId, *upload);
    }
  });
  if (unexpected != nullptr) error = unexpected;
  if (error == nullptr) return;
  const Dictionary configuration = upload->configuration.value_or(Dictionary());
  tell(failure(upload->blocks, sessionId, error, configuration[keys::kUploadParams]));
}

void OnlineBinaryUploadManager::schedule(const std::string& sessionId, const Upload& upload) {
  const auto task = std::make_shared<UploadTemplateGetterTask>(sessionId);
  // Before it can be started: an end that nobody hears of would keep its place for ever.
  task->subscribeForTaskUpdates(shared_from_this());
  Dictionary input = *upload.configuration;
  const UploadBlocks& blocks = upload.blocks;
  input.set(upload::kOnBytesUploadStarted, blocks.onBytesUploadStartedCompletionBlock);
  input.set(upload::kOnByteChunkUploadCompleted, blocks.onByteChunkUploadCompletedCompletionBlock);
  input.set(upload::kOnBytesUploadCompleted, blocks.onBytesUploadCompletedCompletionBlock);
  input.set(upload::kOnUploadFailure, blocks.onUploadFailureCompletionBlock);
  input.set(upload::kContext, *upload.configuration);
  // Nobody reads these: the request has the configuration's "headers".
  input.set(kDownloadHeaders, Dictionary{{kContentType, kFormUrlEncoded}});
  if (upload.options) input.set(keys::kOptions, *upload.options);
  input.set(kOperationSettings, OperationSettings::value(upload.settings));
  if (upload.settings->isSafe()) warnOfMisspelledKeys(*upload.configuration, upload.options);
  task->setInputContext(std::move(input));
  try {
    uploadTaskQueue_.addTaskAndCheckStartExecution(task, sessionId);
  } catch (...) {
    // Otherwise the place of a task that never started would be lost to all others.
    uploadTaskQueue_.removeTaskFromInProgressQueue(task);
    uploadTaskQueue_.removeKey(sessionId);
    throw;
  }
  if (!wasRefused(*task)) return;
  tell(taskEnded(task, TaskState::Errored));
  startWaiting();
}

/// Starts the upload that has waited longest, and those behind the ones that cannot be started.
void OnlineBinaryUploadManager::startWaiting() {
  std::vector<BlockCall> calls;
  TaskQueueManager::TaskPtr next = uploadTaskQueue_.startNextScheduledTask();
  while (next != nullptr && wasRefused(*next)) {
    calls.push_back(taskEnded(next, TaskState::Errored));
    next = uploadTaskQueue_.startNextScheduledTask();
  }
  // After the loop: a block may start another upload, which must find the places given out.
  for (BlockCall& call : calls) tell(std::move(call));
}

ErrorPtr OnlineBinaryUploadManager::validateInput(const std::optional<Dictionary>& configuration) {
  return checkUploadConfiguration(configuration);
}

// Hearing of tasks.

void OnlineBinaryUploadManager::task(const std::shared_ptr<VSTask>& task, TaskState from,
                                     TaskState to, const Dictionary& /*context*/) {
  if (from == to || (to != TaskState::Ended && to != TaskState::Errored)) return;
  const BlockCall call = taskEnded(task, to);
  startWaiting();
  if (call) callBlock(call);
}

/// A task that its queue does not have in progress any more has been heard of before.
OnlineBinaryUploadManager::BlockCall OnlineBinaryUploadManager::taskEnded(
    const TaskQueueManager::TaskPtr& task, TaskState state) {
  // True for one caller only, so an end that is told twice is handled once.
  if (!uploadTaskQueue_.removeTaskFromInProgressQueue(task)) return {};
  uploadTaskQueue_.removeKey(task->name());
  task->unsubscribeForTaskUpdates(shared_from_this());
  const auto getter = std::dynamic_pointer_cast<UploadTemplateGetterTask>(task);
  const auto uploader = std::dynamic_pointer_cast<UploaderTask>(task);
  BlockCall call;
  const ErrorPtr unexpected = caught([&] {
    call = getter != nullptr ? templateTaskEnded(*getter, state) : uploaderEnded(*uploader, state);
  });
  if (unexpected == nullptr) return call;
  uploadTaskQueue_.removeKey(task->name());
  return failure(getter != nullptr ? getter->blocks() : uploader->blocks(), *task, unexpected);
}

OnlineBinaryUploadManager::BlockCall OnlineBinaryUploadManager::templateTaskEnded(
    UploadTemplateGetterTask& task, TaskState state) {
  logger().logInfo(texts::kTemplateTaskEnded);
  if (state == TaskState::Ended) return templateReceived(task);
  logger().logError(texts::kTemplateTaskFailed);
  return failure(task.blocks(), task, task.errorContext()[platform::kTaskErrors]);
}

OnlineBinaryUploadManager::BlockCall OnlineBinaryUploadManager::templateReceived(
    UploadTemplateGetterTask& task) {
  const Dictionary uploadTemplate =
      task.outputContext()[upload::kRedirectionTemplate].dictionaryValue();
  const auto refuse = [&](std::int32_t code) {
    return failure(task.blocks(), task,
                   std::make_shared<const Error>(std::string(kUploadTaskErrorDomain), code,
                                                 platform::withoutSecrets(uploadTemplate)));
  };
  if (uploadTemplate[kOpStatus].integerValue() != 0) {
    logger().logError(texts::kOpstatusNotZero);
    return refuse(kCodeUploadFailure);
  }
  const Value& modeName = uploadTemplate[keys::kUploadMode];
  const UploadMode* mode = uploadModeNamed(modeName);
  if (OperationSettings::of(task.inputContext())->isSafe() &&
      !wouldSendBytes(mode, uploadTemplate[keys::kMethod])) {
    return failure(task.blocks(), task, noBytesError(modeName, uploadTemplate[keys::kMethod]));
  }
  if (mode == nullptr) return refuse(kCodeUploadTaskInstanceFailure);
  scheduleUploader(mode->makeUploader(task.name(), clock_), task);
  return {};
}

void OnlineBinaryUploadManager::scheduleUploader(const std::shared_ptr<UploaderTask>& uploader,
                                                 const UploadTemplateGetterTask& after) {
  uploader->subscribeForTaskUpdates(shared_from_this());
  const Dictionary former = after.inputContext();
  Dictionary input{{keys::kDisableIntegrityCheck, true}};
  input.addEntries(after.outputContext());
  input.addEntries(former[upload::kContext].dictionaryValue());
  if (former.contains(keys::kOptions)) input.set(keys::kOptions, former[keys::kOptions]);
  input.set(kOperationSettings, former[kOperationSettings]);
  uploader->setInputContext(std::move(input));
  uploader->setBlocks(after.blocks());
  // Behind those that wait, and not in the place that the first step
  // leaves: the order is fair to them.
  uploadTaskQueue_.addTask(uploader, uploader->name());
  uploadTaskQueue_.addToScheduledQueue(uploader);
}

OnlineBinaryUploadManager::BlockCall OnlineBinaryUploadManager::uploaderEnded(UploaderTask& task,
                                                                              TaskState state) {
  logger().logInfo(texts::kUploaderEnded);
  if (state == TaskState::Errored) {
    logger().logError(texts::kUploaderFailed);
    return failure(task.blocks(), task, task.errorContext()[platform::kTaskErrors]);
  }
  logger().logInfo(texts::kUploaderSucceeded);
  const auto& completed = task.blocks().onBytesUploadCompletedCompletionBlock;
  if (completed == nullptr) return {};
  return [block = completed, name = task.name(),
          details = task.outputContext()[upload::kFileDetails].textValue(),
          params = Value(task.inputContext()[keys::kUploadParams])] {
    block->function()(name, details, params);
  };
}

}  // namespace varo::binary
