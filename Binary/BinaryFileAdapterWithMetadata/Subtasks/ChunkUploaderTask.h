#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace varo::binary {

/// Sends one chunk of a file's bytes, as a multipart part or a raw body, and reports progress. The
/// loop runs the same task once a chunk; each run reads its input anew.
///
/// The first run opens the file, or decodes the bytes, for all chunks. A file that is replaced or
/// grows meanwhile is uploaded as it was; one that shrinks is a transport error. Chunks are regions
/// of the file, so nothing is loaded.
class ChunkUploaderTask final : public BinaryBaseTask {
 public:
  explicit ChunkUploaderTask(platform::ErrorPtr* error = nullptr);

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  /// What one request carries. A PUT sends the raw body and a POST the multipart body, so a mode
  /// that does not go with the template's method sends no bytes.
  struct ChunkRequest {
    platform::Dictionary headers;
    platform::RequestType type = platform::RequestType::kRaw;
    platform::Value rawBody;
    platform::Dictionary multipartBody;
    /// An outside store may append what it gets.
    platform::Repeat repeat = platform::Repeat::kUnlessReceived;
  };

  void initializeIVars();
  /// False, with `error` set, when there is nothing that could be sent.
  bool unpackInputContext(platform::ErrorPtr* error);
  bool unpackChunkSize(const platform::Dictionary& input, platform::ErrorPtr* error);
  bool unpackContent(bool isFirstChunk, platform::ErrorPtr* error);
  void passFileIdToCommit(const platform::Dictionary& input);
  void takeChunkOfFile(bool inChunks);
  void takeChunkOfRawBytes(bool inChunks);
  void generateQueryParamsForCurrentChunk();
  [[nodiscard]] ChunkRequest makeRequest(const platform::Dictionary& input);
  /// Adds the chunk's bytes as the template's "uploadMode" asks for; nothing under an unknown mode.
  void addContent(ChunkRequest& request, std::string_view uploadMode) const;
  void addMultipartContent(ChunkRequest& request) const;
  void addRawContent(ChunkRequest& request) const;
  void send(const ChunkRequest& request, const std::string& method);
  void processNetworkResponse(const platform::Dictionary& response,
                              const platform::NetworkErrorPtr& error);
  void reportProgress();

  // Of one run.
  platform::Data _dataBytes;
  bool _isLastChunk = false;
  std::string _fileId;
  /// From 1.
  std::int64_t _chunkId = 0;
  /// Bytes.
  std::int64_t _chunkSize = kDefaultChunkSize;
  /// Of this chunk; after unpacking, of the next.
  std::int64_t _byteOffset = 0;
  std::int64_t _totalFileSize = 0;
  std::int64_t _bytesUploadedTillNow = 0;
  platform::Dictionary _fileMap;
  platform::Dictionary _metadata;
  platform::Dictionary _queryParams;

  /// All the bytes, from the first run to the last.
  platform::Data content_;
};

}  // namespace varo::binary
