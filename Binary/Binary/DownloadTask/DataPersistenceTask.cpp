#include "Binary/Binary/DownloadTask/DataPersistenceTask.h"

#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadPath.h"
#include "Binary/Binary/DownloadTask/FileFailure.h"
#include "Binary/Binary/DownloadTask/NetworkTask.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/WorkQueue.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace varo::binary {

using platform::SerialQueue;

namespace {

namespace texts = log_texts::data_persistence_task;

constexpr char kChunkQueue[] = "chunkQueue";

constexpr std::string_view kInputErrorName = "dataPersistanceTask";
constexpr std::string_view kFileErrorName = "persistenceTask";
constexpr std::string_view kInvalidInput = "Invalid inputs provided to the dataPersistance task.";

/// One for all downloads: their chunks are written one at a time.
SerialQueue& chunkQueue() {
  static auto& queue = *new SerialQueue(kChunkQueue);  // used until the very end
  return queue;
}

Value number(TaskState state) { return static_cast<std::int64_t>(state); }

bool tellsOfAnotherObject(const Dictionary& context) {
  const platform::Array* errors = context[platform::kTaskErrors].array();
  if (errors == nullptr) return false;
  return std::any_of(errors->begin(), errors->end(), [](const Value& error) {
    return error.error() != nullptr && error.error()->code() == kCodeIntegrityCheckFailed;
  });
}

}  // namespace

DataPersistenceTask::DataPersistenceTask(std::string name) : VSTask(std::move(name)) {}

void DataPersistenceTask::execute() {
  logger().logTrace(log_texts::kInside, name());
  if (!validateInput()) {
    logger().logError(log_texts::kInvalidDownloadInput);
    const Dictionary userInfo{{std::string(platform::kErrorMessageKey), kInvalidInput}};
    _errorContext.set(kDataPersistanceError, userInfo);
    return raiseError(std::make_shared<const VSTaskError>(ID(), std::string(kInputErrorName),
                                                          std::string(kPersistenceInputErrorDomain),
                                                          kCodeDownloadFault, userInfo));
  }
  // On the queue, so that it comes before every chunk and after what is left of an earlier run.
  chunkQueue().async([self = self<DataPersistenceTask>()] { self->beginRun(); });
}

void DataPersistenceTask::beginRun() {
  const Dictionary input = inputContext();
  phase_ = Phase::kReceiving;
  isSafe_ = OperationSettings::of(input)->isSafe();
  _isAsteriskRecieved = false;
  _totalFileSize = _totalSizeWritten = _totalBytesReceived = 0;
  // What an earlier download has handed out is not handed out again.
  streamPosition_ = std::max<std::int64_t>(input[kTotalBytesDownloaded].integerValue(), 0);
  release();
  _fileHandle.setClaim(input[kFileClaim].objectAs<FileClaim>());
  checkForStreamingAndCallbacks();
}

void DataPersistenceTask::checkForStreamingAndCallbacks() {
  const Dictionary input = inputContext();
  _streaming = input[kStreaming].boolValue();
  _onStreamDownloadCompletedCompletionBlock =
      _streaming ? input[kOnStreamDownloadCompleted].objectAs<OnStreamDownloadCompleted>()
                 : nullptr;
  _onChunkDownloadCompletedCompletionBlock =
      _streaming ? nullptr : input[kOnChunkDownloadCompleted].objectAs<OnChunkDownloadCompleted>();
}

void DataPersistenceTask::stop() {
  setState(TaskState::Stopped);  // so that no chunk that is queued is written
  releaseFile(nullptr);
}

void DataPersistenceTask::resumeDownload(Dictionary input) {
  setInputContext(std::move(input));
  // Behind what is left of the run before, and before the first chunk of this one.
  chunkQueue().async([self = self<DataPersistenceTask>()] {
    self->_fileHandle.setClaim(self->inputContext()[kFileClaim].objectAs<FileClaim>());
    self->phase_ = Phase::kReceiving;
  });
}

void DataPersistenceTask::releaseFile(std::shared_ptr<FileClaim> lease) {
  chunkQueue().async([self = self<DataPersistenceTask>(), lease = std::move(lease)] {
    self->phase_ = Phase::kReleased;
    self->release();
  });
}

