#include "Binary/Binary/DownloadTask/NetworkTask.h"

#include "Binary/Binary/DownloadTask/Buffer.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/DownloadTask/NetworkAnswer.h"
#include "Binary/Binary/DownloadTask/StepQueue.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <exception>
#include <iterator>
#include <new>
#include <utility>

namespace varo::binary {

using platform::Runtime;
using platform::VRONetworkUtility;

namespace {

namespace texts = log_texts::network_task;

constexpr std::string_view kNetworkTaskName = "networkTask";

/// What is told of something thrown that is no `std::exception`.
constexpr std::string_view kUnknown = "An unknown exception";

/// In the output context, for `isOfLatestRun`.
constexpr char kRunNumber[] = "RunNumber";

}  // namespace

struct NetworkTask::Run {
  Run(RangeOrder::Ptr of, const platform::Clock& clock)
      : order(std::move(of)), window(order->settings->parallelRanges, clock) {}

  RangeOrder::Ptr order;
  RangeKnowledge known;
  std::int64_t _totalBytesDownloaded = 0;  // the next range to publish starts here
  bool isFirstOfResumed = false;           // see `RangeQuestion`
  bool hasStartedOver = false;
  RangeWindow window;
  Buffer waiting;  // published and not taken
};

NetworkTask::NetworkTask(std::string name, std::shared_ptr<StepQueue> steps,
                         const platform::Clock& clock)
    : VSTask(std::move(name)),
      steps_(steps != nullptr ? std::move(steps) : std::make_shared<StepQueue>("networkTaskQueue")),
      clock_(clock) {}

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
    fail(cause(order.error()->code(), order.error()->userInfo()));
  });
}

void NetworkTask::pauseDownload() {
  logger().logDebug(texts::kPausing, inputContext()[kBlobId]);
  enter([this] {
    if (goesOn()) {
      cancel(run_->window.giveUp());
      changeTo(RunState::kPaused);
    }
    setState(TaskState::Paused);
  });
}

void NetworkTask::resumeDownload() {
  logger().logDebug(texts::kResuming, inputContext()[kBlobId]);
  begin(true);
}

void NetworkTask::stop() {
  enter([this] {
    if (run_ != nullptr) cancel(run_->window.giveUp());
    run_.reset();
    changeTo(RunState::kStopped);
    setState(TaskState::Stopped);
  });
  logger().logDebug(texts::kStopped);
}

bool NetworkTask::takeChunk(const std::shared_ptr<Chunk>& chunk) {
  bool isTaken = false;
  const Effects effects = make([&] {
    // Compared by identity, so a chunk of an earlier run is never taken for one of this run.
    isTaken = run_ != nullptr && run_->waiting.first() == chunk.get();
    if (!isTaken) return;
    // The caller holds it too, so that it is not destroyed here. An ended task keeps no bytes.
    (void)run_->waiting.removeChunkFromBuffer();
    if (_outputContext.get(kDataChunk).object() == chunk) _outputContext.remove(kDataChunk);
    // Before it asks for the next one: others that wait for a place have their turn.
    places_.keep(chunksInMemory(), due_.freed);
    if (goesOn()) downloadChunk();
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
    guardedStep(step);
    places_.keep(chunksInMemory(), due_.freed);
    effects = std::exchange(due_, {});
    return {};
  });
  return effects;
}

void NetworkTask::enter(const Step& step) { perform(make(step)); }

void NetworkTask::enterFromAnswer(const Step& step) {
  guarded([&] { perform(make(step)); });
}

void NetworkTask::performLater(const Effects& effects) {
  if (effects.cancel.empty() && effects.send.empty()) return;
  try {
    Runtime::shared().pool().postOrRun(
        [self = self<NetworkTask>(), effects] { self->perform(effects); });
  } catch (const std::bad_alloc&) {
    perform(effects);  // a range that is never asked for would never end
  }
}

void NetworkTask::guardedStep(const Step& step) {
  try {
    step();
  } catch (const std::exception& exception) {
    fail(cause(kCodeDownloadFault, exception.what()));
  } catch (...) {
    fail(cause(kCodeDownloadFault, kUnknown));
  }
}

void NetworkTask::perform(const Effects& effects) {
  // Before the next request is sent: two at once would share the bandwidth for bytes nobody wants.
  for (const auto& transfer : effects.cancel) transfer->cancel();
  for (const Request& request : effects.send) {
    try {
      send(request);
    } catch (const std::exception& exception) {
      failRequest(request, exception.what());
    } catch (...) {
      failRequest(request, kUnknown);
    }
  }
}

void NetworkTask::failRequest(const Request& request, std::string_view what) {
  failRequest(request, cause(kCodeDownloadFault, what));
}

