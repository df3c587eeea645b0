#pragma once

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/DownloadFile.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace varo::binary {

class NetworkTask;

/// Listens to a `NetworkTask` and writes its chunks to the object's file, or hands them to the
/// caller's block.
///
/// Ends when the file has the object's size, or when the network task has paused, ended or failed
/// and all that it delivered is written; the file's bytes are on the disk then. When that happens a
/// second time, it raises a context change, so that who listens looks again.
///
/// Input: "BlobID"; "Streaming", with an `OnStreamDownloadCompleted` under
/// "onStreamDownloadCompleted"; else optionally an `OnChunkDownloadCompleted` under
/// "onChunkDownloadCompleted"; "FileParams" for both; "OnlineDownloadTask". Output: "BlobID",
/// "FilePath", "TotalFileSize" where it is known. The file is "blobs/BLOBID" in the documents
/// directory, or "downloads/SECONDS_BLOBID" for an online download, where an id with slashes stands
/// in percent-encoding ("/" and "%"). Errors: the user information is in the error context, under
/// "PersistenceError" where the file system is the reason, with "path".
///
/// The chunks and endings of all downloads are handled one at a time on the queue "chunkQueue".
class DataPersistenceTask final : public platform::VSTask {
 public:
  explicit DataPersistenceTask(std::string name);

  void execute() override;

  /// Writes no further byte and releases the file.
  void stop();
  /// Lets other downloads write the file. For a task that is at its end.
  void releaseFile();

  /// Hears of the network task.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

 private:
  /// The folder of downloads in the documents directory, which is made where it is not there.
  [[nodiscard]] static std::string getDirectoryPath(const std::string& folder);
  [[nodiscard]] std::string computeFilePath() const;
  [[nodiscard]] std::string getFilePath();
  [[nodiscard]] std::string getBlobID() const;
  [[nodiscard]] bool validateInput() const;

  void beginRun();
  void checkForStreamingAndCallbacks();
  /// Whether the file's path is the same at every call of `getFilePath`.
  [[nodiscard]] bool hasStablePath() const;

  void addChunkToQueue(const std::shared_ptr<NetworkTask>& network,
                       const platform::Dictionary& context);
  void setEmptyChunk(const std::shared_ptr<NetworkTask>& network, platform::TaskState to,
                     const platform::Dictionary& context);
  [[nodiscard]] bool isWriting() const;
  void noteContext(const platform::Dictionary& context);
  void setTotalFileSize(const platform::Dictionary& context);
  void setIsReceivedChunkNil(const std::shared_ptr<Chunk>& chunk);
  void processEndMarker(platform::TaskState to, bool isAnotherObject);
  void processChunk(const std::shared_ptr<Chunk>& chunk);
  void streamChunk(const std::shared_ptr<Chunk>& chunk);
  void writeData(const std::shared_ptr<Chunk>& chunk);
  // These two are false when the task has failed.
  [[nodiscard]] bool createFile(const std::string& path);
  [[nodiscard]] bool writeChunk(const Chunk& chunk, const std::string& toFile);
  void updateTotalSizeWritten(std::uint64_t size);
  void checkIfTaskCompleted();
  void checkIfTaskOfUnknownSizeCompleted();
  [[nodiscard]] bool hasEarlierBytes();
  void end();
  void setOutputContext();
  void failWithFile(std::string_view message, const platform::ErrorPtr& cause,
                    const std::string& path);
  void failWithEmptyBody();
  void takeEndBack();

  /// What is queued still does nothing, so that it does not lock the file again.
  std::atomic<bool> isReleased_{false};

  // All of these are used on "chunkQueue" only.
  std::int64_t _totalFileSize = 0;       // bytes; 0 while unknown
  std::int64_t _totalSizeWritten = 0;    // bytes in the file, or handed to the block
  std::int64_t _totalBytesReceived = 0;  // of all chunks
  std::int64_t streamPosition_ = 0;      // of the next byte for the block
  DownloadFile _fileHandle;
  std::string filePath_;  // where it is computed once
  bool _streaming = false;
  bool _isNetworkTaskPaused = false;
  bool _isAsteriskRecieved = false;
  bool _isReceivedChunkNil = false;
  bool _isNetworkTaskEnded = false;
  bool isNetworkTaskErrored_ = false;
  /// All of the object has arrived. In the unknown-length mode before the network task's end.
  bool isObjectComplete_ = false;
  std::shared_ptr<OnChunkDownloadCompleted> _onChunkDownloadCompletedCompletionBlock;
  std::shared_ptr<OnStreamDownloadCompleted> _onStreamDownloadCompletedCompletionBlock;
};

}  // namespace varo::binary