// Where the file is.

std::string DataPersistenceTask::getBlobID() const { return inputContext()[kBlobId].textValue(); }

bool DataPersistenceTask::validateInput() const { return !getBlobID().empty(); }

std::string DataPersistenceTask::computeFilePath() const {
  const bool isOnline = inputContext()[kOnlineDownloadTask].boolValue();
  return isOnline ? DownloadPath::ofOnlineDownload(getBlobID()) : DownloadPath::ofBlob(getBlobID());
}

/// The name of an online download's file changes with the second, unless the policy has it computed
/// once. Empty for the id of a blob that would lead out of the folder.
std::string DataPersistenceTask::getFilePath() {
  std::string path;
  if (_fileHandle.claim() != nullptr) {
    path = _fileHandle.claim()->path();
  } else if (isSafe_) {
    if (filePath_.empty()) filePath_ = computeFilePath();
    path = filePath_;
  } else {
    path = computeFilePath();
  }
  logger().logDebug(texts::kFilePathIs, path);
  return path;
}

bool DataPersistenceTask::hasStablePath() const {
  return isSafe_ || !inputContext()[kOnlineDownloadTask].boolValue();
}

// What the network task does.

void DataPersistenceTask::task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                               const Dictionary& context) {
  logger().logDebug(texts::kInListener);
  logger().logDebug(log_texts::kStateChange, task->name(), number(from), number(to));
  const auto network = std::dynamic_pointer_cast<NetworkTask>(task);
  if (network == nullptr) return;
  guarded([&] { networkChanged(network, from, to, context); });
}

void DataPersistenceTask::networkChanged(const std::shared_ptr<NetworkTask>& network,
                                         TaskState from, TaskState to, const Dictionary& context) {
  const Dictionary received = context[platform::kTaskOutputContext].dictionaryValue();
  // A change of context without a change of state is how a chunk is published.
  if (from == TaskState::Started && to == TaskState::Started) {
    return addChunkToQueue(network, received);
  }
  if (to != TaskState::Ended && to != TaskState::Paused && to != TaskState::Errored) return;
  if (to != TaskState::Ended) logger().logDebug(texts::kNetworkState, number(to));
  setEmptyChunk(network, to, context);
}

void DataPersistenceTask::addChunkToQueue(const std::shared_ptr<NetworkTask>& network,
                                          const Dictionary& context) {
  const auto chunk = context[kDataChunk].objectAs<Chunk>();
  chunkQueue().async([self = self<DataPersistenceTask>(), network, context, chunk] {
    self->guarded([&] {
      // Taken also by a task that has failed, so that the network task does not wait.
      if (chunk != nullptr && !network->takeChunk(chunk)) return;
      if (!self->isWriting()) return;
      self->noteContext(context);
      self->phase_ = Phase::kReceiving;
      self->processChunk(chunk, context[kValidator].textValue());
    });
  });
}

/// Queued behind all chunks that were delivered before.
void DataPersistenceTask::setEmptyChunk(const std::shared_ptr<NetworkTask>& network, TaskState to,
                                        const Dictionary& context) {
  logger().logTrace(texts::kSetEmptyChunk);
  chunkQueue().async([self = self<DataPersistenceTask>(), network, to, context] {
    self->guarded([&] {
      const Dictionary output = context[platform::kTaskOutputContext].dictionaryValue();
      // It may go on again, or have been started anew, before its turn comes here.
      if (network->state() != to || !network->isOfLatestRun(output) || !self->isWriting()) return;
      self->noteContext(output);
      self->processEndMarker(to, tellsOfAnotherObject(context));
    });
  });
}

/// Also when it has Ended: that may have been before the network task's end.
bool DataPersistenceTask::isWriting() const {
  if (phase_ == Phase::kReleased) return false;
  const TaskState now = state();
  return now == TaskState::Started || now == TaskState::Ended;
}

void DataPersistenceTask::noteContext(const Dictionary& context) {
  _isAsteriskRecieved = context[kIsAsteriskRecieved].boolValue();
  setTotalFileSize(context);
}