void NetworkTask::failRequest(const Request& request, const ErrorPtr& failure) {
  enterFromAnswer([this, request, failure] {
    arrived(request, {.failure = failure, .transportError = nullptr});
  });
}

void NetworkTask::changeTo(RunState state) {
  constexpr std::array<std::string_view, 6> kNames{"not begun", "going on", "paused",
                                                   "ended",     "failed",   "stopped"};
  // A run begins, fails and is stopped in any state; the others are of one that goes on.
  assert(state == RunState::kGoesOn || state == RunState::kFailed || state == RunState::kStopped ||
         goesOn());
  logger().logTrace(texts::kRunStateChange, runs_, kNames.at(static_cast<std::size_t>(runState_)),
                    kNames.at(static_cast<std::size_t>(state)));
  runState_ = state;
}

RangeWindow::Range* NetworkTask::inFlight(const Request& request) const {
  if (!goesOn() || request.run != runs_) return nullptr;
  return run_->window.find(request.number);
}

/// As effects: a cancel may call back, which no step may wait for. A request that could not be sent
/// has no transfer.
void NetworkTask::cancel(const RangeWindow::Transfers& transfers) {
  std::copy_if(transfers.begin(), transfers.end(), std::back_inserter(due_.cancel),
               [](const auto& transfer) { return transfer != nullptr; });
}

// Asking.

void NetworkTask::beginRun(const RangeOrder::Ptr& order, bool isResumed) {
  if (state() != TaskState::Started) return;
  auto run = std::make_unique<Run>(order, clock_);
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
  if (run_ != nullptr) cancel(run_->window.giveUp());
  run_ = std::move(run);
  // From here on responses of earlier runs are told by their number, and change nothing.
  ++runs_;
  _outputContext.set(kRunNumber, runs_);
  changeTo(RunState::kGoesOn);
  downloadChunk();
}

void NetworkTask::downloadChunk() {
  while (run_->window.hasRoom(run_->waiting.count())) {
    const std::int64_t total = run_->known._totalFileSize;
    const std::int64_t offset = run_->window.end().value_or(run_->_totalBytesDownloaded);
    if (total != 0 && offset >= total) {
      if (!run_->window.isEmpty()) return;
      // A resumed download may have all the bytes; there is no range left to ask for.
      if (offset == total) return end();
      // More bytes than that are not the object's.
      if (!run_->order->isStreamed) return startOver();
      return fail(cause(kCodeIntegrityCheckFailed, kIntegrityCheckFailed));
    }
    if (!hasPlaceForOneMore()) return;
    const RangeWindow::Range& range = run_->window.ask({.known = run_->known,
                                                        .offset = offset,
                                                        .chunkSize = run_->order->_chunkSize,
                                                        .isSafe = run_->order->settings->isSafe(),
                                                        .isStreamed = run_->order->isStreamed,
                                                        .isFirstOfResumed = run_->isFirstOfResumed,
                                                        .hasStartedOver = run_->hasStartedOver});
    due_.send.push_back({runs_, range.number, run_->order, range.question});
  }
}

bool NetworkTask::hasPlaceForOneMore() {
  const std::weak_ptr<NetworkTask> weak = self<NetworkTask>();
  return places_.cover(chunksInMemory() + 1, run_->window.mostChunks(),
                       [weak](const ChunkBudget::Place& place) {
                         const auto task = weak.lock();
                         if (task == nullptr) return;
                         task->enterFromAnswer([&] {
                           task->places_.add(place);
                           if (task->goesOn()) task->downloadChunk();
                         });
                       });
}

std::size_t NetworkTask::chunksInMemory() const {
  return run_ == nullptr ? 0 : run_->window.count() + run_->waiting.count();
}

/// What was published stays known until its place is taken: a pause may come before that.
void NetworkTask::startOver() {
  logger().logInfo(texts::kStartsOver);
  cancel(run_->window.giveUp());
  run_->known = {};
  run_->_totalBytesDownloaded = 0;
  run_->isFirstOfResumed = false;
  run_->hasStartedOver = true;
  downloadChunk();
}

void NetworkTask::send(const Request& request) {
  const RangeOrder& order = *request.order;
  const auto headers = order.prepareRequestObject(request.question);
  if (!headers) {
    const Error& error = *headers.error();
    const Dictionary userInfo{
        {std::string(platform::kErrorMessageKey), error.localizedDescription()},
        {std::string(platform::kUnderlyingError), headers.error()}};
    return failRequest(request, cause(error.code(), userInfo));
  }
  auto transfer = VRONetworkUtility::GET(
      order._url, order.queryParams, *headers, order.optionsFor(request.question),
      [self = self<NetworkTask>(), request](const std::optional<Data>& data,
                                            const Dictionary& responseInfo,
                                            const NetworkErrorPtr& error) {
        try {
          self->processNetworkResponse(request, data, responseInfo, error);
        } catch (const std::exception& exception) {
          self->failRequest(request, exception.what());
        } catch (...) {
          self->failRequest(request, kUnknown);
        }
      });
  // A pause may have come first, and so may the response.
  enterFromAnswer([this, request, transfer = std::move(transfer)] {
    RangeWindow::Range* const range = inFlight(request);
    if (range == nullptr) return cancel({transfer});
    if (!range->arrival) range->transfer = transfer;
  });
}

