#include "Binary/Binary/DownloadTask/NetworkTask.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/Buffer.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/GlobalHeaders.h"
#include "Binary/Binary/DownloadTask/NetworkRun.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/UrlEncoding.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace varo::binary {

using platform::Data;
using platform::Dictionary;
using platform::DictionaryEntry;
using platform::ErrorPtr;
using platform::HttpResponseInfo;
using platform::MutexLock;
using platform::NetworkErrorPtr;
using platform::Runtime;
using platform::TaskState;
using platform::Value;
using platform::VRONetworkUtility;
using platform::VSTaskError;

namespace {

constexpr std::string_view kTransportDomain = "NetworkTask";

constexpr std::string_view kTaskInterrupted = "Task Interrupted";
constexpr std::string_view kInside = "Inside %@  ";
constexpr std::string_view kInvalidInput = "Invalid inputs provided to the network task.";
constexpr std::string_view kValidInput = "valid input is %d";
constexpr std::string_view kUrlBuilt = "  URL from buildURL : %@";
constexpr std::string_view kRangeRequest = "Range request for blob id %@ : %@";
constexpr std::string_view kInErrorCondition = "Inside error if condition of network task. %@";
constexpr std::string_view kBase64Ends = "Setting data for base 64 string and ending the task.";
constexpr std::string_view kWholeFileEnds =
    "Setting the total file for binary and ending the task.";
constexpr std::string_view kUnknownSizeGoesOn =
    "File not completely downloaded..Calling download Chunk";
constexpr std::string_view kGoesOn = "File not completely downloaded calling download Chunk";
constexpr std::string_view kCompleted = "File download completed via partial request, ending task.";
constexpr std::string_view kBytesDownloaded = "Total bytes downloaded : %lld";
constexpr std::string_view kPausing = "Pausing the network task for download task : %@";
constexpr std::string_view kResuming = "Resuming the network task for download task : %@";
constexpr std::string_view kStopped = "Done cancelling background session";
constexpr std::string_view kNoEnd = "The object has no end";

/// In the output context, for `isOfLatestRun`.
constexpr char kRunNumber[] = "RunNumber";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

/// "key=value" for each, with an ampersand between.
std::string joinedPairs(const Dictionary& pairs) {
  std::string joined;
  for (const DictionaryEntry& pair : pairs) {
    if (!joined.empty()) joined += '&';
    // They are the record's own values and may hold anything; a bare "&" would name another record.
    joined +=
        platform::percentEncode(pair.key) + "=" + platform::percentEncode(pair.value.textValue());
  }
  return joined;
}

/// "&name=value"; nothing where there is no value.
std::string parameter(std::string_view name, const Value& value) {
  if (value.isMissing()) return {};
  return "&" + std::string(name) + "=" + platform::percentEncode(value.textValue());
}

std::string getRangeRequestStringFrom(std::int64_t from, std::int64_t to) {
  return "bytes=" + std::to_string(from) + "-" + std::to_string(to);
}

/// The last position of a range, which the size of the object limits where it is known.
std::int64_t endOfRange(std::int64_t from, std::int64_t length, std::int64_t totalFileSize) {
  const std::int64_t room = std::numeric_limits<std::int64_t>::max() - from;
  const std::int64_t to = from + std::min(length - 1, room);
  return totalFileSize != 0 && to > totalFileSize ? totalFileSize - 1 : to;
}

}  // namespace

NetworkTask::NetworkTask(std::string name) : VSTask(std::move(name)) {}

NetworkTask::~NetworkTask() = default;

// Input.

bool NetworkTask::validateInput() const {
  const Dictionary input = inputContext();
  const bool hasUrl = input[kURL].isPresent() && input[kURL] != Value(kEmptyString);
  bool valid = hasUrl;
  if (input[kChunkSizeKey].integerValue() < 0) valid = false;
  if (!input[kOnlineDownloadTask].boolValue()) {
    for (const char* key : {kScopeName, kObjectName, kPrimaryKeys}) {
      if (input[key].isMissing() || !hasUrl) valid = false;
    }
  }
  logger().logDebug(kValidInput, valid);
  return valid;
}

