#include "Binary/Binary/BinaryDataManager/DownloadRows.h"

#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;

namespace {

constexpr char kErrorMessage[] = "Error message";

constexpr std::string_view kCheckingFile = "Inside check if File Available..";
constexpr std::string_view kEndedWithoutRow =
    "Task in end state but couldn't retrieve the file path.";
constexpr std::string_view kStateOfRecord = "State of the record : %@";
constexpr std::string_view kAlreadyAvailable = "File IS already available, no need to download.";
constexpr std::string_view kFilePathRetrieved = "File path retrieved : %@";
constexpr std::string_view kCallingStartBlock = "Calling the start download completion handler..";
constexpr std::string_view kEndedWithoutFile =
    "Task is in end state but the file is not available.";

constexpr std::string_view kNoRowForMetaData =
    "setMetaDataForTask : No such row exists for task %@";
constexpr std::string_view kMetaDataPath = "FilePath retrieved : %@";
constexpr std::string_view kFileSizeUpdated = "File size updated to %lld for task %@";
constexpr std::string_view kMetaDataInput = "Input context for blob id %@ : %@";
constexpr std::string_view kNoMetaDataPath =
    "No File path retrieved, setting totalBytesDownloaded to zero.";

constexpr std::string_view kCompletionUpdated =
    "Filepath and state of download updated in varosyncBLOBSTOREMANAGER for blobID : %@";
constexpr std::string_view kStateUpdated =
    "State of download updated to %d in varosyncBLOBSTOREMANAGER for blobID : %@";
constexpr std::string_view kStateNotUpdated =
    "State of download couldn't be updated %d in varosyncBLOBSTOREMANAGER for blobID : %@";
constexpr std::string_view kFileNotNoted =
    "Filepath of download couldn't be updated in varosyncBLOBSTOREMANAGER for blobID : %@";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

BlobStoreTable tableOf(const Dictionary& input) {
  return {input[kDBName].textValue(), OperationSettings::of(input)->policy};
}

ErrorPtr fileError(std::int32_t code, std::string_view message) {
  return std::make_shared<const platform::Error>(std::string(kDownloadTaskErrorDomain), code,
                                                 Dictionary{{kErrorMessage, message}});
}

/// Changes the row in the state in which it was read, so that a deletion that is recorded between
/// the two statements stands.
platform::Result<void> updateUnlessDeleted(const BlobStoreTable& table, const std::string& blobId,
                                           const Dictionary& values) {
  const auto row = table.row(blobId);
  if (!row) return table.update(blobId, values);
  const platform::Value& state = (*row)[blobs::kState];
  if (state == platform::Value(blobs::kNull)) return table.update(blobId, values);
  const std::int64_t number = state.integerValue();
  if (number != kDeleteAccepted && number != kDeleteInProgress) {
    return table.updateInState(blobId, state, values);
  }
  // The sync engine is to find the file that has come since.
  const platform::Value& path = values[blobs::kLocalPath];
  if (path.isMissing() || !(*row)[blobs::kLocalPath].textValue().empty()) return {};
  return table.update(blobId, {{blobs::kLocalPath, path}});
}

platform::Result<void> update(const DownloadTask& task, const Dictionary& values) {
  const Dictionary input = task.inputContext();
  const BlobStoreTable table = tableOf(input);
  if (!OperationSettings::of(input)->isSafe()) return table.update(task.name(), values);
  return updateUnlessDeleted(table, task.name(), values);
}

}  // namespace

std::optional<Dictionary> DownloadRows::checkIfFileAvailableForTask(const DownloadTask& task,
                                                                    ErrorPtr* withError) {
  logger().logTrace(kCheckingFile);
  const auto row = tableOf(task.inputContext()).row(task.name());
  if (!row) {
    logger().logDebug(kEndedWithoutRow);
    *withError = fileError(kCodeBlobRowNotFound, kRowBlobId);
    return std::nullopt;
  }
  const std::string state = (*row)[blobs::kState].textValue();
  logger().logDebug(kStateOfRecord, state);
  if (state != std::to_string(kFileAvailable)) {
    logger().logDebug(kEndedWithoutFile);
    *withError = fileError(kCodeBlobFileNotAvailable, kFilePathNotPresent);
    return std::nullopt;
  }
  logger().logDebug(kAlreadyAvailable);
  const platform::Value& path = (*row)[blobs::kLocalPath];
  logger().logDebug(kFilePathRetrieved, path);
  logger().logDebug(kCallingStartBlock);
  return Dictionary{{kFilePath, path}, {blobs::kState, state}};
}

void DownloadRows::setMetaDataForTask(DownloadTask& task) {
  Dictionary input = task.inputContext();
  const auto row = tableOf(input).row(input[kBlobId].textValue());
  if (!row) return logger().logDebug(kNoRowForMetaData, task.name());
  const auto path = localPathIn(*row);
  const std::int64_t size = BlobFiles::bytesOnDisk(*row).value_or(0);
  input.set(kTotalBytesDownloaded, size);
  task.setInputContext(input);
  if (path) {
    logger().logDebug(kMetaDataPath, *path);
    logger().logDebug(kFileSizeUpdated, size, task.name());
    logger().logDebug(kMetaDataInput, task.name(), input);
  } else {
    logger().logDebug(kNoMetaDataPath);
  }
}

void DownloadRows::limitOffsetToFile(DownloadTask& task) {
  Dictionary input = task.inputContext();
  const std::int64_t offset = input[kTotalBytesDownloaded].integerValue();
  if (offset <= 0) return;
  const auto row = tableOf(input).row(task.name());
  if (!row) return;
  const std::int64_t size = BlobFiles::bytesOnDisk(*row).value_or(0);
  if (size >= offset) return;
  input.set(kTotalBytesDownloaded, size);
  task.setInputContext(std::move(input));
}

void DownloadRows::updateDBForTask(const DownloadTask& task, const Dictionary& output) {
  // An output that is missing is no entry, and its column stays as it is.
  const auto updated = update(task, {{blobs::kLocalPath, output[kFilePath]},
                                     {blobs::kState, kFileAvailable},
                                     {blobs::kSize, output[kTotalFileSize]}});
  if (updated) {
    logger().logDebug(kCompletionUpdated, task.name());
  } else {
    logger().logError(kStateNotUpdated, kFileAvailable, task.name());
  }
}

void DownloadRows::updateStateOfTask(const DownloadTask& task, std::int32_t withState,
                                     const Dictionary& output) {
  Dictionary values{{blobs::kState, withState}};
  if (withState != kDownloadStarted) values.set(blobs::kLocalPath, output[kFilePath]);
  if (update(task, values)) {
    logger().logDebug(kStateUpdated, withState, task.name());
  } else {
    logger().logError(kStateNotUpdated, withState, task.name());
  }
}

void DownloadRows::noteFileOfTask(const DownloadTask& task, const Dictionary& output) {
  const platform::Value& path = output[kFilePath];
  if (path.isMissing()) return;
  if (!tableOf(task.inputContext()).update(task.name(), {{blobs::kLocalPath, path}})) {
    logger().logError(kFileNotNoted, task.name());
  }
}

}  // namespace varo::binary