// Judging.

/// Reading a response may take a while, so it is not done on the queue.
void NetworkTask::processNetworkResponse(const Request& request, const std::optional<Data>& data,
                                         const Dictionary& responseInfo, const ErrorPtr& error) {
  enterFromAnswer(
      [this, request, arrival = readArrival(ID(), *request.order, data, responseInfo, error)] {
        arrived(request, arrival);
      });
}

void NetworkTask::arrived(const Request& request, RangeArrival arrival) {
  RangeWindow::Range* const range = inFlight(request);
  if (range == nullptr) {
    // Whoever goes on asks for this range anew.
    if (arrival.failure == nullptr) logger().logDebug(texts::kTaskInterrupted);
    return;
  }
  cancel(run_->window.arrived(*range, std::move(arrival)));
  while (goesOn()) {
    std::optional<RangeWindow::Range> next = run_->window.takeArrived();
    if (!next) break;
    takeUp(*std::move(next));
  }
  // Also where the range that is next is still to come: another one has left the line.
  if (goesOn()) downloadChunk();
}

void NetworkTask::takeUp(RangeWindow::Range range) {
  const RangeArrival& arrival = *range.arrival;
  // What the ranges before it have told since it was asked for counts, too.
  range.question.known = run_->known;
  if (arrival.failure == nullptr) return checkForErrors(range);
  // It might be too large only because it was asked for ahead: it is asked for alone.
  if (arrival.isTooLarge() && range.question.isAhead) return;
  if (arrival.transportError != nullptr) {
    logger().logError(texts::kRequestFailed, arrival.transportError->description());
    logger().logError(texts::kClientSide);
  }
  // The known size refused a whole object of another size that came in place of the range.
  const bool startsOver =
      arrival.isTooLarge() && run_->known.object.total != 0 && range.question.mayStartOver();
  startsOver ? startOver() : fail(arrival.failure);
}

// Publishing.

void NetworkTask::checkForErrors(const RangeWindow::Range& range) {
  using Kind = RangeVerdict::Kind;
  const NetworkAnswer& answer = range.arrival->answer;
  const RangeVerdict verdict = judge(range.question, answer.said);
  if (verdict.kind == Kind::kError) {
    Dictionary userInfo;
    if (verdict.message) {
      userInfo.set(std::string(platform::kErrorMessageKey), *verdict.message);
    }
    // The required text says little; why a store refuses a request stands in its response.
    userInfo.addEntries(range.arrival->refusal);
    const ErrorPtr failure = cause(verdict.code, std::move(userInfo));
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
      setChunkDataForBinary(answer.body, 0);
      return end();
    case Kind::kAllThere:
      return end();
    case Kind::kEnd:
      setChunk(std::make_shared<Chunk>());
      break;
    default:
      setChunkDataForBinary(answer.body, run_->_totalBytesDownloaded);
  }
  if (verdict.kind == Kind::kEnd || verdict.isComplete) {
    logger().logInfo(texts::kCompleted);
    return end();
  }
  logger().logDebug(run_->known._isAsteriskRecieved ? texts::kUnknownSizeGoesOn : texts::kGoesOn);
  const bool isFull = answer.said.size == range.question.length();
  // What was asked for behind a shorter range does not begin where that has ended.
  if (!isFull) cancel(run_->window.giveUp());
  run_->window.setOpen(isFull && run_->known._totalFileSize != 0);
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

void NetworkTask::end() {
  cancel(run_->window.giveUp());
  changeTo(RunState::kEnded);
  _outputContext.set(kTotalFileSize, run_->known._totalFileSize);
  setState(TaskState::Ended);
}

void NetworkTask::setChunkForError() { _outputContext.set(kDataChunk, std::make_shared<Chunk>()); }

void NetworkTask::fail(const ErrorPtr& error) {
  if (run_ != nullptr) cancel(run_->window.giveUp());
  changeTo(RunState::kFailed);
  setChunkForError();
  // Before the error is raised, since whoever hears of that reads the context.
  _errorContext.set(kNetworkError, error->userInfo());
  raiseError(error);
}

}  // namespace varo::binary