/// There is a "URL": `validateInput` has seen to that.
std::string NetworkTask::buildURL(const Dictionary& input) {
  std::string url = input[kURL].textValue();
  if (input[kOnlineDownloadTask].boolValue()) return url;
  url += input[kScopeName].textValue() + "/" + input[kObjectName].textValue() + "/binary?" +
         joinedPairs(input[kPrimaryKeys].dictionaryValue()) + "&type=bytes" +
         parameter("clientid", input[kClientID]) +
         parameter("varosyncsessionid", input[kSessionID]);
  if (BinaryLogger::isEnabled(platform::LogLevel::kDebug)) {
    logger().logDebug(kUrlBuilt, platform::redactSecrets(url));
  }
  return url;
}

NetworkTask::RunPtr NetworkTask::unpackInputContext(const Identity& known) const {
  const Dictionary input = inputContext();
  auto run = std::make_shared<Run>();
  static_cast<Identity&>(*run) = known;
  run->_url = buildURL(input);
  run->queryParams = input[keys::kQueryParams].dictionaryValue();
  if (input[kResponseType].isPresent()) run->_responseType = input[kResponseType].textValue();
  run->_chunkSize = input[kChunkSizeKey].integerValue();
  if (run->_chunkSize <= 0) run->_chunkSize = kDefaultChunkSize;
  run->_totalBytesDownloaded =
      std::max<std::int64_t>(input[kTotalBytesDownloaded].integerValue(), 0);
  run->bytesPublished = std::max(run->bytesPublished, run->_totalBytesDownloaded);
  run->isStreamed = input[kStreaming].boolValue();
  const std::int64_t totalFileSize = input[kTotalFileSize].integerValue();
  if (totalFileSize > 0) run->_totalFileSize = totalFileSize;
  return run;
}

// Runs.

void NetworkTask::execute() { begin({}); }

void NetworkTask::begin(const Identity& known) {
  if (isTaskInterrupted()) return logger().logDebug(kTaskInterrupted);
  logger().logTrace(kInside, name());
  if (!validateInput()) {
    logger().logError(kInvalidInput);
    const Dictionary userInfo{{std::string(platform::kErrorMessageKey), kInvalidInput}};
    _errorContext.set(kNetworkError, userInfo);
    return raiseError(std::make_shared<const VSTaskError>(ID(), std::string(kNetworkTaskName),
                                                          std::string(kNetworkTaskDomain),
                                                          kInvalidInputCode, userInfo));
  }
  RunPtr run = unpackInputContext(known);
  RunPtr replaced;  // destroyed after the lock is released
  {
    const MutexLock lock(runMutex_);
    if (state() != TaskState::Started) return;
    run->number = ++runs_;
    replaced = std::exchange(run_, run);
    going_ = true;
    identity_ = known;
    _outputContext.set(kRunNumber, run->number);
  }
  downloadChunk(run);
}

bool NetworkTask::isTaskInterrupted() const {
  const TaskState now = state();
  return now == TaskState::Paused || now == TaskState::Stopped || now == TaskState::Errored;
}

bool NetworkTask::isCurrent(const RunPtr& run) const {
  const MutexLock lock(runMutex_);
  return going_ && run_ == run;
}

void NetworkTask::pauseDownload() {
  logger().logDebug(kPausing, inputContext()[kBlobId]);
  const MutexLock lock(runMutex_);
  going_ = false;
  setState(TaskState::Paused);
}

void NetworkTask::resumeDownload() {
  logger().logDebug(kResuming, inputContext()[kBlobId]);
  Identity known;
  {
    const MutexLock lock(runMutex_);
    known = identity_;
  }
  begin(known);
}

void NetworkTask::stop() {
  RunPtr dropped;  // destroyed after the lock is released
  {
    const MutexLock lock(runMutex_);
    going_ = false;
    dropped = std::exchange(run_, nullptr);
    setState(TaskState::Stopped);
  }
  logger().logDebug(kStopped);
}

