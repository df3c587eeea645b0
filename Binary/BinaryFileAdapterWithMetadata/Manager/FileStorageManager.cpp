#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/UploadAdmission.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryFileUploaderTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryListTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryUpdaterTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/KnownKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/NetworkTuning.h"
#include "Platform/System/OpenFileLimit.h"
#include "Platform/TaskEngine/EngineErrors.h"

#include <array>
#include <cstddef>
#include <functional>
#include <new>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::file_storage_manager;

/// Uploads that run at once, where the process may have as many files open: as many as libcurl is
/// given transfers.
constexpr std::size_t kMostUploadsAtOnce = platform::tuning::kMaxActiveTransfers;

/// Of the options, for all operations.
constexpr std::array<std::string_view, 6> kKnownOptions = {
    keys::kChunkSize,   keys::kDisableIntegrityCheck, keys::kForceDownload,
    kVaroAuthorization, kOperationSettings,           kCancellation};

/// The settings of an operation that starts now.
OperationSettings::Ptr take(const std::optional<Dictionary>& options) {
  OperationSettings::Ptr settings = OperationSettings::take(options.value_or(Dictionary{}));
  if (options && settings->isSafe()) warnOfUnknownKeys("the options", *options, kKnownOptions);
  return settings;
}

/// The options as tasks hand them on: without what only says how the operation is to run, and may
/// end up in results.
Value passedOn(const std::optional<Dictionary>& options) {
  if (!options) return {};
  Dictionary others = *options;
  others.remove(kOperationSettings);
  others.remove(kCancellation);
  return others;
}

/// Made while there is memory, for when there is none.
const Value& outOfMemoryFailure() {
  static const Value failure = Dictionary{{keys::kError, platform::outOfMemory().errorContext}};
  return failure;
}

/// Calls the block of `type` with what `makeResult` returns; where there is no memory for that, the
/// failure block, rather than none.
void tellEnd(BinaryCallback& callback, CallbackType type,
             const std::function<Dictionary()>& makeResult) {
  Value result;
  try {
    result = makeResult();
  } catch (const std::bad_alloc&) {
    type = CallbackType::kFailure;
    result = outOfMemoryFailure();
  }
  callback.executeWithCallback(type, result);
}

/// Of the options where they have it; true otherwise.
Value disableIntegrityCheck(const Dictionary& options) {
  const Value* disabled = options.find(keys::kDisableIntegrityCheck);
  return disabled != nullptr ? *disabled : Value(true);
}

}  // namespace

FileStorageManager& FileStorageManager::sharedInstance() {
  // Never destroyed: engine threads may notify it until the very end of the process.
  static auto& instance =
      *new std::shared_ptr<FileStorageManager>(std::make_shared<FileStorageManager>(Badge{}));
  return *instance;
}

FileStorageManager::FileStorageManager(Badge /*badge*/)
    : _classTag(kFileManagerErrorDomain),
      uploads_(std::make_shared<UploadAdmission>(
          platform::system::shareOfOpenFiles(kMostUploadsAtOnce))) {
  static_cast<void>(outOfMemoryFailure());
  platform::Runtime::shared().onShutdown([uploads = uploads_] { uploads->shutDown(); });
}

std::string FileStorageManager::functionTag() const {
  const MutexLock lock(mutex_);
  return _functionTag;
}

bool FileStorageManager::enterWithUrl(std::string_view functionTag, const std::string& url,
                                      const std::shared_ptr<BinaryCallback>& callback) {
  {
    const MutexLock lock(mutex_);
    _functionTag = functionTag;
  }
  ErrorPtr error;
  if (!ValidationUtils::isValidUrl(url, &error)) {
    reportInvalid(texts::kInvalidUrl, callback, error);
    return false;
  }
  if (platform::Runtime::shared().isShutDown()) {
    // The engine would refuse the task, and nobody would be told.
    reportFailure(callback, CommonUtils::generateErrorWith(kFileManagerErrorDomain,
                                                           kCodeInvalidStateForBinaryOperation,
                                                           kLibraryShutDown));
    return false;
  }
  return true;
}

void FileStorageManager::start(const std::shared_ptr<VSTask>& operation) {
  // Before the start: a task may end on another thread before `start` returns.
  operation->subscribeForTaskUpdates(shared_from_this());
  operation->start();
  // A task that the engine refuses, in a shutdown, may be told to nobody any more.
  const TaskState state = operation->state();
  if (state == TaskState::Errored) task(operation, state, state, {});
}

