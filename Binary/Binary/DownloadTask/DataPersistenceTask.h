#pragma once

#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/DownloadFile.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace varo::binary {

class NetworkTask;

/// Listens to a `NetworkTask` and writes its chunks to the object's file, or hands them to the
/// caller's block.
///
/// Ends, with the file's bytes on the disk, as soon as one of these holds:
/// - the file has the object's size;
/// - the network task has paused, ended or failed, and all that it delivered is written.
/// When that happens a second time, it raises a context change, so that whoever listens looks
/// again.
///
/// The file:
/// - with a `FileClaim` in the input, the claimed one; the claim records which object its bytes
///   belong to;
/// - without a claim "blobs/BLOBID" in the documents directory or, for an online download,
///   "downloads/SECONDS_BLOBID", where "/" and "%" of an id with slashes are percent-encoded.
///
/// Input:
/// - "BlobID", "OnlineDownloadTask";
/// - "Streaming", with an `OnStreamDownloadCompleted` under "onStreamDownloadCompleted";
/// - without "Streaming" optionally an `OnChunkDownloadCompleted` under "onChunkDownloadCompleted";
/// - "FileParams" for both.
///
/// Output: "BlobID", "FilePath", "TotalFileSize" where it is known. Errors: the user information is
/// in the error context, under "PersistenceError" where the file system is the reason, with "path".
///
/// The chunks and endings of all downloads are handled one at a time on the queue "chunkQueue".
class DataPersistenceTask final : public platform::VSTask {
 public:
  explicit DataPersistenceTask(std::string name);

  void execute() override;

  /// Resumes after a pause with another input, which holds the claim.
  void resumeDownload(platform::Dictionary input);
  /// Writes no further byte and releases the file.
  void stop();
  /// Lets other downloads write the file, behind the chunk that is being written, when `lease`
  /// goes, too, which may be null. For a task at rest.
  void releaseFile(std::shared_ptr<FileClaim> lease);

  /// Hears of the network task.
  void task(const std::shared_ptr<platform::VSTask>& task, platform::TaskState from,
            platform::TaskState to, const platform::Dictionary& context) override;

 private:
  /// What the network task has come to, as far as the queue has processed its notifications. Once
  /// the file is released, what is still queued does nothing until the next run: it would lock the
  /// file again.
  enum class Phase { kReceiving, kNetworkPaused, kNetworkEnded, kNetworkErrored, kReleased };

  [[nodiscard]] std::string computeFilePath() const;
  [[nodiscard]] std::string getFilePath();
  [[nodiscard]] std::string getBlobID() const;
  [[nodiscard]] bool validateInput() const;

  void beginRun();
  void checkForStreamingAndCallbacks();
  /// Whether the file's path is the same at every call of `getFilePath`.
  [[nodiscard]] bool hasStablePath() const;

  void networkChanged(const std::shared_ptr<NetworkTask>& network, platform::TaskState from,
                      platform::TaskState to, const platform::Dictionary& context);
  void addChunkToQueue(const std::shared_ptr<NetworkTask>& network,
                       const platform::Dictionary& context);
  void setEmptyChunk(const std::shared_ptr<NetworkTask>& network, platform::TaskState to,
                     const platform::Dictionary& context);
  [[nodiscard]] bool isWriting() const;
  void noteContext(const platform::Dictionary& context);
  void setTotalFileSize(const platform::Dictionary& context);
  void processChunk(const std::shared_ptr<Chunk>& chunk, const std::string& validator);
  void processEndMarker(platform::TaskState to, bool isAnotherObject);
  void streamChunk(const std::shared_ptr<Chunk>& chunk);
  void writeData(const std::shared_ptr<Chunk>& chunk, const std::string& validator);
  // These are false when the task has failed.
  [[nodiscard]] bool checkSizeOfFile();
  [[nodiscard]] bool createFile(const std::string& path);
  [[nodiscard]] bool noteValidator(const Chunk& chunk, const std::string& validator,
                                   const std::string& path);
  [[nodiscard]] bool writeChunk(const Chunk& chunk, const std::string& toFile);
  void updateTotalSizeWritten(std::uint64_t size);
  /// With the end marker: whether the chunk just processed carried no data.
  void checkIfTaskCompleted(bool isReceivedChunkNil);
  void checkIfTaskOfUnknownSizeCompleted(bool isReceivedChunkNil);
  [[nodiscard]] bool hasEarlierBytes();
  /// Ends once the file is on the disk. It is synchronised outside of the queue, so that the files
  /// of several downloads are at the same time.
  void end();
  void syncThenEnd();
  void synced(std::uint64_t run, const DownloadFile::Unsynced& file,
              const platform::Result<void>& done);
  void failToSync(const platform::ErrorPtr& cause);
  void tellEnds();
  void release();
  void setOutputContext();
  void failWithFile(std::string_view message, const platform::ErrorPtr& cause,
                    const std::string& path);
  void fail(const platform::Dictionary& userInfo);
  void failWithEmptyBody();
  void takeEndBack();
  void releaseUnclaimedFile();

  // All of these are used on "chunkQueue" only.
  Phase phase_ = Phase::kReleased;
  bool isSafe_ = false;                  // the policy of the operation
  bool _streaming = false;               // the mode of the run
  bool _isAsteriskRecieved = false;      // the server does not state the size
  std::int64_t _totalFileSize = 0;       // bytes; 0 while unknown
  std::int64_t _totalSizeWritten = 0;    // bytes in the file, or handed to the block
  std::int64_t _totalBytesReceived = 0;  // of all chunks
  std::int64_t streamPosition_ = 0;      // of the next byte for the block
  DownloadFile _fileHandle;
  std::uint64_t runs_ = 0;  // also counts releases: a synchronisation of before ends nothing
  bool isSyncing_ = false;
  int endsDue_ = 0;       // ends that wait for it
  std::string filePath_;  // where it is computed once
  std::shared_ptr<OnChunkDownloadCompleted> _onChunkDownloadCompletedCompletionBlock;
  std::shared_ptr<OnStreamDownloadCompleted> _onStreamDownloadCompletedCompletionBlock;
};

}  // namespace varo::binary