bool NetworkTask::takeChunk(const std::shared_ptr<Chunk>& chunk) {
  RunPtr goesOn;
  {
    const MutexLock lock(runMutex_);
    if (run_ == nullptr || run_->waiting.first() != chunk.get()) return false;
    // The caller holds it too, so that it is not destroyed here. An ended task keeps no bytes.
    (void)run_->waiting.removeChunkFromBuffer();
    if (_outputContext.get(kDataChunk).object() == chunk) _outputContext.remove(kDataChunk);
    if (std::exchange(run_->waitsForRoom, false) && going_) goesOn = run_;
  }
  if (goesOn != nullptr) {
    Runtime::shared().pool().postOrRun([self = self<NetworkTask>(), goesOn] {
      self->guarded([&] { self->downloadChunk(goesOn); });
    });
  }
  return true;
}

bool NetworkTask::isOfLatestRun(const Dictionary& outputContext) const {
  const Value& number = outputContext[kRunNumber];
  if (number.isMissing()) return true;  // it failed before it had begun
  const MutexLock lock(runMutex_);
  return run_ != nullptr && number == Value(run_->number);
}

// One range.

void NetworkTask::downloadChunk(const RunPtr& run) {
  if (!isCurrent(run)) return logger().logDebug(kTaskInterrupted);
  // A resumed download may have all the bytes; there is no range left to ask for.
  if (run->_totalFileSize != 0 && run->_totalBytesDownloaded == run->_totalFileSize)
    return end(run);
  // More bytes than that are not the object's.
  if (run->_totalFileSize != 0 && run->_totalBytesDownloaded > run->_totalFileSize) {
    if (run->isStreamed) {
      setCause(*run, kCodeIntegrityCheckFailed, kIntegrityCheckFailed);
      return fail(run, run->_cause);
    }
    run->_totalBytesDownloaded = 0;
  }
  prepareRequestObject(*run);
  VRONetworkUtility::GET(
      run->_url, run->queryParams, run->_headers, {},
      [self = self<NetworkTask>(), run](const std::optional<Data>& data,
                                        const Dictionary& responseInfo,
                                        const NetworkErrorPtr& error) {
        self->guarded([&] { self->processAnswer(run, data, responseInfo, error); });
      });
}

void NetworkTask::prepareRequestObject(Run& run) const {
  setHeaders(run);
  setRangeHeader(run);
}

void NetworkTask::setHeaders(Run& run) const {
  run._headers = GlobalHeaders::shared().headersFor(run._url);
  for (const DictionaryEntry& header : inputContext()[kDownloadHeaders].dictionaryValue()) {
    BinaryNetworkUtils::setHeader(run._headers, header.key, header.value.textValue());
  }
}

void NetworkTask::setRangeHeader(Run& run) const {
  const std::int64_t from = run._totalBytesDownloaded;
  const std::int64_t to = endOfRange(from, run._chunkSize, run._totalFileSize);
  const std::string range = getRangeRequestStringFrom(from, to);
  if (BinaryLogger::isEnabled(platform::LogLevel::kDebug)) {
    logger().logDebug(kRangeRequest, inputContext()[kBlobId], range);
  }
  BinaryNetworkUtils::setHeader(run._headers, "Range", range);
}

void NetworkTask::processAnswer(const RunPtr& run, const std::optional<Data>& data,
                                const Dictionary& responseInfo, const ErrorPtr& error) {
  // Whoever goes on asks for this range anew.
  if (!isCurrent(run)) return logger().logDebug(kTaskInterrupted);
  if (const auto failure =
          CommonUtils::validateResponseforTask(ID(), kTransportDomain, responseInfo, data, error)) {
    return fail(run, failure);
  }
  auto response = responseInfo[platform::kHttpResponse].objectAs<HttpResponseInfo>();
  if (response == nullptr) response = std::make_shared<HttpResponseInfo>(0, Dictionary());
  processNetworkResponse(*run, *response, data.value_or(Data()));
  checkForErrors(run);
}