void FileStorageManager::reportInvalid(std::string_view message,
                                       const std::shared_ptr<BinaryCallback>& callback,
                                       const ErrorPtr& error) {
  logger().logError(message, _classTag, functionTag(), error->localizedDescription());
  reportFailure(callback, error);
}

void FileStorageManager::reportFailure(const std::shared_ptr<BinaryCallback>& callback,
                                       const ErrorPtr& error) {
  if (callback != nullptr) {
    BinaryCallbackUtils::executeFailureCallback(callback, error);
  } else {
    logger().logWarning(texts::kCallbackNotDefined, _classTag, functionTag());
  }
}

void FileStorageManager::addHeaders(const std::optional<Dictionary>& headers, Dictionary& input) {
  if (headers) {
    input.set(keys::kHeaders, *headers);
  } else {
    logger().logWarning(texts::kNoHeaders, _classTag, functionTag());
  }
}

void FileStorageManager::listFilesWithUrl(const std::string& url,
                                          const std::optional<std::string>& criteria,
                                          const std::optional<Dictionary>& headers,
                                          const std::shared_ptr<BinaryCallback>& callback,
                                          const std::optional<Dictionary>& options) {
  if (!enterWithUrl(texts::kListTag, url, callback)) return;

  Dictionary input{{keys::kUrl, url},
                   {kOperationSettings, OperationSettings::value(take(options))}};
  if (criteria && !criteria->empty()) {
    input.set(keys::kFilter, *criteria);
  } else {
    logger().logWarning(texts::kNoCriteria, _classTag, functionTag());
  }
  addHeaders(headers, input);
  if (options) input.set(keys::kDisableIntegrityCheck, disableIntegrityCheck(*options));
  input.set(keys::kCallback, callback);

  const auto list = std::make_shared<BinaryListTask>(/*invokeCallbackOnSuccess=*/true);
  list->setInputContext(std::move(input));
  start(list);
}

void FileStorageManager::uploadBinaryWithUrl(const std::string& url, UploadInputType inputType,
                                             const std::optional<Dictionary>& uploadParams,
                                             const std::shared_ptr<BinaryCallback>& callback,
                                             const std::optional<Dictionary>& options) {
  if (!enterWithUrl(texts::kUploadTag, url, callback)) return;
  ErrorPtr error;
  if (!ValidationUtils::validateUploadParamsWithUploadParams(uploadParams, inputType, &error)) {
    return reportInvalid(texts::kInvalidUploadParams, callback, error);
  }
  const OperationSettings::Ptr settings = take(options);
  if (settings->isSafe() && !ValidationUtils::validateChunkSizes(*uploadParams, options, &error)) {
    return reportInvalid(texts::kInvalidUploadParams, callback, error);
  }
  logger().logDebug(texts::kUploadParamsValid);

  // What waits is what this was called with; all that follows from it is made when it begins.
  uploads_->enter([this, asked = Upload{url, *uploadParams, callback, options, settings}](
                      UploadAdmission::Place place) { startUpload(asked, std::move(place)); },
                  settings->cancellation);
}

void FileStorageManager::startUpload(const Upload& asked, std::shared_ptr<void> place) {
  try {
    const auto upload = std::make_shared<BinaryFileUploaderTask>(std::move(place));
    upload->setInputContext(
        {{keys::kUrl, asked.url},
         {keys::kUploadParams, ValidationUtils::fixChunkSizeIfNeeded(asked.params)},
         {keys::kCallback, asked.callback},
         {keys::kOptions, passedOn(asked.options)},
         {kOperationSettings, OperationSettings::value(asked.settings)}});
    start(upload);
  } catch (const std::bad_alloc&) {
    // Perhaps on no caller's thread, so that nobody else would tell.
    if (asked.callback != nullptr)
      asked.callback->executeWithCallback(CallbackType::kFailure, outOfMemoryFailure());
  }
}

