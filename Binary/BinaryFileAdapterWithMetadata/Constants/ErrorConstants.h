#pragma once

#include <cstdint>
#include <string_view>

/// Error codes, domains and message texts of the whole library. All are part of its interface and
/// keep their spelling.
namespace varo::binary {

/// Codes. 6005, 6019 and 6020 are not defined.
inline constexpr std::int32_t kCodeIntegrityCheckFailed = 1019;
inline constexpr std::int32_t kCodeInvalidStateForBinaryOperation = 5001;
inline constexpr std::int32_t kCodeInvalidStateForDownloadTaskCreation = 5002;
inline constexpr std::int32_t kCodeDownloadTaskNotCreated = 5003;
inline constexpr std::int32_t kCodeBinaryRecordDoesNotExist = 5004;
inline constexpr std::int32_t kCodeNullDownloadTaskIDReceived = 5005;
inline constexpr std::int32_t kCodeTaskAlreadyStartedException = 5006;
inline constexpr std::int32_t kCodeFailedToConnectToServer = 6001;
inline constexpr std::int32_t kCodeBinaryDownloadFailed = 6002;
inline constexpr std::int32_t kCodeHTTPRequestFailed = 6003;
inline constexpr std::int32_t kCodeContentRangeNotReceived = 6004;
inline constexpr std::int32_t kCodeUploadFailure = 6006;
inline constexpr std::int32_t kCodeUploadIOFailure = 6007;
inline constexpr std::int32_t kCodeUploadUnexpectedHTTPResponseCode = 6008;
inline constexpr std::int32_t kCodeUploadJSONParsingError = 6009;
inline constexpr std::int32_t kCodeUploadMissingParameter = 6010;
inline constexpr std::int32_t kCodeUploadInvalidParameterDataType = 6011;
inline constexpr std::int32_t kCodeUploadInvalidParameterValue = 6012;
inline constexpr std::int32_t kCodeUploadTaskInstanceFailure = 6013;
inline constexpr std::int32_t kCodeEmptyBodyReceived = 6014;
inline constexpr std::int32_t kCodeDownloadMissingParams = 6015;
inline constexpr std::int32_t kCodeDownloadInvalidParams = 6016;
inline constexpr std::int32_t kCodeDownloadMissingParameterValue = 6017;
inline constexpr std::int32_t kCodeMissingServerUrl = 6018;
inline constexpr std::int32_t kCodeUpdateMissingParams = 6021;
inline constexpr std::int32_t kCodeUpdateInvalidParams = 6022;
inline constexpr std::int32_t kCodeUpdateInvalidParameterValue = 6023;
inline constexpr std::int32_t kCodeDeleteFailure = 6024;
inline constexpr std::int32_t kCodeDeleteMissingParams = 6025;
inline constexpr std::int32_t kCodeDeleteInvalidParams = 6026;
inline constexpr std::int32_t kCodeSQLiteExecuteFailed = 7001;
/// The caller gave the operation up with the "cancellation" of its options.
inline constexpr std::int32_t kCodeOperationCancelled = 6027;
/// With `kDownloadTaskErrorDomain`: the blob's row says that there is no file, or there is no row.
inline constexpr std::int32_t kCodeBlobFileNotAvailable = 4;
inline constexpr std::int32_t kCodeBlobRowNotFound = 5;
/// With `kDownloadTaskError`: a download has failed.
inline constexpr std::int32_t kCodeDownloadTaskFailed = 4;

/// Domains.
inline constexpr std::string_view kUploadErrorDomain = "UploadError";
inline constexpr std::string_view kDownloadErrorDomain = "DownloadError";
inline constexpr std::string_view kUpdateErrorDomain = "UpdateError";
/// Of one rule of the update validation only.
inline constexpr std::string_view kUpdateHeadersErrorDomain = "updateError";
inline constexpr std::string_view kDeleteErrorDomain = "DeleteError";
inline constexpr std::string_view kDownloadTaskErrorDomain = "DownloadTaskErrorDomain";
inline constexpr std::string_view kDownloadTaskError = "DownloadTaskError";
inline constexpr std::string_view kDeleteBinaryErrorDomain = "DeleteBinaryDomain";
inline constexpr std::string_view kUrlValidationErrorDomain = "ValidationsUtils";
inline constexpr std::string_view kBinaryNetworkUtilsErrorDomain = "BinaryNetworkUtils";
inline constexpr std::string_view kTemplateParsingErrorDomain = "Template Parsing Error";
/// Of a delete whose status could not be polled to a good end.
inline constexpr std::string_view kNetworkOperationErrorDomain = "Network operation failed";
inline constexpr std::string_view kRetriesExceededErrorDomain =
    "Exceeded number of retries, the current operation is taking longer time, status is not "
    "available yet";

/// The description of most errors: one of the messages below and a detail.
inline constexpr std::string_view kMessageAndDetail = "%@: %@";
/// The library was shut down before the operation.
inline constexpr std::string_view kLibraryShutDown = "The library has been shut down";
/// What is told of an exception that cannot tell itself.
inline constexpr std::string_view kUnknownException = "not a std::exception";

/// Messages.
inline constexpr std::string_view kUploadFailure = "Upload error";
inline constexpr std::string_view kUploadIOFailure =
    "Unable to upload file - unknown error while uploading";
inline constexpr std::string_view kUploadUnexpectedHTTPResponseCode =
    "Unable to upload - Unexpected HTTP response code during upload";
inline constexpr std::string_view kUploadJSONParsingError =
    "Unable to upload file - unknown issue with parsing template";
inline constexpr std::string_view kUploadMissingParameter =
    "Unable to upload file - Missing parameter";
inline constexpr std::string_view kUploadInvalidParameterDataType =
    "Unable to upload file - Invalid data type of parameter";
inline constexpr std::string_view kUploadInvalidParameterValue =
    "Unable to upload file - Invalid parameter value";
inline constexpr std::string_view kUploadTaskInstanceError =
    "Unable to instantiate task from RedirectionTemplate";
inline constexpr std::string_view kDownloadMissingParams =
    "Unable to download file - Missing parameter";
inline constexpr std::string_view kDownloadInvalidParams =
    "Unable to download file - Invalid parameter value";
inline constexpr std::string_view kUpdateMissingParams =
    "Unable to Update file - Missing parameter value";
inline constexpr std::string_view kUpdateInvalidParams =
    "Unable to Update file - Invalid parameter";
inline constexpr std::string_view kUpdateInvalidParameterValue =
    "Unable to Update file - Invalid parameter value";
inline constexpr std::string_view kDeleteMissingParams =
    "Unable to perform Delete - Missing parameter";
inline constexpr std::string_view kDeleteInvalidParams =
    "Unable to perform Delete - Invalid parameter value";
inline constexpr std::string_view kEmptyBodyReceived = "Empty Body Received from Server";
inline constexpr std::string_view kMissingServerUrl = "URL is not in proper format";
/// With `kCodeMissingServerUrl`: an address that a service gave leads elsewhere.
inline constexpr std::string_view kAddressRefused =
    "The address is refused, since it does not stay at the server that it has to stay at : %@";
inline constexpr std::string_view kOperationCancelled = "The operation was cancelled.";
inline constexpr std::string_view kIntegrityCheckFailed = "Integrity check failed";
inline constexpr std::string_view kInvalidTaskCreationState =
    "Invalid State For Download Task Creation";
inline constexpr std::string_view kBinaryRecordNotExists =
    "Binary record does not exist. Hence cannot create download task";
inline constexpr std::string_view kNullBlobID =
    "Null Blob id recieved. Hence, can't be downloaded.";
inline constexpr std::string_view kTaskNotCreated = "Task not created. Hence, can't be started.";
inline constexpr std::string_view kTaskNotStarted =
    "Task is in NotStarted, Errored or Ended state. Hence, can't be Paused.";
inline constexpr std::string_view kTaskNotPaused = "Task is not Paused, hence can't resumed.";
inline constexpr std::string_view kTaskStarted =
    "Task is in Started, Ended or Errored state hence can't resumed.";
inline constexpr std::string_view kFileAlreadyInQueue =
    "File Download already in queue, Download not started";
inline constexpr std::string_view kFilePathNotPresent =
    "Couldn't retrieve file path respective blob id in BlobStoreManager.";
inline constexpr std::string_view kRowBlobId =
    "Couldn't retrieve row respective blob id in BlobStoreManager.";
inline constexpr std::string_view kRowNotExists =
    "Required row doesn't exist in varosyncBLOBSTOREMANAGER.";
inline constexpr std::string_view kRowWithPrimaryKeyNotExists =
    "Row with the given primary keys does not exist.";
inline constexpr std::string_view kErrorInsertingRow =
    "Error in inserting row in varosyncBLOBSTOREMANAGER.";
inline constexpr std::string_view kErrorUpdatingRow =
    "Error in updating row in varosyncBLOBSTOREMANAGER.";
inline constexpr std::string_view kErrorUpdatingParentTable = "Error in updating parent table.";
inline constexpr std::string_view kDownloadsCleared =
    "The downloads were cleared before this one had ended.";
inline constexpr std::string_view kDownloadStopped = "The download was stopped.";
inline constexpr std::string_view kRowNotWritten =
    "The file is complete, but its row in varosyncBLOBSTOREMANAGER could not be written.";
inline constexpr std::string_view kFileNotRemoved = "The file of the blob could not be removed.";
inline constexpr std::string_view kmsgtemplateParsing = "Template Parsing error";

}  // namespace varo::binary