void NetworkTask::checkForErrors(const RunPtr& run) {
  if (run->_isErrorServingData) {
    logger().logError(kInErrorCondition, run->_cause);
    return fail(run, run->_cause);
  }
  if (run->_isBase64OrTotalFile) return endWithWholeObject(run);
  if (run->isAllThere) return end(run);
  if (run->startsOver) {
    run->startsOver = false;
    return downloadChunk(run);
  }
  const std::shared_ptr<Chunk> chunk = prepareChunkObjectWithData(*run);
  const bool isOfUnknownSize = run->_isAsteriskRecieved && chunk->data();
  if (isOfUnknownSize) ++run->rangesOfUnknownSize;
  if (!publish(run, chunk)) return;
  if (isOfUnknownSize) {
    if (run->rangesOfUnknownSize > kMaxRangesOfUnknownSize) {
      setCause(*run, kInvalidInputCode, kNoEnd);
      return fail(run, run->_cause);
    }
    logger().logDebug(kUnknownSizeGoesOn);
  } else if (run->_totalFileSize != 0 && run->_totalBytesDownloaded < run->_totalFileSize) {
    logger().logDebug(kGoesOn);
  } else {
    logger().logInfo(kCompleted);
    return end(run);
  }
  if (hasRoom(run)) downloadChunk(run);
}

void NetworkTask::endWithWholeObject(const RunPtr& run) {
  const bool isBase64 = run->_responseType == kResponseTypeBase64;
  logger().logDebug(isBase64 ? kBase64Ends : kWholeFileEnds);
  if (isBase64) setChunkDataForBase64(*run);
  checkWholeObject(*run);
  if (run->_isErrorServingData) return fail(run, run->_cause);
  // Whatever was fetched before, this is the object from its first byte to its last.
  run->_totalBytesDownloaded = 0;
  // The size that ranges told before may have been another object's.
  if (run->_totalFileSize != 0 && run->_chunkData) {
    run->_totalFileSize = static_cast<std::int64_t>(run->_chunkData->size());
  }
  if (publish(run, prepareChunkObjectWithData(*run))) end(run);
}

std::shared_ptr<Chunk> NetworkTask::prepareChunkObjectWithData(Run& run) {
  if (!run._chunkData) return std::make_shared<Chunk>();
  const std::int64_t offset = run._totalBytesDownloaded;
  updateDownloadedBytes(run, run._chunkData->size());
  return std::make_shared<Chunk>(*std::exchange(run._chunkData, std::nullopt), offset);
}

void NetworkTask::updateDownloadedBytes(Run& run, std::uint64_t length) {
  run._totalBytesDownloaded += static_cast<std::int64_t>(length);
  run.bytesPublished = std::max(run.bytesPublished, run._totalBytesDownloaded);
  logger().logDebug(kBytesDownloaded, run._totalBytesDownloaded);
}

// What others see of a run.

bool NetworkTask::publish(const RunPtr& run, const std::shared_ptr<Chunk>& chunk) {
  const MutexLock lock(runMutex_);
  if (!going_ || run_ != run) return false;
  identity_ = static_cast<const Identity&>(*run);
  run->waiting.addChunkToBuffer(chunk);
  _outputContext.set(kDataChunk, chunk);
  _outputContext.set(kTotalFileSize, run->_totalFileSize);
  if (run->_isAsteriskRecieved) {
    _outputContext.set(kIsAsteriskRecieved, true);
  } else {
    _outputContext.remove(kIsAsteriskRecieved);
  }
  raiseContextChangeEvent();
  return true;
}

bool NetworkTask::hasRoom(const RunPtr& run) {
  const MutexLock lock(runMutex_);
  run->waitsForRoom = run->waiting.count() >= kMaxWaitingChunks;
  return !run->waitsForRoom;
}

void NetworkTask::end(const RunPtr& run) {
  const MutexLock lock(runMutex_);
  if (!going_ || run_ != run) return;
  going_ = false;
  _outputContext.set(kTotalFileSize, run->_totalFileSize);
  setState(TaskState::Ended);
}

void NetworkTask::setChunkForError() { _outputContext.set(kDataChunk, std::make_shared<Chunk>()); }

void NetworkTask::fail(const RunPtr& run, const ErrorPtr& error) {
  const MutexLock lock(runMutex_);
  if (!going_ || run_ != run) return;
  going_ = false;
  setChunkForError();
  _errorContext.set(kNetworkError, error->userInfo());
  raiseError(error);
}

}  // namespace varo::binary
