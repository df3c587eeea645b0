#pragma once

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>

namespace varo::binary {

/// What the application asks of one online download. Each block may be empty.
struct OnlineDownload {
  platform::Dictionary fileParams;
  bool streaming = false;
  platform::Dictionary configuration;
  std::optional<platform::Dictionary> options;
  OperationSettings::Ptr settings;
  OnFileDownloadStarted::Function onFileDownloadStarted;
  OnChunkDownloadCompleted::Function onChunkDownloadCompleted;
  OnStreamDownloadCompleted::Function onStreamDownloadCompleted;
  OnFileDownloadCompleted::Function onFileDownloadCompleted;
  OnDownloadFailure::Function onDownloadFailure;
};

/// "fileId" of the file parameters, else "_" and the whole seconds since 1970-01-01 UTC.
[[nodiscard]] std::string onlineDownloadIdentifier(const OnlineDownload& download,
                                                   const platform::Clock& clock);

/// The input of the task that makes the download. Errors: domain "Template Parsing Error", 10003,
/// for a URL or a signed configuration that cannot be filled; those of `S3HMACGenerator`.
[[nodiscard]] platform::Result<platform::Dictionary> onlineDownloadInput(
    const OnlineDownload& download, const std::string& identifier, const platform::Clock& clock);

}  // namespace varo::binary
