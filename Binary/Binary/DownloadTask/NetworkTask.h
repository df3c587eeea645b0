#pragma once

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/ChunkBudget.h"
#include "Binary/Binary/DownloadTask/NetworkAnswer.h"
#include "Binary/Binary/DownloadTask/RangeOrder.h"
#include "Binary/Binary/DownloadTask/RangeVerdict.h"
#include "Binary/Binary/DownloadTask/RangeWindow.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::binary {

class StepQueue;

/// Fetches one object in byte ranges, a GET each, and publishes them in order, each as a `Chunk`.
/// One GET at a time, or as many as pay, up to `OperationSettings::parallelRanges`.
///
/// To publish is to raise a context change with this output context:
/// - "DataChunk": the chunk. One at offset 0 that is not the first makes all earlier ones void.
/// - "TotalFileSize": bytes of the object; 0 while unknown.
/// - "Validator": the text of an `ObjectValidator`, if the server gives one.
/// - "isAsteriskRecieved": if the server does not state the size.
///
/// A listener gets each chunk from the notification and calls `takeChunk`. While too many have not
/// been taken (`RangeWindow::hasRoom`), or other downloads use the memory (`ChunkBudget`), no
/// further range is requested: the network must not deliver faster than the disk writes.
///
/// Input; all but "URL" and the names of the record are optional:
/// - "URL": that of the object with "OnlineDownloadTask"; else that of the service, where
///   "ScopeName", "ObjectName" and "primaryKeys" name the record.
/// - "TotalBytesDownloaded": where to begin.
/// - "TotalFileSize", "Validator": of the object that the bytes before that belong to.
/// - "ChunkSize": bytes of a range, else 1 MiB.
/// - "Headers", "queryParams", "ClientID", "SessionID", "BlobID".
/// - "ResponseType": "Binary" or "Base64".
/// - "requestSigner": a `RequestSigner`, which makes new headers for each request.
/// - "spoolDirectory": the folder in which the object will be stored.
/// - "settings": an `OperationSettings`.
///
/// Errors have the domain "Network Task", or "NetworkTask" for failures of the transport, which
/// are under `kUnderlyingError`. The error's user information is in the error context under
/// "NetworkError". What is thrown while a response is handled becomes such an error too.
///
/// `downloadChunk` requests ranges, `judge` (RangeVerdict.h) decides about each response when those
/// of all bytes before are published, and `checkForErrors` publishes. All state belongs to one step
/// queue: what a step decides on (requests, cancels) follows after it has left the queue.
class NetworkTask final : public platform::VSTask {
 public:
  /// `steps` owns the task's state; a queue of its own where it is null. `clock`, which measures
  /// what more ranges bring, outlives the task.
  explicit NetworkTask(std::string name, std::shared_ptr<StepQueue> steps = nullptr,
                       const platform::Clock& clock = platform::Clock::system());
  ~NetworkTask() override;

  void execute() override;

  /// Requests no further range and cancels those in flight. A resume requests them again, and those
  /// that came early.
  void pauseDownload();
  /// Resumes at the input's "TotalBytesDownloaded" or, without that, where it was paused. The task
  /// must be Started.
  void resumeDownload();
  /// As `pauseDownload`, and drops the chunks that were not taken. The task may be started again.
  void stop();

  /// Takes a chunk that was published. False for a chunk of an earlier run: drop it, the present
  /// run fetches its bytes again.
  [[nodiscard]] bool takeChunk(const std::shared_ptr<Chunk>& chunk);
  /// Whether this output context tells of the end or pause of the latest run. False for a run
  /// before it, or one that was stopped: ignore the notification.
  [[nodiscard]] bool isOfLatestRun(const platform::Dictionary& outputContext) const;

 private:
  enum class RunState : std::uint8_t {
    kNotBegun,
    kGoesOn,  // ranges are in flight, or wait until a chunk is taken
    kPaused,
    kEnded,
    kFailed,
    kStopped,
  };
  /// A run, from a start or resume to its pause or end.
  struct Run;
  /// One range that is asked for.
  struct Request {
    std::int64_t run = 0;     // of the task's runs, from 1
    std::int64_t number = 0;  // of the run's requests, from 1
    RangeOrder::Ptr order;
    RangeQuestion question;
  };
  /// What follows when a step has left the queue, in this order.
  struct Effects {
    RangeWindow::Transfers cancel;
    std::vector<Request> send;
    /// Given back when these go.
    std::list<ChunkBudget::Place> freed;
  };
  using Step = std::function<void()>;

  [[nodiscard]] bool isTaskInterrupted() const;
  void begin(bool isResumed);
  /// An error of this task.
  [[nodiscard]] platform::ErrorPtr cause(std::int64_t code, platform::Dictionary userInfo) const;
  [[nodiscard]] platform::ErrorPtr cause(std::int64_t code, std::string_view message) const;

  // Run a step when its turn comes, and then its effects. What either throws ends the run with an
  // error. The second one is for responses, which nobody waits for: it throws nothing. It is no
  // recursion over a row of ranges, since what a transport ends from inside `send` goes to the
  // pool.
  void enter(const Step& step);
  void enterFromAnswer(const Step& step);
  /// The step alone.
  [[nodiscard]] Effects make(const Step& step);
  void perform(const Effects& effects);
  /// The same on a thread of the pool.
  void performLater(const Effects& effects);

  // Effects, and what responses are read with: not on the queue.
  void send(const Request& request);
  void processNetworkResponse(const Request& request, const std::optional<platform::Data>& data,
                              const platform::Dictionary& responseInfo,
                              const platform::ErrorPtr& error);
  void failRequest(const Request& request, std::string_view what);
  void failRequest(const Request& request, const platform::ErrorPtr& failure);

  // Parts of steps: on the queue.
  void guardedStep(const Step& step);
  void beginRun(const RangeOrder::Ptr& order, bool isResumed);
  void downloadChunk();
  /// Whether one chunk more may be in memory; else asks for its place, and goes on later.
  [[nodiscard]] bool hasPlaceForOneMore();
  /// Chunks that are asked for, early, or not taken yet.
  [[nodiscard]] std::size_t chunksInMemory() const;
  void startOver();
  void arrived(const Request& request, RangeArrival arrival);
  /// The range that is next has arrived.
  void takeUp(RangeWindow::Range range);
  void checkForErrors(const RangeWindow::Range& range);
  void setChunkDataForBinary(const platform::Data& data, std::int64_t offset);
  void setChunk(const std::shared_ptr<Chunk>& chunk);
  void end();
  void fail(const platform::ErrorPtr& error);
  /// In place of what a failed response did not bring: a chunk without bytes.
  void setChunkForError();
  void cancel(const RangeWindow::Transfers& transfers);
  /// The range that this request is for; null if nobody waits for it any more.
  [[nodiscard]] RangeWindow::Range* inFlight(const Request& request) const;
  [[nodiscard]] bool goesOn() const noexcept { return runState_ == RunState::kGoesOn; }
  void changeTo(RunState state);

  const std::shared_ptr<StepQueue> steps_;

  const platform::Clock& clock_;

  // Owned by `steps_`.
  RunState runState_ = RunState::kNotBegun;
  std::int64_t runs_ = 0;
  /// The latest; none before the first and after `stop`.
  std::unique_ptr<Run> run_;
  /// As told by the chunks that were published: what a resumed run begins with.
  RangeKnowledge known_;
  std::int64_t _totalBytesDownloaded = 0;
  ChunkPlaces places_;
  /// Of the step that runs, so far.
  Effects due_;
};

}  // namespace varo::binary
