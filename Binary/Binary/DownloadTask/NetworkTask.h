#pragma once

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Fetches one object in byte ranges, one request at a time, and publishes each range as a `Chunk`:
/// a context change whose output context holds it under "DataChunk", beside "TotalFileSize" (0
/// while unknown) and, where the server does not state the size, "isAsteriskRecieved".
///
/// A listener takes each chunk out of the notification, calls `takeChunk` and then does with it
/// what it wants; while `kMaxWaitingChunks` have not been taken, no further range is asked for, so
/// that what the network delivers faster than the disk writes stays bounded.
///
/// Input: "URL" and, optional, "ChunkSize" (bytes, else 1 MiB), "TotalBytesDownloaded" (where to
/// begin), "TotalFileSize", "Headers", "queryParams", "ResponseType" ("Binary", "Base64"),
/// "ClientID", "SessionID", "BlobID"; and either "OnlineDownloadTask", then "URL" is the object's,
/// or "ScopeName", "ObjectName" and "primaryKeys", which name the record. The request is always a
/// GET. Errors have the domain "Network Task", or "NetworkTask" for failures of the transport; the
/// error's user information is in the error context under "NetworkError".
///
/// What a range brings is checked before it is handed on: it starts where it was asked to start, is
/// as long as it says, and size and strong ETag are those of the ranges before.
class NetworkTask final : public platform::VSTask {
 public:
  static constexpr std::size_t kMaxWaitingChunks = 4;
  /// Ranges of an object whose size the server does not state; more than these have no end.
  static constexpr std::int64_t kMaxRangesOfUnknownSize = 65'536;

  explicit NetworkTask(std::string name);
  ~NetworkTask() override;

  void execute() override;

  /// Asks for no further range; one that is in flight is asked for again by whoever goes on.
  void pauseDownload();
  /// Goes on from the input's "TotalBytesDownloaded". The task must be Started.
  void resumeDownload();
  /// As `pauseDownload`, for good: chunks that were not taken never are.
  void stop();

  /// Takes a chunk that was published. False for one of an earlier run, which is to be dropped: the
  /// present one fetches its bytes itself.
  [[nodiscard]] bool takeChunk(const std::shared_ptr<Chunk>& chunk);
  /// Whether the end or pause that was notified with this output context is that of the latest run.
  /// False for one of an earlier run or of one that was stopped, which is to be dropped.
  [[nodiscard]] bool isOfLatestRun(const platform::Dictionary& outputContext) const;

 private:
  /// What one run, from a start or resume to its pause or end, knows and does. Only the step that
  /// is under way touches it, and a run has one step at a time; `waiting` and `waitsForRoom` are
  /// guarded by the task's `runMutex_`.
  struct Run;
  using RunPtr = std::shared_ptr<Run>;
  /// What is known of the object from the ranges so far. Whoever goes on after a pause knows it
  /// too.
  struct Identity {
    std::int64_t _totalFileSize = 0;   // bytes; 0 while unknown
    bool _isAsteriskRecieved = false;  // the server does not state the size
    std::int64_t lateFileSize = 0;     // bytes; the size where it was stated after that, else 0
    std::string strongTag;             // empty while unknown
    std::int64_t rangesOfUnknownSize = 0;
    std::int64_t bytesPublished = 0;  // from the first byte on
  };

  void begin(const Identity& known);
  [[nodiscard]] bool isTaskInterrupted() const;
  [[nodiscard]] bool isCurrent(const RunPtr& run) const;
  [[nodiscard]] bool validateInput() const;
  [[nodiscard]] RunPtr unpackInputContext(const Identity& known) const;
  [[nodiscard]] static std::string buildURL(const platform::Dictionary& input);

  void downloadChunk(const RunPtr& run);
  void prepareRequestObject(Run& run) const;
  void setHeaders(Run& run) const;
  void setRangeHeader(Run& run) const;
  void processAnswer(const RunPtr& run, const std::optional<platform::Data>& data,
                     const platform::Dictionary& responseInfo, const platform::ErrorPtr& error);
  void processNetworkResponse(Run& run, const platform::HttpResponseInfo& response,
                              const platform::Data& data) const;
  void processWholeObject(Run& run, const platform::HttpResponseInfo& response,
                          std::string_view contentType, const platform::Data& data) const;
  void checkWholeObject(Run& run) const;
  void processRange(Run& run, const platform::HttpResponseInfo& response,
                    const platform::Data& data) const;
  [[nodiscard]] static bool processUnsatisfiableRange(Run& run,
                                                      const platform::HttpResponseInfo& response);
  [[nodiscard]] static bool isEndOfUnknownSize(const Run& run, std::string_view contentRange);
  [[nodiscard]] static bool isSameObject(Run& run, const platform::HttpResponseInfo& response,
                                         std::optional<std::int64_t> total);
  static void populateFileSizeFromResponse(Run& run, std::optional<std::int64_t> total);
  [[nodiscard]] bool isErrorResponse(const std::string& json) const;
  [[nodiscard]] static std::optional<std::string> parseErrorResponse(const std::string& json);
  void setCause(Run& run, std::int64_t code, std::optional<std::string_view> message) const;
  void setCause(Run& run, std::int64_t code, platform::Dictionary userInfo) const;
  void setCauseOfStatus(Run& run, int status, const platform::Data& body) const;

  void checkForErrors(const RunPtr& run);
  void endWithWholeObject(const RunPtr& run);
  /// The chunk of what the answer brought, which is counted; the end marker where it brought none.
  [[nodiscard]] static std::shared_ptr<Chunk> prepareChunkObjectWithData(Run& run);
  static void updateDownloadedBytes(Run& run, std::uint64_t length);
  /// Puts the bytes that the answer holds in its place; none where it holds none.
  static void setChunkDataForBase64(Run& run);

  /// These do nothing, the first with false, when the run is not the task's any more.
  [[nodiscard]] bool publish(const RunPtr& run, const std::shared_ptr<Chunk>& chunk);
  [[nodiscard]] bool hasRoom(const RunPtr& run);
  void end(const RunPtr& run);
  void fail(const RunPtr& run, const platform::ErrorPtr& error);
  /// In place of what a failed answer did not bring: a chunk without bytes.
  void setChunkForError();

  mutable platform::Mutex runMutex_;
  /// The latest run; none before the first and after `stop`.
  RunPtr run_ VARO_GUARDED_BY(runMutex_);
  /// Whether it goes on: from its start until its pause or end.
  bool going_ VARO_GUARDED_BY(runMutex_) = false;
  std::int64_t runs_ VARO_GUARDED_BY(runMutex_) = 0;
  Identity identity_ VARO_GUARDED_BY(runMutex_);
};

}  // namespace varo::binary
