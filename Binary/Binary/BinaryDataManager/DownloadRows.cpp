#include "Binary/Binary/BinaryDataManager/DownloadRows.h"

#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadFile.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/DownloadTask/ObjectValidator.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Result;

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

ErrorPtr fileError(std::int32_t code, std::string_view message) {
  return std::make_shared<const platform::Error>(std::string(kDownloadTaskErrorDomain), code,
                                                 Dictionary{{kErrorMessage, message}});
}

}  // namespace

DownloadRows::DownloadRows(const std::string& databaseName, std::string blobId, bool isSafe)
    : table_(databaseName, isSafe ? TransferPolicy::kSafe : TransferPolicy::kCompatible),
      blobId_(std::move(blobId)),
      isSafe_(isSafe) {}

std::optional<Dictionary> DownloadRows::checkIfFileAvailable(ErrorPtr* withError) const {
  logger().logTrace(kCheckingFile);
  const auto row = table_.row(blobId_);
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

Dictionary DownloadRows::withMetaData(Dictionary input) const {
  const auto row = table_.row(blobId_);
  if (!row) {
    logger().logDebug(kNoRowForMetaData, blobId_);
    return input;
  }
  const auto path = localPathIn(*row);
  const std::int64_t size = BlobFiles::bytesOnDisk(*row).value_or(0);
  input.set(kTotalBytesDownloaded, size);
  if (path) {
    logger().logDebug(kMetaDataPath, *path);
    logger().logDebug(kFileSizeUpdated, size, blobId_);
    logger().logDebug(kMetaDataInput, blobId_, input);
  } else {
    logger().logDebug(kNoMetaDataPath);
  }
  return input;
}

DownloadRows::Beginning DownloadRows::beginningIn(const FileClaim& claim, bool isNewRun) const {
  const std::string noted = claim.validator();
  const auto object = ObjectValidator::parse(noted);
  if (claim.isBroken() || (!noted.empty() && !object)) return {};
  const auto size = static_cast<std::int64_t>(DownloadFile::sizeAt(claim.path()));
  const Dictionary row = table_.row(blobId_).value_or(Dictionary());
  if (size > 0 && object && object->total == size) {
    // No download has begun for a new row: the file is of what the row was about before.
    const bool isNew = row[blobs::kState].integerValue() == kDownloadNotStarted;
    return isNew ? Beginning() : Beginning{size, true};
  }
  // Nothing would show that the object is still the same.
  if (isNewRun && isSafe_ && !(object && object->isComparable())) return {};
  const bool isNamed = localPathIn(row) == claim.path();
  // The process may have died before the row had a path; the folder may have been moved.
  const bool isKnown = isSafe_ && !noted.empty();
  return isNamed || isKnown ? Beginning{size, false} : Beginning();
}

Result<void> DownloadRows::update(const Dictionary& values) const {
  return isSafe_ ? table_.updateUnlessDeleted(blobId_, values) : table_.update(blobId_, values);
}

Result<void> DownloadRows::updateDB(const Dictionary& output) const {
  auto updated = update(blobs::completeFile(output[kFilePath], output[kTotalFileSize]));
  if (updated) {
    logger().logDebug(kCompletionUpdated, blobId_);
  } else {
    logger().logError(kStateNotUpdated, kFileAvailable, blobId_);
  }
  return updated;
}

void DownloadRows::updateState(std::int32_t withState, const Dictionary& output) const {
  if (update(blobs::downloadState(withState, output[kFilePath]))) {
    logger().logDebug(kStateUpdated, withState, blobId_);
  } else {
    logger().logError(kStateNotUpdated, withState, blobId_);
  }
}

void DownloadRows::noteFile(const Dictionary& output) const {
  const platform::Value& path = output[kFilePath];
  if (path.isMissing()) return;
  if (!table_.update(blobId_, blobs::fileAt(path))) {
    logger().logError(kFileNotNoted, blobId_);
  }
}

}  // namespace varo::binary
