#pragma once

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/NetworkAnswer.h"
#include "Binary/Binary/DownloadTask/RangeOrder.h"
#include "Binary/Binary/DownloadTask/RangeVerdict.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

class StepQueue;

/// Fetches one object in byte ranges, one request at a time, and publishes each range as a `Chunk`:
/// a context change whose output context holds it under "DataChunk", beside "TotalFileSize" (0
/// while unknown), "Validator" (the text of an `ObjectValidator`, where the server gives one) and,
/// where the server does not state the size, "isAsteriskRecieved". A chunk at offset 0 that is not
/// the first one says that what came before it is void.
///
/// A listener takes each chunk out of the notification, calls `takeChunk` and then does with it
/// what it wants; while `kMaxWaitingChunks` have not been taken, no further range is asked for, so
/// that what the network delivers faster than the disk writes stays bounded.
///
/// Input: "URL" and, optional, "ChunkSize" (bytes, else 1 MiB), "TotalBytesDownloaded" (where to
/// begin), "TotalFileSize", "Validator" (of the object whose bytes stand before that), "Headers",
/// "requestSigner" (a `RequestSigner`, whose headers are made anew for each request),
/// "spoolDirectory" (where the object will be stored), "queryParams", "ResponseType"
/// ("Binary", "Base64"), "ClientID", "SessionID", "BlobID", "settings" (`OperationSettings`); and
/// either "OnlineDownloadTask", then "URL" is the object's, or "ScopeName", "ObjectName" and
/// "primaryKeys", which name the record. The request is always a GET.
///
/// Errors have the domain "Network Task", or "NetworkTask" for failures of the transport, which
/// stand under `kUnderlyingError`; the error's user information is in the error context under
/// "NetworkError". What is thrown while an answer is dealt with is such an error too.
///
/// Asking is `downloadChunk`, judging `judge` (RangeVerdict.h), publishing `checkForErrors`. All
/// that changes belongs to one step queue: whatever happens is a step on it, which decides and
/// returns effects (a request, a cancel); these follow when the step has left the queue, and wait
/// for nobody else's.
class NetworkTask final : public platform::VSTask {
 public:
  static constexpr std::size_t kMaxWaitingChunks = 4;

  /// `steps` owns the task's state; a queue of its own where it is null.
  explicit NetworkTask(std::string name, std::shared_ptr<StepQueue> steps = nullptr);
  ~NetworkTask() override;

  void execute() override;

  /// Asks for no further range and cancels the one that is in flight, which whoever goes on asks
  /// for anew.
  void pauseDownload();
  /// Goes on from the input's "TotalBytesDownloaded", or without that from where it was paused. The
  /// task must be Started.
  void resumeDownload();
  /// As `pauseDownload`, and chunks that were not taken never are. The task may be started again.
  void stop();

  /// Takes a chunk that was published. False for one of an earlier run, which is to be dropped: the
  /// present one fetches its bytes itself.
  [[nodiscard]] bool takeChunk(const std::shared_ptr<Chunk>& chunk);
  /// Whether the end or pause that was notified with this output context is that of the latest run.
  /// False for one of an earlier run or of one that was stopped, which is to be dropped.
  [[nodiscard]] bool isOfLatestRun(const platform::Dictionary& outputContext) const;

 private:
  enum class RunState : std::uint8_t {
    kNotBegun,
    kAsking,        // a range is in flight
    kWaitsForRoom,  // until a chunk is taken
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
    platform::VRONetworkUtility::TransferPtr cancel;  // null for none
    std::optional<Request> send;
  };
  using Step = std::function<Effects()>;

  [[nodiscard]] bool isTaskInterrupted() const;
  void begin(bool isResumed);
  /// An error of this task.
  [[nodiscard]] platform::ErrorPtr cause(std::int64_t code, platform::Dictionary userInfo) const;
  [[nodiscard]] platform::ErrorPtr cause(std::int64_t code, std::string_view message) const;

  // Run a step when its turn comes, and then its effects. What either throws ends the run with an
  // error. The second one leaves the effects to the pool: a transport that answers from inside
  // `send` makes no recursion of a row of ranges.
  void enter(const Step& step);
  void enterFromAnswer(const Step& step);
  /// The step alone.
  [[nodiscard]] Effects make(const Step& step);
  void perform(const Effects& effects);
  /// The same on a thread of the pool.
  void performLater(const Effects& effects);

  // Effects, and what answers are read with: not on the queue.
  void send(const Request& request);
  void processNetworkResponse(const Request& request, const std::optional<platform::Data>& data,
                              const platform::Dictionary& responseInfo,
                              const platform::ErrorPtr& error);
  [[nodiscard]] platform::ErrorPtr causeOf(const Request& request, const RangeVerdict& verdict,
                                           const NetworkAnswer& answer) const;
  void failLater(const Request& request, std::string_view what);

  // Parts of steps: on the queue.
  [[nodiscard]] Effects guardedStep(const Step& step);
  [[nodiscard]] Effects beginRun(const RangeOrder::Ptr& order, bool isResumed);
  [[nodiscard]] Effects downloadChunk();
  [[nodiscard]] Effects startOver();
  [[nodiscard]] Effects checkForErrors(const RangeVerdict& verdict, const platform::Data& body,
                                       const platform::ErrorPtr& failure);
  void setChunkDataForBinary(const platform::Data& data, std::int64_t offset);
  void setChunk(const std::shared_ptr<Chunk>& chunk);
  [[nodiscard]] Effects end();
  [[nodiscard]] Effects fail(const platform::ErrorPtr& error);
  /// In place of what a failed answer did not bring: a chunk without bytes.
  void setChunkForError();
  [[nodiscard]] bool isCurrent(const Request& request) const;
  [[nodiscard]] bool goesOn() const noexcept;
  void changeTo(RunState state);

  const std::shared_ptr<StepQueue> steps_;

  // Owned by `steps_`.
  RunState runState_ = RunState::kNotBegun;
  std::int64_t runs_ = 0;
  /// The latest; none before the first and after `stop`.
  std::unique_ptr<Run> run_;
  /// As the chunks that were published have it: what a resumed run goes on with.
  RangeKnowledge known_;
  std::int64_t _totalBytesDownloaded = 0;
};

}  // namespace varo::binary