void FileStorageManager::downloadWithURL(const std::string& url,
                                         const std::optional<Dictionary>& params,
                                         const std::shared_ptr<BinaryCallback>& callback,
                                         const std::optional<Dictionary>& options) {
  if (!enterWithUrl(texts::kDownloadTag, url, callback)) return;
  ErrorPtr error;
  if (!ValidationUtils::validateDownloadParams(params, &error)) {
    return reportInvalid(texts::kInvalidDownloadParams, callback, error);
  }
  logger().logDebug(texts::kDownloadParamsValid);

  const Dictionary metadata = (*params)[keys::kMetadata].dictionaryValue();
  const std::string fileId = metadata[keys::kFileId].textValue();
  const auto download = std::make_shared<BinaryFileDownloaderTask>(fileId);
  Dictionary input{{keys::kHeaders, (*params)[keys::kHeaders]},
                   {keys::kFilter, BinaryCommonUtils::generateFilterStringWithMetadata(metadata)},
                   {keys::kUrl, url},
                   {keys::kCallback, callback},
                   {keys::kQueryParamsForDownload, metadata}};
  const OperationSettings::Ptr settings = take(options);
  input.set(kOperationSettings, OperationSettings::value(settings));
  if (settings->isSafe()) input.set(keys::kOptions, passedOn(options));
  download->setInputContext(std::move(input));
  if (callback != nullptr) {
    // A look-up reports its failure itself, and the block may download the file again.
    callback->setWhenEnded([fileId, weak = std::weak_ptr<VSTask>(download)] {
      sharedInstance().leaveDownload(fileId, weak);
    });
  }
  // Two that go to places of their own do not disturb each other.
  if (!settings->destination && !enterDownload(download)) {
    logger().logError(texts::kDownloadInProgress, _classTag, functionTag(), fileId);
    return reportFailure(
        callback,
        CommonUtils::generateErrorWith(
            kDownloadErrorDomain, kDownloadNotStartedAlreadyExistsInQueue, kFileAlreadyInQueue));
  }
  try {
    start(download);
  } catch (...) {
    leaveDownload(fileId, download);  // one that never started can be tried again
    throw;
  }
}

bool FileStorageManager::enterDownload(const DownloadPtr& download) {
  const MutexLock lock(mutex_);
  // Looking and entering are one step, so of two downloads of a file at once one is refused.
  return _downloadTaskMap.try_emplace(download->name(), download).second;
}

void FileStorageManager::leaveDownload(const std::string& fileId,
                                       const std::weak_ptr<VSTask>& download) {
  const MutexLock lock(mutex_);
  const auto found = _downloadTaskMap.find(fileId);
  if (found == _downloadTaskMap.end()) return;
  // Compared by owner: this must not become the last owner of a task under the lock.
  const auto& entered = found->second;
  if (entered.owner_before(download) || download.owner_before(entered)) return;
  _downloadTaskMap.erase(found);
}

void FileStorageManager::updateWithUrl(const std::string& url,
                                       const std::optional<Dictionary>& params,
                                       const std::shared_ptr<BinaryCallback>& callback,
                                       const std::optional<Dictionary>& options) {
  if (!enterWithUrl(texts::kUpdateTag, url, callback)) return;
  ErrorPtr error;
  if (!ValidationUtils::validateUpdateParams(params, &error)) {
    return reportInvalid(texts::kInvalidUpdateParams, callback, error);
  }
  logger().logDebug(texts::kUpdateParamsValid);

  const auto update = std::make_shared<BinaryUpdaterTask>();
  update->setInputContext({{keys::kUrl, url},
                           {keys::kHeaders, (*params)[keys::kHeaders]},
                           {keys::kMetadata, (*params)[keys::kMetadata]},
                           {keys::kCallback, callback},
                           {kOperationSettings, OperationSettings::value(take(options))}});
  start(update);
}

void FileStorageManager::deleteWithUrl(const std::string& url,
                                       const std::optional<std::string>& fileId,
                                       const std::optional<Dictionary>& deleteParams,
                                       const std::optional<Dictionary>& headers,
                                       const std::shared_ptr<BinaryCallback>& callback,
                                       const std::optional<Dictionary>& options) {
  delete_(url, fileId, deleteParams, headers, callback, options);
}

void FileStorageManager::deleteByCriteria(const std::string& url,
                                          const std::optional<Dictionary>& deleteCriteria,
                                          const std::optional<Dictionary>& headers,
                                          const std::shared_ptr<BinaryCallback>& callback,
                                          const std::optional<Dictionary>& options) {
  delete_(url, std::nullopt, deleteCriteria, headers, callback, options);
}

void FileStorageManager::delete_(const std::string& url, const std::optional<std::string>& fileId,
                                 const std::optional<Dictionary>& deleteParams,
                                 const std::optional<Dictionary>& headers,
                                 const std::shared_ptr<BinaryCallback>& callback,
                                 const std::optional<Dictionary>& options) {
  if (!enterWithUrl(texts::kDeleteTag, url, callback)) return;
  Dictionary input =
      generateCommonInputContextWithMethodName(texts::kDeleteTag, url, callback, options);
  input.set(kOperationSettings, OperationSettings::value(take(options)));
  if (!addDeleteContext(fileId, deleteParams, callback, input)) return;
  addHeaders(headers, input);

  const auto deletion = std::make_shared<BinaryDeleteTask>();
  deletion->setInputContext(std::move(input));
  start(deletion);
}

