#pragma once

#include <cstdint>
#include <string_view>

/// Error codes, domains and message texts of the whole library. All are part of its interface and
/// keep their spelling.
namespace varo::binary {

/// Codes. A code means something together with its domain only: docs/errors.md says of each pair
/// when it arises, whether a retry is worth it, and what to do. 6005, 6019 and 6020 are not
/// defined.

/// A fault of a download, or a response of the service, that has no code of its own.
inline constexpr std::int32_t kCodeDownloadFault = 999;
/// The object changed on the service while it was fetched. A retry fetches it anew.
inline constexpr std::int32_t kCodeIntegrityCheckFailed = 1019;
/// The state of a record, a blob or a download does not allow the operation; also after the
/// library's shutdown. No retry before that state has changed.
inline constexpr std::int32_t kCodeInvalidStateForBinaryOperation = 5001;
/// The blob is in a state from which no download begins. No retry before the state has changed.
inline constexpr std::int32_t kCodeInvalidStateForDownloadTaskCreation = 5002;
/// The download of that name was not created. Create it first.
inline constexpr std::int32_t kCodeDownloadTaskNotCreated = 5003;
/// There is no such record. Check the id or the keys.
inline constexpr std::int32_t kCodeBinaryRecordDoesNotExist = 5004;
/// No name of a download was given. A mistake of the caller.
inline constexpr std::int32_t kCodeNullDownloadTaskIDReceived = 5005;
/// Not raised.
inline constexpr std::int32_t kCodeTaskAlreadyStartedException = 5006;
/// Not raised: what a connection fails of is `platform::TransportFailure`.
inline constexpr std::int32_t kCodeFailedToConnectToServer = 6001;
/// A downloaded file could not be stored. A retry is worth it once there is room.
inline constexpr std::int32_t kCodeBinaryDownloadFailed = 6002;
/// The service refused the request, or its response cannot be used. See "httpStatusCode".
inline constexpr std::int32_t kCodeHTTPRequestFailed = 6003;
/// A response to a range does not say which bytes it has. A retry is worth it.
inline constexpr std::int32_t kCodeContentRangeNotReceived = 6004;
/// A request of an upload, or of a blob or online download, got no response. See the cause.
inline constexpr std::int32_t kCodeUploadFailure = 6006;
/// The file to send cannot be read, or is empty.
inline constexpr std::int32_t kCodeUploadIOFailure = 6007;
/// An online upload got a response whose status is no success.
inline constexpr std::int32_t kCodeUploadUnexpectedHTTPResponseCode = 6008;
/// The service's template of an upload cannot be used.
inline constexpr std::int32_t kCodeUploadJSONParsingError = 6009;
/// 6010 to 6012: mistakes in the parameters of an upload, or in a template. No retry.
inline constexpr std::int32_t kCodeUploadMissingParameter = 6010;
inline constexpr std::int32_t kCodeUploadInvalidParameterDataType = 6011;
inline constexpr std::int32_t kCodeUploadInvalidParameterValue = 6012;
/// The template asks for a mode of upload that there is not.
inline constexpr std::int32_t kCodeUploadTaskInstanceFailure = 6013;
/// A response without bytes where some are needed.
inline constexpr std::int32_t kCodeEmptyBodyReceived = 6014;
/// 6015 to 6017: mistakes in the parameters of a download. No retry. 6016 is also a file name of a
/// record that leads out of the downloads directory.
inline constexpr std::int32_t kCodeDownloadMissingParams = 6015;
inline constexpr std::int32_t kCodeDownloadInvalidParams = 6016;
inline constexpr std::int32_t kCodeDownloadMissingParameterValue = 6017;
/// An address that is none, or that leads to another server than it may.
inline constexpr std::int32_t kCodeMissingServerUrl = 6018;
/// 6021 and 6022: mistakes in the parameters of an update. No retry.
inline constexpr std::int32_t kCodeUpdateMissingParams = 6021;
inline constexpr std::int32_t kCodeUpdateInvalidParams = 6022;
/// Not raised.
inline constexpr std::int32_t kCodeUpdateInvalidParameterValue = 6023;
/// Not raised.
inline constexpr std::int32_t kCodeDeleteFailure = 6024;
/// 6025 and 6026: mistakes in the parameters of a delete. No retry.
inline constexpr std::int32_t kCodeDeleteMissingParams = 6025;
inline constexpr std::int32_t kCodeDeleteInvalidParams = 6026;
/// The caller gave the operation up with the "cancellation" of its options.
inline constexpr std::int32_t kCodeOperationCancelled = 6027;
/// The offline database could not be read or written. See the cause.
inline constexpr std::int32_t kCodeSQLiteExecuteFailed = 7001;
/// Not raised.
inline constexpr std::int32_t kFileExistsAbortingDownload = 10001;
/// A download of the same file runs already. A retry is worth it when that has ended.
inline constexpr std::int32_t kDownloadNotStartedAlreadyExistsInQueue = 10002;
/// A template has a placeholder without a value. No retry.
inline constexpr std::int32_t kInvalidFileParams = 10003;
/// With `kDownloadTaskErrorDomain`: the blob's row says that there is no file, or there is no row.
inline constexpr std::int32_t kCodeBlobFileNotAvailable = 4;
inline constexpr std::int32_t kCodeBlobRowNotFound = 5;
/// With `kDownloadTaskError`: a download has failed.
inline constexpr std::int32_t kCodeDownloadTaskFailed = 4;
/// With `kFileInterfaceErrorDomain`: an exception, which the text names.
inline constexpr std::int32_t kCodeException = 0;

/// Domains of operations on files.
inline constexpr std::string_view kUploadErrorDomain = "UploadError";
inline constexpr std::string_view kDownloadErrorDomain = "DownloadError";
inline constexpr std::string_view kUpdateErrorDomain = "UpdateError";
/// Of one rule of the update validation only.
inline constexpr std::string_view kUpdateHeadersErrorDomain = "updateError";
inline constexpr std::string_view kDeleteErrorDomain = "DeleteError";
inline constexpr std::string_view kUrlValidationErrorDomain = "ValidationsUtils";
/// Of requests: the code is 6003, 6014 or 6018, or that of the transport.
inline constexpr std::string_view kBinaryNetworkUtilsErrorDomain = "BinaryNetworkUtils";
/// Of a delete whose status could not be polled to a good end.
inline constexpr std::string_view kNetworkOperationErrorDomain = "Network operation failed";
inline constexpr std::string_view kRetriesExceededErrorDomain =
    "Exceeded number of retries, the current operation is taking longer time, status is not "
    "available yet";
inline constexpr std::string_view kFileInterfaceErrorDomain = "BinaryFileStorageInterface";
inline constexpr std::string_view kFileManagerErrorDomain = "FileStorageManager";

/// Domains of blobs and of online downloads: what the caller gave or asked for; a download that has
/// failed; a deletion.
inline constexpr std::string_view kDownloadTaskErrorDomain = "DownloadTaskErrorDomain";
inline constexpr std::string_view kDownloadTaskError = "DownloadTaskError";
inline constexpr std::string_view kDeleteBinaryErrorDomain = "DeleteBinaryDomain";
/// Of what a failed download has under "Errors": the input of its tasks, a range and its response,
/// a range that got no response, the file, an object without bytes.
inline constexpr std::string_view kDownloadInputErrorDomain = "Download Task";
inline constexpr std::string_view kPersistenceInputErrorDomain = "DataPersistance Task";
inline constexpr std::string_view kNetworkTaskErrorDomain = "Network Task";
inline constexpr std::string_view kRangeRequestErrorDomain = "NetworkTask";
inline constexpr std::string_view kPersistenceErrorDomain = "Data Persistence";
inline constexpr std::string_view kEmptyObjectErrorDomain = "DataPersistantTask";

/// Domains of online transfers: the placeholders of a configuration, the template of an upload, the
/// request for it, and the upload. `kBytesUploaderErrorDomain` is also that of each request of an
/// upload that got no response.
inline constexpr std::string_view kTemplateParsingErrorDomain = "Template Parsing Error";
inline constexpr std::string_view kUploadTaskErrorDomain = "UploadTask";
inline constexpr std::string_view kUploadTemplateErrorDomain = "UploadTemplateTask";
inline constexpr std::string_view kBytesUploaderErrorDomain = "BackendUploaderTask";
inline constexpr std::string_view kFormUploaderErrorDomain = "BackendUploadedTask";

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

/// Domains that are the text of their message.
inline constexpr std::string_view kTaskCreationErrorDomain = kInvalidTaskCreationState;
inline constexpr std::string_view kAlreadyQueuedErrorDomain = kFileAlreadyInQueue;

}  // namespace varo::binary
