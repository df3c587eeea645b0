#include "Binary/Binary/DownloadTask/NetworkTask.h"

#include "Binary/Binary/DownloadTask/Buffer.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/DownloadTask/GlobalHeaders.h"
#include "Binary/Binary/DownloadTask/NetworkAnswer.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/TransportFailure.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <exception>
#include <new>
#include <utility>

namespace varo::binary {

using platform::HttpResponseInfo;
using platform::Runtime;
using platform::VRONetworkUtility;

namespace {

namespace texts = log_texts::network_task;

constexpr std::string_view kNetworkTaskName = "networkTask";

/// What is told of something thrown that is no `std::exception`.
constexpr std::string_view kUnknown = "An unknown exception";

/// In the output context, for `isOfLatestRun`.
constexpr char kRunNumber[] = "RunNumber";

bool isTooLarge(const Error& error) {
  return platform::transportFailureOf(error) == platform::TransportFailure::kTooLarge;
}

}  // namespace

struct NetworkTask::Run {
  RangeOrder::Ptr order;
  RangeKnowledge known;
  std::int64_t _totalBytesDownloaded = 0;  // the next range starts here
  bool isFirstOfResumed = false;           // see `RangeQuestion`
  bool hasStartedOver = false;
  std::int64_t requests = 0;
  VRONetworkUtility::TransferPtr transfer;  // of the range in flight
  Buffer waiting;                           // published and not taken
};

NetworkTask::NetworkTask(std::string name, std::shared_ptr<StepQueue> steps)
    : VSTask(std::move(name)),
      steps_(steps != nullptr ? std::move(steps)
                              : std::make_shared<StepQueue>("networkTaskQueue")) {}

NetworkTask::~NetworkTask() = default;

// Errors and interruptions.

bool NetworkTask::isTaskInterrupted() const {
  const TaskState now = state();
  return now == TaskState::Paused || now == TaskState::Stopped || now == TaskState::Errored;
}

ErrorPtr NetworkTask::cause(std::int64_t code, Dictionary userInfo) const {
  return std::make_shared<const VSTaskError>(ID(), std::string(kNetworkTaskName),
                                             std::string(kNetworkTaskErrorDomain), code,
                                             std::move(userInfo));
}

ErrorPtr NetworkTask::cause(std::int64_t code, std::string_view message) const {
  return cause(code, Dictionary{{std::string(platform::kErrorMessageKey), message}});
}

// What callers ask for.

void NetworkTask::execute() { begin(false); }

void NetworkTask::begin(bool isResumed) {
  if (isTaskInterrupted()) return logger().logDebug(texts::kTaskInterrupted);
  logger().logTrace(log_texts::kInside, name());
  // Outside the step: reading the input can take a while, and others wait for the queue.
  const Result<RangeOrder::Ptr> order = RangeOrder::unpackInputContext(inputContext());
  enter([&] {
    if (order) return beginRun(*order, isResumed);
    return fail(cause(order.error()->code(), order.error()->userInfo()));
  });
}

void NetworkTask::pauseDownload() {
  logger().logDebug(texts::kPausing, inputContext()[kBlobId]);
  enter([this] {
    Effects effects;
    if (goesOn()) {
      // The transfer goes out as an effect: a cancel may call back, which no step may wait for.
      effects.cancel = std::exchange(run_->transfer, nullptr);
      changeTo(RunState::kPaused);
    }
    setState(TaskState::Paused);
    return effects;
  });
}

void NetworkTask::resumeDownload() {
  logger().logDebug(texts::kResuming, inputContext()[kBlobId]);
  begin(true);
}

void NetworkTask::stop() {
  enter([this] {
    Effects effects;
    if (run_ != nullptr) effects.cancel = run_->transfer;
    run_.reset();
    changeTo(RunState::kStopped);
    setState(TaskState::Stopped);
    return effects;
  });
  logger().logDebug(texts::kStopped);
}

bool NetworkTask::takeChunk(const std::shared_ptr<Chunk>& chunk) {
  bool isTaken = false;
  const Effects effects = make([&]() -> Effects {
    // Compared by identity, so a chunk of an earlier run is never taken for one of this run.
    isTaken = run_ != nullptr && run_->waiting.first() == chunk.get();
    if (!isTaken) return {};
    // The caller holds it too, so that it is not destroyed here. An ended task keeps no bytes.
    (void)run_->waiting.removeChunkFromBuffer();
    if (_outputContext.get(kDataChunk).object() == chunk) _outputContext.remove(kDataChunk);
    return runState_ == RunState::kWaitsForRoom ? downloadChunk() : Effects{};
  });
  performLater(effects);  // whoever takes chunks has bytes to write
  return isTaken;
}

bool NetworkTask::isOfLatestRun(const Dictionary& outputContext) const {
  const Value& number = outputContext[kRunNumber];
  if (number.isMissing()) return true;  // it failed before it had begun
  bool isLatest = false;
  steps_->run([&]() -> StepQueue::Effects {
    isLatest = run_ != nullptr && number == Value(runs_);
    return {};
  });
  return isLatest;
}

// Steps and their effects.

NetworkTask::Effects NetworkTask::make(const Step& step) {
  Effects effects;
  steps_->run([&]() -> StepQueue::Effects {
    effects = guardedStep(step);
    return {};
  });
  return effects;
}

void NetworkTask::enter(const Step& step) { perform(make(step)); }

void NetworkTask::enterFromAnswer(const Step& step) {
  guarded([&] { performLater(make(step)); });
}

void NetworkTask::performLater(const Effects& effects) {
  if (effects.cancel == nullptr && !effects.send) return;
  try {
    Runtime::shared().pool().postOrRun(
        [self = self<NetworkTask>(), effects] { self->perform(effects); });
  } catch (const std::bad_alloc&) {
    perform(effects);  // a range that is never asked for would never end
  }
}

NetworkTask::Effects NetworkTask::guardedStep(const Step& step) {
  try {
    return step();
  } catch (const std::exception& exception) {
    return fail(cause(kCodeDownloadFault, exception.what()));
  } catch (...) {
    return fail(cause(kCodeDownloadFault, kUnknown));
  }
}

void NetworkTask::perform(const Effects& effects) {
  // Before the next request is sent: two at once would share the bandwidth for bytes nobody wants.
  if (effects.cancel != nullptr) effects.cancel->cancel();
  if (!effects.send) return;
  try {
    send(*effects.send);
  } catch (const std::exception& exception) {
    failLater(*effects.send, exception.what());
  } catch (...) {
    failLater(*effects.send, kUnknown);
  }
}

void NetworkTask::failLater(const Request& request, std::string_view what) {
  enterFromAnswer([this, request, error = cause(kCodeDownloadFault, what)] {
    // A pause may have come meanwhile, to which this request no longer matters.
    return isCurrent(request) ? fail(error) : Effects{};
  });
}

void NetworkTask::changeTo(RunState state) {
  constexpr std::array<std::string_view, 7> kNames{
      "not begun", "asking", "waiting for room", "paused", "ended", "failed", "stopped"};
  // A run begins, fails and is stopped in any state; the others are of one that goes on.
  assert(state == RunState::kAsking || state == RunState::kFailed || state == RunState::kStopped ||
         goesOn());
  logger().logTrace(texts::kRunStateChange, runs_, kNames.at(static_cast<std::size_t>(runState_)),
                    kNames.at(static_cast<std::size_t>(state)));
  runState_ = state;
}

bool NetworkTask::goesOn() const noexcept {
  return runState_ == RunState::kAsking || runState_ == RunState::kWaitsForRoom;
}

bool NetworkTask::isCurrent(const Request& request) const {
  return runState_ == RunState::kAsking && request.run == runs_ && request.number == run_->requests;
}

// Asking.

NetworkTask::Effects NetworkTask::beginRun(const RangeOrder::Ptr& order, bool isResumed) {
  if (state() != TaskState::Started) return {};
  auto run = std::make_unique<Run>();
  run->order = order;
  run->_totalBytesDownloaded = order->offset.value_or(isResumed ? _totalBytesDownloaded : 0);
  // There is nothing to compare with where everything is fetched anew.
  const bool hasBytes = run->_totalBytesDownloaded > 0;
  if (isResumed && (hasBytes || order->isStreamed)) run->known = known_;
  if (hasBytes && run->known.object.isEmpty()) {
    run->known.object = order->validator;
    run->known._totalFileSize = order->validator.total;
  }
  if (run->known.object.total == 0) {
    run->known.object.total = run->known._totalFileSize = order->_totalFileSize;
  }
  run->known.bytesPublished = std::max(run->known.bytesPublished, run->_totalBytesDownloaded);
  run->isFirstOfResumed = hasBytes && !run->known.object.isEmpty();

  known_ = run->known;
  _totalBytesDownloaded = run->_totalBytesDownloaded;
  const std::unique_ptr<Run> replaced = std::exchange(run_, std::move(run));
  // From here on responses of earlier runs are told by their number, and change nothing.
  ++runs_;
  _outputContext.set(kRunNumber, runs_);
  Effects effects = downloadChunk();
  if (replaced != nullptr) effects.cancel = replaced->transfer;
  return effects;
}

NetworkTask::Effects NetworkTask::downloadChunk() {
  changeTo(RunState::kAsking);
  const std::int64_t total = run_->known._totalFileSize;
  // A resumed download may have all the bytes; there is no range left to ask for.
  if (total != 0 && run_->_totalBytesDownloaded == total) return end();
  // More bytes than that are not the object's.
  if (total != 0 && run_->_totalBytesDownloaded > total) {
    if (run_->order->isStreamed) {
      return fail(cause(kCodeIntegrityCheckFailed, kIntegrityCheckFailed));
    }
    return startOver();
  }
  RangeQuestion question{.known = run_->known,
                         .offset = run_->_totalBytesDownloaded,
                         .chunkSize = run_->order->_chunkSize,
                         .isSafe = run_->order->settings->isSafe(),
                         .isStreamed = run_->order->isStreamed,
                         .isFirstOfResumed = run_->isFirstOfResumed,
                         .hasStartedOver = run_->hasStartedOver};
  // The former range has arrived. A cancel of its transfer would do nothing.
  run_->transfer = nullptr;
  return {.cancel = nullptr,
          .send = Request{runs_, ++run_->requests, run_->order, std::move(question)}};
}

/// What was published stays known until its place is taken: a pause may come before that.
NetworkTask::Effects NetworkTask::startOver() {
  logger().logInfo(texts::kStartsOver);
  run_->known = {};
  run_->_totalBytesDownloaded = 0;
  run_->isFirstOfResumed = false;
  run_->hasStartedOver = true;
  return downloadChunk();
}

void NetworkTask::send(const Request& request) {
  const RangeOrder& order = *request.order;
  const auto headers = order.prepareRequestObject(request.question);
  if (!headers) {
    const Error& error = *headers.error();
    const Dictionary userInfo{
        {std::string(platform::kErrorMessageKey), error.localizedDescription()},
        {std::string(platform::kUnderlyingError), headers.error()}};
    return enterFromAnswer([this, request, failure = cause(error.code(), userInfo)] {
      return isCurrent(request) ? fail(failure) : Effects{};
    });
  }
  auto transfer = VRONetworkUtility::GET(
      order._url, order.queryParams, *headers, order.optionsFor(request.question),
      [self = self<NetworkTask>(), request](const std::optional<Data>& data,
                                            const Dictionary& responseInfo,
                                            const NetworkErrorPtr& error) {
        try {
          self->processNetworkResponse(request, data, responseInfo, error);
        } catch (const std::exception& exception) {
          self->failLater(request, exception.what());
        } catch (...) {
          self->failLater(request, kUnknown);
        }
      });
  // A pause may have come first.
  enterFromAnswer([this, request, transfer = std::move(transfer)]() -> Effects {
    if (!isCurrent(request)) return {.cancel = transfer, .send = {}};
    run_->transfer = transfer;
    return {};
  });
}

// Judging.

/// Reading a response may take a while, so it is not done on the queue.
void NetworkTask::processNetworkResponse(const Request& request, const std::optional<Data>& data,
                                         const Dictionary& responseInfo, const ErrorPtr& error) {
  const RangeOrder& order = *request.order;
  if (error != nullptr) {
    // The known size refused a whole object of another size that came in place of the range.
    const bool startsOver = isTooLarge(*error) && request.question.known.object.total != 0 &&
                            request.question.mayStartOver();
    const ErrorPtr failure = CommonUtils::validateResponseforTask(ID(), kRangeRequestErrorDomain,
                                                                  responseInfo, data, error);
    return enterFromAnswer([this, request, startsOver, error, failure] {
      if (!isCurrent(request)) return Effects{};  // it was cancelled
      logger().logError(texts::kRequestFailed, error->description());
      logger().logError(texts::kClientSide);
      return startsOver ? startOver() : fail(failure);
    });
  }
  auto response = responseInfo[platform::kHttpResponse].objectAs<HttpResponseInfo>();
  if (response == nullptr) response = std::make_shared<HttpResponseInfo>(0, Dictionary());
  GlobalHeaders::shared().noteAnswer(order._url, *response);
  const NetworkAnswer answer = readAnswer(*response, data.value_or(Data()),
                                          {.isOnline = order.isOnline,
                                           .isBase64 = order.isBase64(),
                                           .maxBase64 = order.settings->limits.base64,
                                           .isSafe = order.settings->isSafe()});
  // Judged by what was known when the range was asked for, which only the next range may change.
  const RangeVerdict verdict = judge(request.question, answer.said);
  const ErrorPtr failure = verdict.kind == RangeVerdict::Kind::kError
                               ? causeOf(request, verdict, answer, response->allHeaderFields())
                               : nullptr;
  enterFromAnswer([this, request, verdict, failure, body = answer.body] {
    if (isCurrent(request)) return checkForErrors(verdict, body, failure);
    logger().logDebug(texts::kTaskInterrupted);  // whoever goes on asks for this range anew
    return Effects{};
  });
}

/// The required text says little; why a store refuses a request stands in its response.
ErrorPtr NetworkTask::causeOf(const Request& request, const RangeVerdict& verdict,
                              const NetworkAnswer& answer, const Dictionary& headers) const {
  Dictionary userInfo;
  if (verdict.message) {
    userInfo.set(std::string(platform::kErrorMessageKey), *verdict.message);
  }
  const int status = answer.said.status;
  const bool isRefusal = status < 200 || status > 299;
  if (isRefusal && request.question.isSafe) {
    CommonUtils::addAnswer(userInfo, status, answer.body);
    userInfo.set(kResponseHeaders,
                 BinaryNetworkUtils::withoutSecrets(headers, request.order->_headers));
  }
  return cause(verdict.code, std::move(userInfo));
}

// Publishing.

NetworkTask::Effects NetworkTask::checkForErrors(const RangeVerdict& verdict, const Data& body,
                                                 const ErrorPtr& failure) {
  using Kind = RangeVerdict::Kind;
  if (verdict.kind == Kind::kError) {
    logger().logError(texts::kInErrorCondition, failure);
    return fail(failure);
  }
  if (verdict.kind == Kind::kStartOver) return startOver();
  if (verdict.known._isAsteriskRecieved && !run_->known._isAsteriskRecieved) {
    logger().logDebug(texts::kAsterisk);
  } else if (verdict.known._totalFileSize != run_->known._totalFileSize) {
    logger().logDebug(texts::kTotalSizeIs, verdict.known._totalFileSize);
  }
  run_->isFirstOfResumed = false;
  run_->known = verdict.known;
  switch (verdict.kind) {
    case Kind::kWhole:
      logger().logDebug(run_->order->isBase64() ? texts::kBase64Ends : texts::kWholeFileEnds);
      setChunkDataForBinary(body, 0);
      return end();
    case Kind::kAllThere:
      return end();
    case Kind::kEnd:
      setChunk(std::make_shared<Chunk>());
      break;
    default:
      setChunkDataForBinary(body, run_->_totalBytesDownloaded);
  }
  if (verdict.kind == Kind::kEnd || verdict.isComplete) {
    logger().logInfo(texts::kCompleted);
    return end();
  }
  logger().logDebug(run_->known._isAsteriskRecieved ? texts::kUnknownSizeGoesOn : texts::kGoesOn);
  if (run_->waiting.count() < kMaxWaitingChunks) return downloadChunk();
  changeTo(RunState::kWaitsForRoom);
  return {};
}

void NetworkTask::setChunkDataForBinary(const Data& data, std::int64_t offset) {
  run_->_totalBytesDownloaded = offset + static_cast<std::int64_t>(data.size());
  logger().logDebug(texts::kBytesDownloaded, run_->_totalBytesDownloaded);
  setChunk(std::make_shared<Chunk>(data, offset));
}

void NetworkTask::setChunk(const std::shared_ptr<Chunk>& chunk) {
  known_ = run_->known;
  _totalBytesDownloaded = run_->_totalBytesDownloaded;
  // Before it is published: a listener may take it at once.
  run_->waiting.addChunkToBuffer(chunk);
  _outputContext.set(kDataChunk, chunk);
  _outputContext.set(kTotalFileSize, known_._totalFileSize);
  if (known_._isAsteriskRecieved) {
    _outputContext.set(kIsAsteriskRecieved, true);
  } else {
    _outputContext.remove(kIsAsteriskRecieved);
  }
  _outputContext.set(kValidator, known_.object.text());
  raiseContextChangeEvent();
}

NetworkTask::Effects NetworkTask::end() {
  changeTo(RunState::kEnded);
  _outputContext.set(kTotalFileSize, run_->known._totalFileSize);
  setState(TaskState::Ended);
  return {};
}

void NetworkTask::setChunkForError() { _outputContext.set(kDataChunk, std::make_shared<Chunk>()); }

NetworkTask::Effects NetworkTask::fail(const ErrorPtr& error) {
  Effects effects;
  if (run_ != nullptr) effects.cancel = std::exchange(run_->transfer, nullptr);
  changeTo(RunState::kFailed);
  setChunkForError();
  // Before the error is raised, since whoever hears of that reads the context.
  _errorContext.set(kNetworkError, error->userInfo());
  raiseError(error);
  return effects;
}

}  // namespace varo::binary
