#pragma once

#include <string_view>

/// What the managers of downloads and uploads log.
/// The texts are fixed, misspellings included: people search logs for them. Each class has a group
/// of its own.
namespace varo::binary::log_texts {

/// Before a place is looked for, and before a task is started (the task's name).
inline constexpr std::string_view kCheckingForEmptySlot =
    "Checking if the inProgressQueue has empty slot.";
inline constexpr std::string_view kStartDownload = " Start Download for task %@";

/// Of a new row, whoever makes it.
inline constexpr std::string_view kRowCreated =
    "Row successfully created in varosyncBLOBSTOREMANAGER.";
inline constexpr std::string_view kInsertedBlobId = "Inserted blob ID = %ld";

namespace binary_data_manager {

inline constexpr std::string_view kCreating = "Inside BDM create task.";
inline constexpr std::string_view kNoRecordFor =
    "Error occurred while creating a task for Primary keys, Binary Record does not exists for :%@";
inline constexpr std::string_view kAlreadyStarted =
    "Error in creating task. Task is already in started state";
inline constexpr std::string_view kFileExists =
    "File already exists. Total bytes downloaded : %lld";
inline constexpr std::string_view kContextNotUpdated =
    "Task already started, context can't be updated.";
inline constexpr std::string_view kStartWithoutId =
    "Blob id recieved null. Calling error delegate from startDownload module..";
inline constexpr std::string_view kStarting =
    "Starting download for the downloadBinary request with task %@";
inline constexpr std::string_view kStartWithoutTask =
    "Task doesn't exist. Calling error delegate from startDownload module..";
inline constexpr std::string_view kPauseWithoutId =
    "Blob id recieved null. Calling error delegate from PauseDownload module..";
inline constexpr std::string_view kPausing = "Inside pause download for task with blob ID : %@";
inline constexpr std::string_view kPauseWithoutTask =
    "Task doesn't exist. Calling error delegate from pauseDownload module.";
inline constexpr std::string_view kResuming = "Inside resume download of BDM for blob ID : %@";
inline constexpr std::string_view kResumeWithoutTask =
    "Task doesn't exist. calling error delegate from resumeDownload module.";
inline constexpr std::string_view kLookingUpPath = "Inside getBinaryDataFilePathForPrimaryKeys ";
inline constexpr std::string_view kClearingTasksMap = "Clearing Tasks Map";
inline constexpr std::string_view kClearingQueue = "Clearing Scheduled queue";
inline constexpr std::string_view kClearingTasks = "Clearing all tasks";
inline constexpr std::string_view kBeforeTasks = "Before clearing tasks queue: %lu";
inline constexpr std::string_view kAfterTasks = "After clearing tasks queue: %lu";
inline constexpr std::string_view kInvalidating =
    "Invalidating and cancelling all background session";
inline constexpr std::string_view kTaskKey = "Task key is %@";
inline constexpr std::string_view kCancellingInProgress = "Cancelling all inProgessQueue Tasks";
inline constexpr std::string_view kBeforeInProgress = "Before clearing inProgress queue: %lu";
inline constexpr std::string_view kAfterInProgress = "After clearing inProgress queue: %lu";
inline constexpr std::string_view kBeforeScheduling = "Before clearing scheduling queue: %lu";
inline constexpr std::string_view kAfterScheduling = "After clearing scheduling queue: %lu";
inline constexpr std::string_view kBeforeFinished = "Before clearing finished queue: %lu";
inline constexpr std::string_view kAfterFinished = "After clearing finished queue: %lu";

}  // namespace binary_data_manager

namespace blob_download {

inline constexpr std::string_view kScheduling = "Adding download task %@ to the scheduling queue.";
inline constexpr std::string_view kResetting =
    "Changing state of task with blob ID %@ to NotStarted.";
inline constexpr std::string_view kInEndedState = "Task with blob ID %@ in ended state.";
inline constexpr std::string_view kFire = " Fire %@ off!!";
inline constexpr std::string_view kCannotPause =
    "Task is in NotStarted, Errored or Ended state, hence can't be paused.";
inline constexpr std::string_view kCallingPause =
    "Calling the pause download method for blob ID : %@";
inline constexpr std::string_view kCallingResume =
    "Calling the resume download method for blob ID : %@";
inline constexpr std::string_view kResumeInput =
    "Input context for blob id %@ in resume module: %@";
inline constexpr std::string_view kNotPaused = "Task is not in Paused state, Hence can't resumed.";
inline constexpr std::string_view kPostProcessing =
    "Post processing task from finished queue for download task %@ . Calling the success callback.";
inline constexpr std::string_view kStateChanged = "Download of blob %@ : %@ -> %@";

}  // namespace blob_download

namespace blob_files {

inline constexpr std::string_view kNoPrimaryKey = "Primary key doesn't exist..";
inline constexpr std::string_view kNotDownloadedYet =
    "There is no blob id for the given primary key, the file hasn't been downloaded yet.";
inline constexpr std::string_view kBlobIdIs = "Blob id for the given primary keys is %@";
inline constexpr std::string_view kStateIs = "State of the for the given primary key is %d";
inline constexpr std::string_view kDownloadInterrupted =
    "File download was intermintently stopped due to error or paused.";
inline constexpr std::string_view kPathRetrieved =
    "File path retrieved inside get binary file path : %@";
inline constexpr std::string_view kPathNotRetrieved = "File path couldn't be retrived.";
inline constexpr std::string_view kRowExists = "Row exists.";
inline constexpr std::string_view kNeverDownloaded =
    "Blob hasn't been downloaded to the device. Creating a column in blob store manager";
inline constexpr std::string_view kLinked =
    "Updated the values in the parent table for blob ID : %ld";
inline constexpr std::string_view kNotLinked = "Error in updating parent table for blob ID : %ld";
inline constexpr std::string_view kBlobIdExists = "Blob ID exists : %@";
inline constexpr std::string_view kNoRow =
    "No row with blob ID %@ exists in varosyncBLOBSTOREMANAGER.";
inline constexpr std::string_view kUpdated =
    "Updated the values in the parent table for blob ID : %@";
inline constexpr std::string_view kNotUpdated = "Error in updating parent table for blob ID : %@";
inline constexpr std::string_view kFileRemoved = "File successfully removed..";
inline constexpr std::string_view kCouldNotDelete = "Could not delete file :%@ ";

}  // namespace blob_files

namespace blob_store_table {

inline constexpr std::string_view kDatabasePath = "DB PATH : %@";
inline constexpr std::string_view kNoRecord =
    "Unable to create download task as the record with the given primary key table doesn't exist.";
inline constexpr std::string_view kNoBlobYet =
    "No blob ID exists, i.e., blob ID was NULL. Inserting a row in varosyncBLOBSTOREMANAGER.";
inline constexpr std::string_view kRowNotCreated =
    "Unable to create download task as the as insertion into BlobStoreManager Failed. pktable = "
    "%@";
inline constexpr std::string_view kLinked =
    "Updated the values in the varosyncBLOBSTOREMANAGER for blob ID : %ld";
inline constexpr std::string_view kNotLinked = "Updated the values in the %@ failed";
inline constexpr std::string_view kBlobIdObtained = "Updated blobIdString = %@, pktable = %@";

}  // namespace blob_store_table

namespace download_input {

inline constexpr std::string_view kConfigEntry = "key=%@ value=%@";
inline constexpr std::string_view kConfigCopied = "Copied config into input context %@";

}  // namespace download_input

namespace download_rows {

inline constexpr std::string_view kCheckingFile = "Inside check if File Available..";
inline constexpr std::string_view kEndedWithoutRow =
    "Task in end state but couldn't retrieve the file path.";
inline constexpr std::string_view kStateOfRecord = "State of the record : %@";
inline constexpr std::string_view kAlreadyAvailable =
    "File IS already available, no need to download.";
inline constexpr std::string_view kFilePathRetrieved = "File path retrieved : %@";
inline constexpr std::string_view kCallingStartBlock =
    "Calling the start download completion handler..";
inline constexpr std::string_view kEndedWithoutFile =
    "Task is in end state but the file is not available.";
inline constexpr std::string_view kNoRowForMetaData =
    "setMetaDataForTask : No such row exists for task %@";
inline constexpr std::string_view kMetaDataPath = "FilePath retrieved : %@";
inline constexpr std::string_view kFileSizeUpdated = "File size updated to %lld for task %@";
inline constexpr std::string_view kMetaDataInput = "Input context for blob id %@ : %@";
inline constexpr std::string_view kNoMetaDataPath =
    "No File path retrieved, setting totalBytesDownloaded to zero.";
inline constexpr std::string_view kCompletionUpdated =
    "Filepath and state of download updated in varosyncBLOBSTOREMANAGER for blobID : %@";
inline constexpr std::string_view kStateUpdated =
    "State of download updated to %d in varosyncBLOBSTOREMANAGER for blobID : %@";
inline constexpr std::string_view kStateNotUpdated =
    "State of download couldn't be updated %d in varosyncBLOBSTOREMANAGER for blobID : %@";
inline constexpr std::string_view kFileNotNoted =
    "Filepath of download couldn't be updated in varosyncBLOBSTOREMANAGER for blobID : %@";

}  // namespace download_rows

namespace online_binary_data_manager {

inline constexpr std::string_view kNotStarted = "Download %@ is not started : %@";

}  // namespace online_binary_data_manager

namespace online_binary_upload_manager {

inline constexpr std::string_view kStarting = "Starting UploadTask with sessionId %@";
inline constexpr std::string_view kInvalidInput = "Input validations failed for uploadTask: %@";
inline constexpr std::string_view kStartFailed = "UploadTask Failed with unknown exception: %@";
inline constexpr std::string_view kTemplateTaskEnded =
    "[UploadTask VSTaskListener]  task end event received for UploadTemplateGetterTask";
inline constexpr std::string_view kTemplateTaskFailed =
    "[UploadTask VSTaskListener] UploadTemplateGetterTask returned error";
inline constexpr std::string_view kOpstatusNotZero =
    "[UploadTask VSTaskListener] UploadTemplateGetterTask returned response with opstatus 0";
inline constexpr std::string_view kUploaderEnded =
    "[UploadTask VSTaskListener]  task end event received for UploaderTask";
inline constexpr std::string_view kUploaderSucceeded =
    "[UploadTask VSTaskListener] UploaderTask completed successfully";
inline constexpr std::string_view kUploaderFailed =
    "[UploadTask VSTaskListener] UploaderTask returned error";

}  // namespace online_binary_upload_manager

namespace upload_configuration {

inline constexpr std::string_view kValidatingInputs = "Validating inputs for upload";
inline constexpr std::string_view kValidatingUrl = "Validating URL";
inline constexpr std::string_view kValidatedUrl = "Completed validation of URL";
inline constexpr std::string_view kValidatingFilePath = "Validation FilePath";
inline constexpr std::string_view kValidatedFilePath = "Completed validation of FilePath";
inline constexpr std::string_view kValidatedRawBytes = "Completed Validation of rawBytes";
inline constexpr std::string_view kValidatingHeaders = "Validation headers";
inline constexpr std::string_view kNoHeaders = "Did not find headers";
inline constexpr std::string_view kValidatingUploadParams = "Validating uploadParams";
inline constexpr std::string_view kNoUploadParams = "Did not find uploadParams";

}  // namespace upload_configuration

}  // namespace varo::binary::log_texts