void DataPersistenceTask::setTotalFileSize(const Dictionary& context) {
  _totalFileSize = context[kTotalFileSize].integerValue();
}

void DataPersistenceTask::processEndMarker(TaskState to, bool isAnotherObject) {
  phase_ = to == TaskState::Paused  ? Phase::kNetworkPaused
           : to == TaskState::Ended ? Phase::kNetworkEnded
                                    : Phase::kNetworkErrored;
  if (isAnotherObject && !_streaming && hasStablePath()) {
    // What is in the file can never become the object that the server has now.
    (void)_fileHandle.empty(getFilePath());
    _totalSizeWritten = 0;
  }
  if (phase_ != Phase::kNetworkEnded || checkSizeOfFile()) checkIfTaskCompleted(true);
  // What a later run needs is only the file; an ended download keeps it until that is noted.
  if (to != TaskState::Ended) releaseUnclaimedFile();
}

/// A claim is its owner's to give up, who has a row to write first.
void DataPersistenceTask::releaseUnclaimedFile() {
  if (_fileHandle.claim() == nullptr) _fileHandle.release();
}

/// Of an object that is complete: somebody else may have cut its file.
bool DataPersistenceTask::checkSizeOfFile() {
  if (_streaming || !hasStablePath() || _totalFileSize <= 0) return true;
  const std::string path = getFilePath();
  _totalSizeWritten = static_cast<std::int64_t>(DownloadFile::sizeAt(path));
  if (_totalSizeWritten == _totalFileSize) return true;
  failWithFile(kIntegrityCheckFailed, Error::fromErrno(ESTALE, "Completing", path), path);
  return false;
}

void DataPersistenceTask::processChunk(const std::shared_ptr<Chunk>& chunk,
                                       const std::string& validator) {
  if (chunk == nullptr || !chunk->data()) return checkIfTaskCompleted(true);
  if (chunk->data()->empty()) return logger().logWarning(texts::kEmptyChunk);
  _totalBytesReceived += static_cast<std::int64_t>(chunk->data()->size());
  if (_streaming) return streamChunk(chunk);
  writeData(chunk, validator);
}

void DataPersistenceTask::streamChunk(const std::shared_ptr<Chunk>& chunk) {
  // A server may respond to a later range with the whole object; bytes are handed out once.
  const auto size = static_cast<std::int64_t>(chunk->data()->size());
  const std::int64_t known = std::clamp<std::int64_t>(streamPosition_ - chunk->offset(), 0, size);
  if (known == size) return;
  const auto rest = known == 0 ? chunk
                               : std::make_shared<Chunk>(
                                     chunk->data()->slice(static_cast<std::uint64_t>(known),
                                                          static_cast<std::uint64_t>(size - known)),
                                     streamPosition_);
  streamPosition_ = chunk->offset() + size;
  _totalSizeWritten += size - known;
  if (_onStreamDownloadCompletedCompletionBlock == nullptr) return;
  callBlock([&] {
    _onStreamDownloadCompletedCompletionBlock->function()(getBlobID(), rest,
                                                          inputContext()[kFileParams]);
  });
}

// The file.

void DataPersistenceTask::writeData(const std::shared_ptr<Chunk>& chunk,
                                    const std::string& validator) {
  const std::string path = getFilePath();
  // A file that lost its beginning is not made anew: writing to it tells so.
  const bool begins = chunk->offset() == 0 || !hasStablePath();
  if (begins && platform::fileKindAt(path) == platform::FileKind::kNothing && !createFile(path)) {
    return;
  }
  if (!noteValidator(*chunk, validator, path) || !writeChunk(*chunk, path)) return;
  // From the first chunk on the file is this download's, and worth going on with.
  if (_outputContext.get(kFilePath).isMissing()) {
    _outputContext.set(kFilePath, path);
    if (_isAsteriskRecieved) raiseContextChangeEvent();
  }
  checkIfTaskCompleted(false);
}

