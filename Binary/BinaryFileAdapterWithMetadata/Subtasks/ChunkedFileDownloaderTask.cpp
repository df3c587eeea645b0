#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkedFileDownloaderTask.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/UserDirectories.h"

#include <fmt/format.h>

#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace varo::binary {

using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::Error;
using platform::ErrorPtr;
using platform::NetworkErrorPtr;
using platform::TaskState;
using platform::Value;

namespace {

constexpr std::string_view kNoRecord = "binary records dosen't exist";
constexpr std::string_view kSeveralRecords = "binary records incorrect state";
constexpr std::string_view kTemplateNotParsed =
    "Error while parsing the download request template, Exception : %@";
constexpr std::string_view kNotStored = "The downloaded file can't be stored, Error : %@";
constexpr char kUnderlyingError[] = "NSUnderlyingError";
constexpr mode_t kDirectoryMode = 0777;  // less the umask: the platform's default attributes

ErrorPtr recordError(std::int32_t code, std::string_view message, std::string_view detail,
                     const Value& fileId) {
  return std::make_shared<const Error>(
      std::string(kDownloadErrorDomain), code,
      Dictionary{{std::string(platform::kLocalizedDescriptionKey),
                  platform::formatMessage(kMessageAndDetail, {message, detail})},
                 {keys::kFileId, fileId}});
}

ErrorPtr storeError(const ErrorPtr& cause) {
  return std::make_shared<const Error>(
      std::string(kDownloadErrorDomain), kCodeBinaryDownloadFailed,
      Dictionary{{std::string(platform::kLocalizedDescriptionKey), cause->localizedDescription()},
                 {kUnderlyingError, cause}});
}

}  // namespace

void ChunkedFileDownloaderTask::unpackInputContextWithError(ErrorPtr* error) {
  if (callersEntries_) {
    for (const char* own :
         {keys::kUrl, keys::kHeaders, keys::kOptions, keys::kCallback, kOperationSettings}) {
      _inputContext.set(own, (*callersEntries_)[own]);
    }
  }
  const Dictionary input = inputContext();
  _fileId = input[keys::kQueryParamsForDownload].dictionaryValue()[keys::kFileId];
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
  const Array* records = input[keys::kRecords].array();
  if (records == nullptr || records->empty()) {
    *error = recordError(kCodeBinaryRecordDoesNotExist, kBinaryRecordNotExists, kNoRecord, _fileId);
    return;
  }
  if (records->size() > 1) {
    *error = recordError(kCodeInvalidStateForBinaryOperation, kInvalidTaskCreationState,
                         kSeveralRecords, _fileId);
    return;
  }
  const Dictionary record = (*records)[0].dictionaryValue();
  if (const std::string* name = record[keys::kFileName].text()) _fileName = *name;
  if (!platform::staysInDirectory(getDirectoryPath({}), _fileName)) {
    *error = recordError(kCodeDownloadInvalidParams, kDownloadInvalidParams, _fileName, _fileId);
    return;
  }
  *error = unpackTemplate(input, record);
}

ErrorPtr ChunkedFileDownloaderTask::unpackTemplate(const Dictionary& input,
                                                   const Dictionary& record) {
  std::optional<std::string> json;
  if (const std::string* text = record[keys::kDownloadTemplate].text()) json = *text;
  ErrorPtr parseError;
  const auto parsed = BinaryNetworkUtils::getTemplate(json, &parseError);
  if (parseError != nullptr) {
    // The task goes on without a URL, which the network refuses.
    BinaryLogger::sharedInstance().logError(kTemplateNotParsed, parseError);
    return nullptr;
  }
  const Dictionary downloadTemplate = parsed.value_or(Dictionary{});
  auto url = BinaryNetworkUtils::fileOperationUrlAtItsServer(downloadTemplate,
                                                             input[keys::kUrl].textValue());
  if (!url) return url.error();
  url_ = std::move(url).value();
  headers_.addEntries(input[keys::kHeaders].dictionaryValue());
  if (downloadTemplate[kTemplateParamDomain] == Value(kMiddlewareDomain)) {
    _queryParams = input[keys::kQueryParamsForDownload].dictionaryValue();
    _queryParams.set(kQueryType, kQueryTypeBytes);
  } else {
    // An outside object store: the caller's token is none of its business.
    headers_ = BinaryNetworkUtils::withoutHeaders(headers_, {kVaroAuthorization});
  }
  if (const Dictionary* options = input[keys::kOptions].dictionary()) options_ = *options;
  return nullptr;
}

bool ChunkedFileDownloaderTask::shouldDownloadFile() const {
  // Asked for in any case: the directory has to be there for the bytes to be received into it.
  const std::string path = getFilePath();
  // A link to nothing is no file; storing the bytes under its name fails.
  return options_.value_or(Dictionary{})[keys::kForceDownload].boolValue() ||
         ::access(path.c_str(), F_OK) != 0;
}

std::string ChunkedFileDownloaderTask::getDirectoryPath(const std::string& subPath) {
  std::string path = platform::UserDirectories::current()->downloads();
  if (!subPath.empty()) path.append("/").append(subPath);
  // Where it is there already or cannot be made, storing the file will tell.
  (void)::mkdir(path.c_str(), kDirectoryMode);
  return path;
}

std::string ChunkedFileDownloaderTask::getFilePath() const {
  return fmt::format("{}/{}", getDirectoryPath({}), _fileName);
}

std::string ChunkedFileDownloaderTask::saveFileWithBytes(const Data& bytes, ErrorPtr* error) const {
  std::string path = getFilePath();
  *error = platform::storeFile(path, bytes).error();
  return path;
}

void ChunkedFileDownloaderTask::execute() {
  ErrorPtr error;
  unpackInputContextWithError(&error);
  if (error != nullptr) return raiseError(error);
  if (!shouldDownloadFile()) return endWithFileAt(getFilePath());
  BinaryNetworkUtils::GET(url_.value_or(std::string()), _queryParams, headers_,
                          options_.value_or(Dictionary{}), kOperationTypeDownload,
                          [self = self<ChunkedFileDownloaderTask>()](
                              const Dictionary& response, const NetworkErrorPtr& failure) {
                            self->processResponse(response, failure);
                          });
}

void ChunkedFileDownloaderTask::processResponse(const Dictionary& response,
                                                const NetworkErrorPtr& error) {
  if (error != nullptr) return raiseError(error);
  const Data* bytes = response[kResponseData].data();
  ErrorPtr failure;
  const std::string path = saveFileWithBytes(bytes != nullptr ? *bytes : Data(), &failure);
  if (failure != nullptr) {
    BinaryLogger::sharedInstance().logError(kNotStored, failure);
    if (transferPolicy() == TransferPolicy::kSafe) return raiseError(storeError(failure));
  }
  endWithFileAt(path);
}

void ChunkedFileDownloaderTask::endWithFileAt(const std::string& path) {
  _outputContext.set(keys::kFileName, _fileName);
  _outputContext.set(keys::kFilePath, path);
  setState(TaskState::Ended);
}

}  // namespace varo::binary
