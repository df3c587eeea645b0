#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkedFileDownloaderTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/UserDirectories.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::chunked_file_downloader_task;

constexpr std::string_view kNoRecord = "binary records dosen't exist";
constexpr std::string_view kSeveralRecords = "binary records incorrect state";
/// Of a record: the size of its file, in bytes.
constexpr char kFileSize[] = "file_size";
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
                 {std::string(platform::kUnderlyingError), cause}});
}

bool isNumber(const Value& value) {
  return value.isInteger() || value.isReal() || value.largeInteger() != nullptr;
}

/// The number that `value` is wholly, given as a number or as text.
std::optional<std::int64_t> wholeNumber(const Value& value) {
  if (const std::int64_t* number = value.integer()) return *number;
  return value.isText() ? platform::parseInteger(*value.text()) : std::nullopt;
}

/// `path` without its "." components, which lead nowhere.
std::string withoutDotComponents(std::string_view path) {
  std::string result;
  bool isFirst = true;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string_view component = path.substr(begin, end - begin);
    begin = end + 1;
    if (component == ".") continue;
    if (!std::exchange(isFirst, false)) result += '/';
    result += component;
  }
  return result;
}

}  // namespace

std::string_view ChunkedFileDownloaderTask::errorDomain() const noexcept {
  return kDownloadErrorDomain;
}

void ChunkedFileDownloaderTask::unpackInputContextWithError(ErrorPtr* error) {
  if (callersEntries_) {
    for (const char* own :
         {keys::kUrl, keys::kHeaders, keys::kOptions, keys::kCallback, kOperationSettings}) {
      _inputContext.set(own, (*callersEntries_)[own]);
    }
  }
  const Dictionary input = takeInput();
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
  const Value& name = record[keys::kFileName];
  if (name.isText() || isNumber(name)) _fileName = name.textValue();
  _fileSize = wholeNumber(record[kFileSize]);
  if (!settings_->destination &&
      !platform::staysInDirectory(getDirectoryPath({}), withoutDotComponents(_fileName))) {
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
    logger().logError(texts::kTemplateNotParsed, parseError);
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
    headers_ = headersForStore(input[keys::kUrl].textValue());
  }
  if (const Dictionary* options = input[keys::kOptions].dictionary()) options_ = *options;
  return nullptr;
}

bool ChunkedFileDownloaderTask::shouldDownloadFile() const {
  // Asked for in any case: the directory has to be there for the bytes to be received into it.
  const std::string path = getFilePath();
  if (options_.value_or(Dictionary{})[keys::kForceDownload].boolValue()) return true;
  struct stat status {};
  // A link to nothing is no file; storing the bytes under its name fails.
  if (::stat(path.c_str(), &status) != 0) return true;
  // What is there may be an earlier version, or what another program left.
  return isSafe() && _fileSize && status.st_size != *_fileSize;
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
  using enum platform::Durability;
  *error = platform::storeFile(path, bytes, isSafe() ? kSynced : kNone).error();
  return path;
}

void ChunkedFileDownloaderTask::execute() {
  ErrorPtr error;
  unpackInputContextWithError(&error);
  if (error != nullptr) return raiseError(error);
  const auto& destination = settings_->destination;
  if (!destination && !shouldDownloadFile()) return endWithFileAt(getFilePath());
  Dictionary options =
      requestOptions(settings_->limits.file.value_or(platform::ResponseLimits::kUnlimited));
  // Where the file will be: storing it is then a change of name and no copy.
  options.set(platform::kSpoolDirectory,
              destination ? destination->spoolDirectory : getDirectoryPath({}));
  std::string_view kind = kOperationTypeDownload;
  if (destination) {
    if (destination->receiver != nullptr) {
      options.set(platform::kBodyReceiver, destination->receiver);
    }
    headers_.addEntries(destination->headers);
    if (destination->headers.contains(kRange)) kind = kOperationTypeRange;
  }
  BinaryNetworkUtils::GET(url_.value_or(std::string()), _queryParams, headers_, options, kind,
                          completion(&ChunkedFileDownloaderTask::processResponse));
}

void ChunkedFileDownloaderTask::processResponse(const Dictionary& response,
                                                const NetworkErrorPtr& error) {
  if (error != nullptr) return raiseError(error);
  const Data* received = response[kResponseData].data();
  const Data bytes = received != nullptr ? *received : Data();
  if (settings_->destination) {
    const Result<std::string> stored = settings_->destination->store(bytes);
    return stored ? endWithFileAt(*stored) : raiseError(storeError(stored.error()));
  }
  ErrorPtr failure;
  const std::string path = saveFileWithBytes(bytes, &failure);
  if (failure != nullptr) {
    logger().logError(texts::kNotStored, failure);
    if (isSafe()) return raiseError(storeError(failure));
  }
  endWithFileAt(path);
}

void ChunkedFileDownloaderTask::endWithFileAt(const std::string& path) {
  _outputContext.set(keys::kFileName, _fileName);
  _outputContext.set(keys::kFilePath, path);
  setState(TaskState::Ended);
}

}  // namespace varo::binary
