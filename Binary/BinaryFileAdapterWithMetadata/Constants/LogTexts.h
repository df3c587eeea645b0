#pragma once

#include <string_view>

/// What the file adapter logs.
/// The texts are fixed, misspellings included: people search logs for them. Each class has a group
/// of its own.
namespace varo::binary::log_texts {

/// With the error of a base that could not be made.
inline constexpr std::string_view kBaseInitFailed =
    "Failed to initialize BinaryBaseTask with error: %@";
/// Of both upload paths.
inline constexpr std::string_view kValidatingRawData = "Validating rawData";

namespace binary_callback {

inline constexpr std::string_view kTypeNotFound = "callbackType not found.";
inline constexpr std::string_view kSuccessNotDefined = "Success callback is not defined.";
inline constexpr std::string_view kFailureNotDefined = "Failure callback is not defined.";
inline constexpr std::string_view kProgressNotDefined = "Progress callback is not defined";
inline constexpr std::string_view kNoResult = "Result sent is nil or undefined for SuccessCallback";
inline constexpr std::string_view kNoError = "Error sent is nil or undefined for FailureCallback";
inline constexpr std::string_view kNoProgress =
    "Progress sent is nil or undefined for ProgressCallback";

}  // namespace binary_callback

namespace binary_file_storage_interface {

inline constexpr std::string_view kListFailed =
    "Failed to execute listFilesWithURL method, error : %@";
inline constexpr std::string_view kUploadFailed =
    "Failed to execute uploadBinary method, error : %@";
inline constexpr std::string_view kDownloadFailed =
    "Failed to execute downloadBinary method, error : %@";
inline constexpr std::string_view kUpdateFailed =
    "Failed to execute updateBinary method, error : %@";
inline constexpr std::string_view kDeleteFailed =
    "Failed to execute deleteByFileIdBinary method, error : %@";
inline constexpr std::string_view kDeleteByCriteriaFailed =
    "Failed to execute deleteByCriteriaBinary method, error : %@";
inline constexpr std::string_view kAbortFailed =
    "Failed to execute abortWithUrl method, error : %@";
inline constexpr std::string_view kFailureBlockThrew =
    "The failure callback of the application threw, exception : %@";

}  // namespace binary_file_storage_interface

namespace file_storage_manager {

inline constexpr std::string_view kListTag = "listFilesWithUrl";
inline constexpr std::string_view kUploadTag = "uploadBinaryWithUrl";
inline constexpr std::string_view kDownloadTag = "downloadBinaryWithUrl";
inline constexpr std::string_view kUpdateTag = "updateWithUrl";
inline constexpr std::string_view kDeleteTag = "deleteBinary";
inline constexpr std::string_view kInvalidUrl = "%@ : %@ : Exception in url validation : %@";
inline constexpr std::string_view kInvalidUploadParams =
    "%@ : %@ : Exception in upload params validation : %@";
inline constexpr std::string_view kInvalidDownloadParams =
    "%@ : %@ : Exception in download params validation : %@";
inline constexpr std::string_view kInvalidUpdateParams =
    "%@ : %@ : Exception in update params validation : %@";
inline constexpr std::string_view kInvalidDeleteParams =
    "%@ : %@ : Exception in deleteParams validation : %@";
inline constexpr std::string_view kInvalidFileId = "%@ : %@ : Exception in fileId validation : %@";
inline constexpr std::string_view kCallbackNotDefined = "%@ : %@ : Callback not defined";
inline constexpr std::string_view kNoCriteria = "%@ : %@ : No criteria is defined";
inline constexpr std::string_view kNoHeaders = "%@ : %@ : No headers are defined";
inline constexpr std::string_view kNoOptions = "Options are not defined for : %@";
inline constexpr std::string_view kUploadParamsValid = "Upload params validation successfull";
inline constexpr std::string_view kDownloadParamsValid = "Download params validation successfull";
inline constexpr std::string_view kUpdateParamsValid = "update params validation successfull";
inline constexpr std::string_view kDownloadInProgress =
    "%@ : %@ : Another download is in progress for %@";
inline constexpr std::string_view kSuccessNotDefined = "%@ : %@ Success callback not defined";
inline constexpr std::string_view kFailureNotDefined = "%@ : %@ Failure callback not defined";

}  // namespace file_storage_manager

namespace chunked_file_downloader_task {

inline constexpr std::string_view kTemplateNotParsed =
    "Error while parsing the download request template, Exception : %@";
inline constexpr std::string_view kNotStored = "The downloaded file can't be stored, Error : %@";

}  // namespace chunked_file_downloader_task

namespace file_metadata_creator_task {

inline constexpr std::string_view kMetadataNotJson = "metedata couldn't be converted to JSONString";
inline constexpr std::string_view kRequestFailed = "Network exeption occurred, Exception : %@";
inline constexpr std::string_view kTemplateNotParsed =
    "Error while parsing the upload request template, Exception : %@";

}  // namespace file_metadata_creator_task

namespace upload_commiter_task {

inline constexpr std::string_view kCommitPropertiesNotJson =
    "Error while parsing commit properties, Error : %@";
inline constexpr std::string_view kMetadataNotJson = "Error in parsing metadata, Error : %@";
inline constexpr std::string_view kCommitFailed = "Error while commiting upload data, Error : %@";

}  // namespace upload_commiter_task

namespace binary_delete_task {

inline constexpr std::string_view kInitFailed =
    "Failed to initialize BinaryDeleteTask with error: %@";
inline constexpr std::string_view kSetupFailed =
    "Failed to setup subtasks of BinaryDeleteTask with error: %@";

}  // namespace binary_delete_task

namespace binary_updater_task {

inline constexpr std::string_view kUpdateFailed = "Binary Update Failed with Error, %@";

}  // namespace binary_updater_task

namespace binary_callback_utils {

inline constexpr std::string_view kSuccessNotDefined = "Success callback not defined";
inline constexpr std::string_view kFailureNotDefined = "Failure callback not defined";
inline constexpr std::string_view kProgressNotDefined = "Progress callback not defined";
inline constexpr std::string_view kSuccessNotProvided =
    "Trying to invoke success callback with result %@. Callbacks are not provided";
inline constexpr std::string_view kFailureNotProvided =
    "Trying to invoke failure callback with error %@. Callbacks are not provided";
inline constexpr std::string_view kProgressNotProvided =
    "Trying to invoke progress callback with progress %@. Callbacks are not provided";

}  // namespace binary_callback_utils

namespace binary_network_utils {

inline constexpr std::string_view kDownloadLog =
    "BinaryNetworkUtils : getResponseForDwonload : Network response : %@";
inline constexpr std::string_view kResponseLog =
    "BinaryNetworkUtils : getResponse : Network response : %@";
inline constexpr std::string_view kParseErrorLog = "Error while parsing network response : %@";

}  // namespace binary_network_utils

namespace known_keys {

inline constexpr std::string_view kUnknownKey = "Nothing reads \"%@\" in %@";
inline constexpr std::string_view kUnknownKeyNear =
    "Nothing reads \"%@\" in %@; did you mean \"%@\"?";

}  // namespace known_keys

namespace validation_utils {

inline constexpr std::string_view kValidatingUploadParams = "Validating Upload Parameters";
inline constexpr std::string_view kValidatingUploadType = "Validating upload type";
inline constexpr std::string_view kValidatingFilePath = "Validating FilePath";
inline constexpr std::string_view kValidatingDownloadParams = "Validating downloadParams";
inline constexpr std::string_view kValidatingUpdateParams = "Validating updateParams";
inline constexpr std::string_view kValidatingFileNamespace = "Validating file_namespace";
inline constexpr std::string_view kValidatingSecurityKey = "Validating security_key";
inline constexpr std::string_view kDownloadParamsFailed = "Download validation failed, error: %@";
inline constexpr std::string_view kUpdateParamsFailed = "Update validation failed, error: %@";
/// Of the downloads' and updates' identifiers too.
inline constexpr std::string_view kFileNameFailed = "Upload file_name validation failed : %@";
inline constexpr std::string_view kDeleteParameterMissing = "Missing parameter %@ in deleteBinary";
inline constexpr std::string_view kDeleteParameterEmpty =
    "Null or empty value found for %@ in deleteBinary";
inline constexpr std::string_view kChunkSizeFailed = "Upload chunkSize validation failed : %@";
inline constexpr std::string_view kValidatingUploadHeaders = "Validating headers";
inline constexpr std::string_view kUploadHeadersFailed = "Upload headers validation failed : %@";
inline constexpr std::string_view kValidatingUploadMetadata = "Validating metadata";
inline constexpr std::string_view kUploadMetadataFailed = "Upload metadata validation failed : %@";
inline constexpr std::string_view kValidatingFileName = "Validating file_name";
inline constexpr std::string_view kUploadFileNamespaceFailed =
    "Upload file_namespace validation failed : %@";
inline constexpr std::string_view kUploadSecurityKeyFailed =
    "Upload seciruty_key validation failed : %@";
inline constexpr std::string_view kValidatingDownloadHeaders = "Validating donwload headers";
inline constexpr std::string_view kDownloadHeadersFailed =
    "Download headers validation failed : %@";
inline constexpr std::string_view kValidatingDownloadMetadata = "Validating donwload metadta";
inline constexpr std::string_view kDownloadMetadataFailed =
    "Download metadta validation failed : %@";
inline constexpr std::string_view kDownloadFileNamespaceFailed =
    "Download file_namespace validation failed : %@";
inline constexpr std::string_view kDownloadSecurityKeyFailed =
    "Download seciruty_key validation failed : %@";
inline constexpr std::string_view kValidatingDownloadFileId =
    "Validating file_id in metadata for download";
inline constexpr std::string_view kValidatingUpdateHeaders = "Validating update headers";
inline constexpr std::string_view kUpdateHeadersFailed = "Update headers validation failed : %@";
inline constexpr std::string_view kValidatingUpdateMetadata = "Validating update metadta";
inline constexpr std::string_view kUpdateMetadataFailed = "Update metadata validation failed : %@";
inline constexpr std::string_view kValidatingUpdateFileId =
    "Validating file_id in metadata for update";

}  // namespace validation_utils

}  // namespace varo::binary::log_texts