/// Bytes of one object are never beside the validator of another, whenever the process dies: first
/// what is in the file goes, then the validator changes, then the new bytes come.
bool DataPersistenceTask::noteValidator(const Chunk& chunk, const std::string& validator,
                                        const std::string& path) {
  const std::shared_ptr<FileClaim>& claim = _fileHandle.claim();
  if (claim == nullptr || claim->validator() == validator) return true;
  // What a response does not say of the object that it goes on with is no news.
  if (validator.empty() && chunk.offset() > 0) return true;
  auto noted = chunk.offset() == 0 ? _fileHandle.empty(path) : platform::Result<void>();
  if (noted) noted = claim->setValidator(validator);
  if (!noted) failWithFile(noted.error()->localizedDescription(), noted.error(), path);
  return noted.ok();
}

bool DataPersistenceTask::createFile(const std::string& path) {
  logger().logDebug(texts::kFileCreated, getBlobID(), path);
  const auto created = path.empty() ? Error::fromErrno(EINVAL, "Creating", getBlobID())
                                    : _fileHandle.create(path).error();
  if (created == nullptr) {
    if (!_isAsteriskRecieved) logger().logDebug(texts::kSettingSize);
    return true;
  }
  logger().logError(texts::kFileNotCreated, path);
  logger().logError(texts::kCreationFailed, getBlobID());
  _outputContext.set(kBlobId, getBlobID());
  _outputContext.set(kFilePath, path);
  fail(creationFailure(created, path));
  return false;
}

bool DataPersistenceTask::writeChunk(const Chunk& chunk, const std::string& toFile) {
  const auto size = _fileHandle.write(
      toFile, static_cast<std::uint64_t>(chunk.offset()), *chunk.data(),
      hasStablePath() ? DownloadFile::Gaps::kRefused : DownloadFile::Gaps::kAllowed);
  if (!size) {
    logger().logError(texts::kFileFailed, size.error());
    setOutputContext();
    failWithFile(size.error()->localizedDescription(), size.error(), toFile);
    return false;
  }
  updateTotalSizeWritten(*size);
  return true;
}

void DataPersistenceTask::updateTotalSizeWritten(std::uint64_t size) {
  _totalSizeWritten = static_cast<std::int64_t>(size);
  if (_onChunkDownloadCompletedCompletionBlock == nullptr) return;
  callBlock([&] {
    _onChunkDownloadCompletedCompletionBlock->function()(
        getBlobID(), _totalSizeWritten, _totalFileSize, inputContext()[kFileParams]);
  });
}

void DataPersistenceTask::failWithFile(std::string_view message, const ErrorPtr& cause,
                                       const std::string& path) {
  fail(fileFailure(message, cause, path));
}

void DataPersistenceTask::fail(const Dictionary& userInfo) {
  endsDue_ = 0;
  releaseUnclaimedFile();
  takeEndBack();
  _errorContext.set(kPersistenceError, userInfo);
  raiseError(std::make_shared<const VSTaskError>(ID(), std::string(kFileErrorName),
                                                 std::string(kPersistenceErrorDomain),
                                                 kCodeDownloadFault, userInfo));
}

void DataPersistenceTask::failWithEmptyBody() {
  endsDue_ = 0;
  takeEndBack();
  raiseError(CommonUtils::getErrorForTask(ID(), kEmptyObjectErrorDomain, kCodeEmptyBodyReceived,
                                          kEmptyBodyReceived, std::nullopt));
}

/// A task that has Ended, before the network task has, can still turn out to have failed.
void DataPersistenceTask::takeEndBack() {
  if (state() != TaskState::Ended) return;
  setState(TaskState::NotStarted);
  setState(TaskState::Started);
}

// The end.

void DataPersistenceTask::checkIfTaskCompleted(bool isReceivedChunkNil) {
  if (_isAsteriskRecieved) return checkIfTaskOfUnknownSizeCompleted(isReceivedChunkNil);
  if (_totalSizeWritten >= _totalFileSize && _totalFileSize > 0) {
    // The network task may have ended already: then this end is the download's.
    if (phase_ == Phase::kReceiving && !checkSizeOfFile()) return;
    logger().logDebug(texts::kDownloadedInRanges, getBlobID());
    return end();
  }
  if (!isReceivedChunkNil) return raiseContextChangeEvent();
  switch (phase_) {
    case Phase::kReceiving:
    case Phase::kReleased:
      return;  // of a response that brought nothing; the network task is about to tell its own end
    case Phase::kNetworkPaused:
      logger().logDebug(texts::kPaused, getBlobID());
      return end();
    case Phase::kNetworkEnded:
      if (_totalBytesReceived == 0) return failWithEmptyBody();
      [[fallthrough]];
    case Phase::kNetworkErrored:
      logger().logDebug(texts::kDownloaded, getBlobID());
      return end();
  }
}

