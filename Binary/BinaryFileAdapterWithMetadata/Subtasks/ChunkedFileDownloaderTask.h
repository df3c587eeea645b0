#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"
#include "Platform/Foundation/Data.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace varo::binary {

/// The second step of a download: fetches the bytes of the one record that was found, in one GET,
/// into the downloads directory. Nothing is fetched where a file of that name is there already;
/// under `TransferPolicy::kSafe` it must also have the record's "file_size", where that is known.
/// Raises its errors without reporting them: who started the download does.
///
/// Input: "queryParamsForDownload" (with "file_id"), "callback", "records", "url", and, optional,
/// "headers" and "options" ("forceDownload" fetches in any case). Output: "file_name", "filePath".
/// The stored file appears under its name complete or not at all; under `TransferPolicy::kSafe` it
/// is on the disk before the task ends.
class ChunkedFileDownloaderTask final : public BinaryBaseTask {
 public:
  ChunkedFileDownloaderTask() = default;

  /// Fixes URL, headers, options, settings and callback to those of `operation`, whatever entries
  /// of these names the input gets from elsewhere. Call it before the task is started.
  void setCallersEntries(platform::Dictionary operation) { callersEntries_ = std::move(operation); }

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  /// Sets `error` for no record, several records, a file name that is no text or leaves the
  /// directory, or an address that leads to another server than it should.
  void unpackInputContextWithError(platform::ErrorPtr* error);
  [[nodiscard]] platform::ErrorPtr unpackTemplate(const platform::Dictionary& input,
                                                  const platform::Dictionary& record);
  [[nodiscard]] bool shouldDownloadFile() const;
  /// The downloads directory, or a folder in it, which is made where it is not there.
  [[nodiscard]] static std::string getDirectoryPath(const std::string& subPath);
  [[nodiscard]] std::string getFilePath() const;
  /// Stores the bytes and returns the path, also where storing failed; then `error` is set.
  std::string saveFileWithBytes(const platform::Data& bytes, platform::ErrorPtr* error) const;
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);
  void endWithFileAt(const std::string& path);

  /// Constant while the task runs.
  std::optional<platform::Dictionary> callersEntries_;
  // Owned by the run of the task.
  platform::Value _fileId;
  std::string _fileName;
  /// Bytes; none where the record does not say.
  std::optional<std::int64_t> _fileSize;
  platform::Dictionary _queryParams;
};

}  // namespace varo::binary