Dictionary FileStorageManager::generateCommonInputContextWithMethodName(
    std::string_view methodName, const std::string& url,
    const std::shared_ptr<BinaryCallback>& binaryCallback,
    const std::optional<Dictionary>& options) {
  Dictionary input{{keys::kUrl, url}, {keys::kCallback, binaryCallback}};
  if (options) {
    input.set(keys::kOptions, passedOn(options));
    input.set(keys::kDisableIntegrityCheck, disableIntegrityCheck(*options));
  } else {
    logger().logWarning(texts::kNoOptions, methodName);
  }
  return input;
}

bool FileStorageManager::addDeleteContext(const std::optional<std::string>& fileId,
                                          const std::optional<Dictionary>& deleteParams,
                                          const std::shared_ptr<BinaryCallback>& callback,
                                          Dictionary& input) {
  ErrorPtr error;
  if (fileId) {
    if (!ValidationUtils::validateFileIdForDeletion(fileId, &error)) {
      reportInvalid(texts::kInvalidFileId, callback, error);
      return false;
    }
    Dictionary context = deleteParams.value_or(Dictionary{});
    context.set(keys::kFileId, *fileId);
    input.set(keys::kRequestContext, std::move(context));
  } else if (deleteParams || OperationSettings::of(input)->isSafe()) {
    if (!ValidationUtils::validateDeleteParams(deleteParams, &error)) {
      reportInvalid(texts::kInvalidDeleteParams, callback, error);
      return false;
    }
    input.set(keys::kRequestContext, *deleteParams);
  }
  return true;
}

void FileStorageManager::task(const std::shared_ptr<VSTask>& task, TaskState /*from*/, TaskState to,
                              const Dictionary& /*context*/) {
  const bool isFailure = to == TaskState::Errored || to == TaskState::Stopped;
  const auto download = std::dynamic_pointer_cast<BinaryFileDownloaderTask>(task);
  if (download == nullptr) {
    if (isFailure) reportUntold(*task);
  } else if (to == TaskState::Ended) {
    handleSuccessForDownloadTask(download);
  } else if (isFailure) {
    handleFailureForDownloadTask(download);
  }
}

void FileStorageManager::reportUntold(const VSTask& operation) {
  const auto callback = getBinaryCallback(operation);
  // Most tasks have told their end themselves by now; then there is nothing left to say.
  if (callback == nullptr || !callback->noteEnd()) return;
  const auto errors = operation.errors();
  BinaryCallbackUtils::executeFailureCallback(callback, errors.empty() ? nullptr : errors.front());
}

void FileStorageManager::handleSuccessForDownloadTask(const DownloadPtr& download) {
  if (!download->takeEnd()) return;
  // Before the block is called, which may download the same file again.
  leaveDownload(download->name(), download);
  const auto callback = getBinaryCallback(*download);
  if (callback == nullptr) {
    return logger().logWarning(texts::kSuccessNotDefined, _classTag, functionTag());
  }
  tellEnd(*callback, CallbackType::kSuccess, [&] { return trimOutputContextFor(*download); });
}

void FileStorageManager::handleFailureForDownloadTask(const DownloadPtr& download) {
  if (!download->takeEnd()) return;
  leaveDownload(download->name(), download);
  const auto callback = getBinaryCallback(*download);
  if (callback == nullptr) {
    return logger().logWarning(texts::kFailureNotDefined, _classTag, functionTag());
  }
  tellEnd(*callback, CallbackType::kFailure, [&] {
    Dictionary failure = trimOutputContextFor(*download);
    // Failures are logged and sent on by applications; a result is the caller's own.
    failure.set(keys::kRequestContext,
                BinaryNetworkUtils::withoutSecrets(failure[keys::kRequestContext]));
    failure.addEntries(download->errorContext());
    return Dictionary{{keys::kError, std::move(failure)}};
  });
}

std::shared_ptr<BinaryCallback> FileStorageManager::getBinaryCallback(const VSTask& task) {
  return task.inputContext()[keys::kCallback].objectAs<BinaryCallback>();
}

Dictionary FileStorageManager::trimOutputContextFor(const VSTask& download) {
  Dictionary output = download.outputContext();
  output.remove(keys::kRecords);
  output.remove(keys::kOptions);
  const Value queryParams = output[keys::kQueryParamsForDownload];
  if (output.remove(keys::kQueryParamsForDownload)) {
    output.set(keys::kRequestContext, queryParams);
  }
  return output;
}

}  // namespace varo::binary