void DataPersistenceTask::checkIfTaskOfUnknownSizeCompleted(bool isReceivedChunkNil) {
  if (!isReceivedChunkNil) return;
  // The end marker of such an object comes before the network task's own end.
  const bool isComplete = phase_ == Phase::kReceiving || phase_ == Phase::kNetworkEnded;
  if (isComplete && _totalBytesReceived == 0 && !hasEarlierBytes()) return failWithEmptyBody();
  logger().logDebug(phase_ == Phase::kNetworkPaused ? texts::kPaused : texts::kDownloaded,
                    getBlobID());
  end();
}

/// Whether the run began where the file ended, so that there may have been nothing to receive.
bool DataPersistenceTask::hasEarlierBytes() {
  const std::int64_t offset = inputContext()[kTotalBytesDownloaded].integerValue();
  return !_streaming && offset > 0 &&
         DownloadFile::sizeAt(getFilePath()) == static_cast<std::uint64_t>(offset);
}

void DataPersistenceTask::release() {
  ++runs_;
  isSyncing_ = false;
  endsDue_ = 0;
  _fileHandle.release();
}

void DataPersistenceTask::end() {
  ++endsDue_;
  if (!isSyncing_) syncThenEnd();
}

void DataPersistenceTask::syncThenEnd() {
  const bool isComplete = phase_ == Phase::kNetworkEnded || phase_ == Phase::kReceiving;
  const bool mustBeOnDisk = _fileHandle.isOpen() || (isComplete && hasStablePath());
  if (_streaming || !mustBeOnDisk) return tellEnds();
  const auto unsynced = _fileHandle.unsynced(getFilePath());
  if (!unsynced) return failToSync(unsynced.error());
  if (unsynced->file == nullptr) return tellEnds();
  isSyncing_ = true;
  platform::Runtime::shared().pool().postOrRun(
      [self = self<DataPersistenceTask>(), run = runs_, file = *unsynced] {
        self->guarded([&] {
          chunkQueue().async([self, run, file, done = file.file->sync()] {
            self->guarded([&] { self->synced(run, file, done); });
          });
        });
      });
}

void DataPersistenceTask::synced(std::uint64_t run, const DownloadFile::Unsynced& file,
                                 const platform::Result<void>& done) {
  if (run != runs_) return;
  isSyncing_ = false;
  // Stopped, or failed in another way, meanwhile.
  if (endsDue_ == 0 || !isWriting()) return;
  if (!done) return failToSync(done.error());
  _fileHandle.noteSynced(file);
  syncThenEnd();  // of what was written meanwhile
}

void DataPersistenceTask::failToSync(const ErrorPtr& cause) {
  logger().logError(texts::kFileFailed, cause);
  failWithFile(cause->localizedDescription(), cause, getFilePath());
}

void DataPersistenceTask::tellEnds() {
  for (int due = std::exchange(endsDue_, 0); due > 0; --due) {
    setOutputContext();
    // A second end: the first came before the network task's, when nobody could act on it.
    if (state() == TaskState::Ended) {
      raiseContextChangeEvent();
    } else {
      setState(TaskState::Ended);
    }
  }
}

void DataPersistenceTask::setOutputContext() {
  const std::string blobId = getBlobID();
  const std::string path = getFilePath();
  if (blobId.empty()) {
    logger().logWarning(texts::kNoBlobId);
  } else {
    _outputContext.set(kBlobId, blobId);
  }
  if (path.empty()) {
    logger().logWarning(texts::kNoFilePath);
  } else {
    _outputContext.set(kFilePath, path);
  }
  if (_totalFileSize == 0) {
    logger().logWarning(texts::kNoFileSize);
  } else {
    _outputContext.set(kTotalFileSize, _totalFileSize);
  }
}

}  // namespace varo::binary
