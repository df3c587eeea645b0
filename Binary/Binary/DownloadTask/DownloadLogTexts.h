#pragma once

#include <string_view>

/// What the tasks of a download log.
/// The texts are fixed, misspellings included: people search logs for them. Each class has a group
/// of its own.
namespace varo::binary::log_texts {

/// Of several classes.
inline constexpr std::string_view kInside = "Inside %@  ";
inline constexpr std::string_view kStateChange = "Task:%@ fromState:%lu toState:%lu  ";
inline constexpr std::string_view kInvalidDownloadInput =
    "Invalid inputs provided to the download task.";

namespace cipher_task {

inline constexpr std::string_view kInListener = "Inside the Cipher listner!   ";

}  // namespace cipher_task

namespace data_persistence_task {

inline constexpr std::string_view kInListener = "Inside the Data Persistence listener!   ";
inline constexpr std::string_view kNetworkState =
    "Inside task listener of data persistence and the state of network task is : %lu";
inline constexpr std::string_view kSetEmptyChunk = "Inside set Empty chunk.";
inline constexpr std::string_view kEmptyChunk = "Empty Chunk Recieved from server";
inline constexpr std::string_view kFilePathIs = "File Path : %@";
inline constexpr std::string_view kFileCreated =
    "File for download task %@ has been created at filepath : %@";
inline constexpr std::string_view kSettingSize = "Setting the file size in the first call.";
inline constexpr std::string_view kFileNotCreated = "Error in creating file at file path : %@";
inline constexpr std::string_view kCreationFailed =
    "Creating error for download task %@ and setting the state for data persistence as errored.";
inline constexpr std::string_view kFileFailed = "Error in writing file at file path : %@";
inline constexpr std::string_view kPaused =
    "Network task has been paused for download task %@ hence ending Data Persistence task.";
inline constexpr std::string_view kDownloaded =
    "Total file for download task %@ has been downloaded.";
inline constexpr std::string_view kDownloadedInRanges =
    "Total file for download task %@ has been downloaded via partial requests.";
inline constexpr std::string_view kNoBlobId =
    "unable to set output context for blob id as it is nil";
inline constexpr std::string_view kNoFilePath =
    "unable to set output context for filepath at it is nil";
inline constexpr std::string_view kNoFileSize =
    "unable to set output context for file size as it is nil";

}  // namespace data_persistence_task

namespace download_task {

inline constexpr std::string_view kInStop = "Inside Download task stop";
inline constexpr std::string_view kInListener =
    "Inside Download Task Listener. Task Name:%@, State:%lu  ";
inline constexpr std::string_view kPaused = "Download task with blob id %@ is paused.";
inline constexpr std::string_view kEnded =
    "Download task with blob ID %@ has been ended. Setting output context and setting state to "
    "Ended.";
inline constexpr std::string_view kNetworkTrouble =
    "Download task %@ set to errored state due to network trouble. Raising the context change "
    "event.. ";
inline constexpr std::string_view kPersistenceTrouble =
    "Download task %@ set to errored state due to persistence trouble. Raising the context change "
    "event.. ";
/// The names of the states of a run, for the trace.
inline constexpr std::string_view kRunChanged = "Download task %@ : run %@";

}  // namespace download_task

namespace network_answer {

inline constexpr std::string_view kContentTypeIs = "Content type : %@";
inline constexpr std::string_view kStatusIs = "HTTP status code recieved : %ld";
inline constexpr std::string_view kStatusOk = "Status code : 200";
inline constexpr std::string_view kTypeJson = "  Content type : JSON";
inline constexpr std::string_view kErrorString = "  Error string : %@";
inline constexpr std::string_view kWholeFile = "Total file recieved at one go.";
inline constexpr std::string_view kSizeOfData = "Size of data recieved  : %lu";
inline constexpr std::string_view kOtherStatus = "Integer out of range in the switch case. ";
inline constexpr std::string_view kCheckingForError =
    "Executing isErrorResponse with jsonString %@ ";
inline constexpr std::string_view kJsonObject = "jsonObject after serialization %@ ";
inline constexpr std::string_view kErrorIs = "error %@ ";
inline constexpr std::string_view kReturning = "returning isError %d ";
inline constexpr std::string_view kNoResults = "Results Object is null or empty ";
inline constexpr std::string_view kNoBase64 = "base64 is null ";
inline constexpr std::string_view kJsonNotParsed = "Error parsing json ";

}  // namespace network_answer

namespace network_task {

inline constexpr std::string_view kTaskInterrupted = "Task Interrupted";
inline constexpr std::string_view kRequestFailed = "HttpRequest Failed: %@";
inline constexpr std::string_view kClientSide =
    "Error since there were issues in the parameters sent from the client side. ";
inline constexpr std::string_view kInErrorCondition =
    "Inside error if condition of network task. %@";
inline constexpr std::string_view kBase64Ends =
    "Setting data for base 64 string and ending the task.";
inline constexpr std::string_view kWholeFileEnds =
    "Setting the total file for binary and ending the task.";
inline constexpr std::string_view kAsterisk = "Asterisk recieved for the total file size.";
inline constexpr std::string_view kTotalSizeIs = "Total file size : %lld";
inline constexpr std::string_view kUnknownSizeGoesOn =
    "File not completely downloaded..Calling download Chunk";
inline constexpr std::string_view kGoesOn = "File not completely downloaded calling download Chunk";
inline constexpr std::string_view kCompleted =
    "File download completed via partial request, ending task.";
inline constexpr std::string_view kBytesDownloaded = "Total bytes downloaded : %lld";
inline constexpr std::string_view kPausing = "Pausing the network task for download task : %@";
inline constexpr std::string_view kResuming = "Resuming the network task for download task : %@";
inline constexpr std::string_view kStopped = "Done cancelling background session";
inline constexpr std::string_view kStartsOver =
    "The object on the server is another one: starting over";
inline constexpr std::string_view kRunStateChange = "The run %lld goes from %@ to %@";

}  // namespace network_task

namespace range_order {

inline constexpr std::string_view kInvalidInput = "Invalid inputs provided to the network task.";
inline constexpr std::string_view kValidInput = "valid input is %d";
inline constexpr std::string_view kUrlNotBuilt =
    "  The URL can't be built due to insufficient inputs.";
inline constexpr std::string_view kUrlBuilt = "  URL from buildURL : %@";
inline constexpr std::string_view kRangeRequest = "Range request for blob id %@ : %@";

}  // namespace range_order

namespace sqlite_util {

inline constexpr std::string_view kDbPath = "\n DB PATH : %@";
inline constexpr std::string_view kUnableToOpen =
    "Unable to intitilaize the give dbPath %@ with error: %@";

inline constexpr std::string_view kInserting =
    "\n Inside insert statement for DB : %@ \n for table : %@ \n with values : %@";
inline constexpr std::string_view kInsertBuilderError =
    "\n Error in insertStatementForDatabaseForTable while creating prepared statement,error: %@";
inline constexpr std::string_view kInsertBuildError =
    "\nError in insertStatementForDatabaseForTable while creating prepared statement,error: %@";
inline constexpr std::string_view kInsertFailed =
    "Error while inserting record in Database with error: %@";
inline constexpr std::string_view kInserted = "\n Record inserted successfully with id %ld";

inline constexpr std::string_view kQuerying =
    "\n Inside query for DB. \n DB Name : %@ \n Table Name : %@ \n Where Clause : %@";
inline constexpr std::string_view kQueryBuilderError =
    "\n Error in queryDataForDatabaseForTablewithWhereClause while creating prepared "
    "statement,error: %@";
inline constexpr std::string_view kQueryBuildError =
    "\nError in queryDataForDatabaseForTablewithWhereClause while creating prepared "
    "statement,error : %@";
inline constexpr std::string_view kQueryFailed =
    "Error while reading record from Database with error: %@";
inline constexpr std::string_view kQueried = "\n Record retrieved successfully.";

inline constexpr std::string_view kUpdating =
    "\n Inside update query for DB. \n DB Name : %@ \n Table Name : %@ Column Names : %@ \n Where "
    "Clause : %@";
inline constexpr std::string_view kUpdateBuilderError =
    "\n Error in updateStatementForDatabaseforTablewithColumnsToBeUpdatedwithWhereClause while "
    "creating prepared statement,error: %@";
inline constexpr std::string_view kUpdateBuildError =
    "\nError in updateStatementForDatabaseforTablewithColumnsToBeUpdatedwithWhereClause while "
    "creating prepared statement,error : %@";
inline constexpr std::string_view kUpdateFailed =
    "Error while updating record in Database with error: %@";
inline constexpr std::string_view kUpdated = "\n Record updated successfully.";

inline constexpr std::string_view kDeleting =
    "\n Inside delete query for DB. \n DB Name : %@ \n Table Name : %@ \n Where Clause : %@";
inline constexpr std::string_view kDeleteBuilderError =
    "\n Error in deleteStatementForDatabaseforTablewithWhereClause while creating prepared "
    "statement,error: %@";
inline constexpr std::string_view kDeleteBuildError =
    "\nError in deleteStatementForDatabaseforTablewithWhereClause while creating prepared "
    "statement,error : %@";
inline constexpr std::string_view kDeleteFailed =
    "Error while deleting record in Database with error: %@";
inline constexpr std::string_view kDeleted = "\n Record deleted successfully.";

}  // namespace sqlite_util

}  // namespace varo::binary::log_texts
