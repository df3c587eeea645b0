#include "Binary/Binary/BinaryDataManager/DownloadRows.h"

#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadFile.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/DownloadTask/ObjectValidator.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

namespace {

namespace texts = log_texts::download_rows;

constexpr char kErrorMessage[] = "Error message";

ErrorPtr fileError(std::int32_t code, std::string_view message) {
  return std::make_shared<const platform::Error>(std::string(kDownloadTaskErrorDomain), code,
                                                 Dictionary{{kErrorMessage, message}});
}

void logState(std::int32_t state, const std::string& blobId, bool isUpdated) {
  if (isUpdated) {
    logger().logDebug(texts::kStateUpdated, state, blobId);
  } else {
    logger().logError(texts::kStateNotUpdated, state, blobId);
  }
}

}  // namespace

DownloadRows::DownloadRows(const std::string& databaseName, std::string blobId,
                           OperationSettings::Ptr settings)
    : settings_(std::move(settings)),
      table_(databaseName, *settings_),
      blobId_(std::move(blobId)) {}

std::optional<Dictionary> DownloadRows::checkIfFileAvailable(ErrorPtr* withError,
                                                             Dictionary* readRow) const {
  logger().logTrace(texts::kCheckingFile);
  const auto row = table_.row(blobId_);
  if (readRow != nullptr) *readRow = row.value_or(Dictionary());
  if (!row) {
    logger().logDebug(texts::kEndedWithoutRow);
    *withError = fileError(kCodeBlobRowNotFound, kRowBlobId);
    return std::nullopt;
  }
  const std::string state = (*row)[blobs::kState].textValue();
  logger().logDebug(texts::kStateOfRecord, state);
  if (state != std::to_string(kFileAvailable)) {
    logger().logDebug(texts::kEndedWithoutFile);
    *withError = fileError(kCodeBlobFileNotAvailable, kFilePathNotPresent);
    return std::nullopt;
  }
  logger().logDebug(texts::kAlreadyAvailable);
  const platform::Value& path = (*row)[blobs::kLocalPath];
  logger().logDebug(texts::kFilePathRetrieved, path);
  logger().logDebug(texts::kCallingStartBlock);
  return Dictionary{{kFilePath, path}, {blobs::kState, state}};
}

Dictionary DownloadRows::withMetaData(Dictionary input) const {
  const auto row = table_.row(blobId_);
  if (!row) {
    logger().logDebug(texts::kNoRowForMetaData, blobId_);
    return input;
  }
  const auto path = localPathIn(*row);
  const std::int64_t size = BlobFiles::bytesOnDisk(*row).value_or(0);
  input.set(kTotalBytesDownloaded, size);
  if (path) {
    logger().logDebug(texts::kMetaDataPath, *path);
    logger().logDebug(texts::kFileSizeUpdated, size, blobId_);
    logger().logDebug(texts::kMetaDataInput, blobId_, input);
  } else {
    logger().logDebug(texts::kNoMetaDataPath);
  }
  return input;
}

DownloadRows::Beginning DownloadRows::beginningIn(const FileClaim& claim, const Dictionary& row,
                                                  bool isNewRun) const {
  const std::string noted = claim.validator();
  const auto object = ObjectValidator::parse(noted);
  if (claim.isBroken() || (!noted.empty() && !object)) return {};
  const auto size = static_cast<std::int64_t>(DownloadFile::sizeAt(claim.path()));
  if (size > 0 && object && object->total == size) {
    // No download has begun for a new row: the file is of what the row was about before.
    const bool isNew = row[blobs::kState].integerValue() == kDownloadNotStarted;
    return isNew ? Beginning() : Beginning{size, true};
  }
  // Nothing would show that the object is still the same.
  if (isNewRun && settings_->isSafe() && !(object && object->isComparable())) return {};
  const bool isNamed = localPathIn(row) == claim.path();
  // The process may have died before the row had a path; the folder may have been moved.
  const bool isKnown = settings_->isSafe() && !noted.empty();
  return isNamed || isKnown ? Beginning{size, false} : Beginning();
}

Result<void> DownloadRows::update(const Dictionary& values) const {
  auto updated = settings_->isSafe() ? table_.updateUnlessDeleted(blobId_, values)
                                     : table_.update(blobId_, values);
  if (updated && settings_->onBlobState) callBlock([&] { settings_->onBlobState(blobId_); });
  return updated;
}

Result<void> DownloadRows::updateDB(const Dictionary& output) const {
  auto updated = update(blobs::completeFile(output[kFilePath], output[kTotalFileSize]));
  if (updated) {
    logger().logDebug(texts::kCompletionUpdated, blobId_);
  } else {
    logger().logError(texts::kStateNotUpdated, kFileAvailable, blobId_);
  }
  return updated;
}

void DownloadRows::updateState(std::int32_t withState, const Dictionary& output) const {
  logState(withState, blobId_, update(blobs::downloadState(withState, output[kFilePath])).ok());
}

void DownloadRows::noteStart(const FileClaim::Lease& claim) const {
  if (settings_->isSafe() || settings_->onBlobState) return updateState(kDownloadStarted, {});
  // Nobody else may have the file, and write its row, before this is written.
  table_.updateLater(blobId_, blobs::downloadState(kDownloadStarted, {}),
                     [claim, blobId = blobId_](const Result<void>& updated) {
                       logState(kDownloadStarted, blobId, updated.ok());
                     });
}

void DownloadRows::noteFile(const Dictionary& output) const {
  const platform::Value& path = output[kFilePath];
  if (path.isMissing()) return;
  if (!table_.update(blobId_, blobs::fileAt(path))) {
    logger().logError(texts::kFileNotNoted, blobId_);
  }
}

}  // namespace varo::binary
