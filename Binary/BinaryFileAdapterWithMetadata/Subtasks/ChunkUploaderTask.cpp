#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkUploaderTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/UploadErrors.h"
#include "Platform/Foundation/Base64.h"
#include "Platform/Network/FormData.h"
#include "Platform/TaskEngine/DeliveryHold.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::RequestType;

namespace {

constexpr std::string_view kNoChunkSize = "chunkSize has to be a positive number";
constexpr std::string_view kOffsetOutside = "bytesOffset is outside the content";
constexpr std::string_view kNoContent = "file holds neither a filePath nor rawBytes";
constexpr std::string_view kNotBase64 = "rawBytes is not Base64";
constexpr std::string_view kUnknownMethod =
    "the upload template's method is neither put nor post : ";
constexpr std::string_view kSendsNoBytes =
    "the upload template's uploadMode and method send no bytes : ";

/// The bytes that the content description names. Those of a file stay there.
Result<Data> contentOf(const Dictionary& fileMap) {
  if (const Value* path = fileMap.find(keys::kFilePath)) {
    Result<Data> content = Data::fromFile(path->textValue());
    if (content.ok()) return content;
    return uploadError(kCodeUploadIOFailure, kUploadIOFailure,
                       content.error()->localizedDescription());
  }
  const Value& rawBytes = fileMap[keys::kRawBytes];
  if (const Data* bytes = rawBytes.data()) return *bytes;
  const std::string* text = rawBytes.text();
  if (text == nullptr) {
    return missingUploadParameter(kNoContent);
  }
  auto decoded = platform::base64::decode(*text);
  if (decoded) return Data::fromBytes(*std::move(decoded));
  return uploadParameterOfWrongType(kNotBase64);
}

}  // namespace

ChunkUploaderTask::ChunkUploaderTask(ErrorPtr* error) : BinaryBaseTask(error) { initializeIVars(); }

std::string_view ChunkUploaderTask::errorDomain() const noexcept { return kUploadErrorDomain; }

void ChunkUploaderTask::initializeIVars() {
  _dataBytes = Data();
  _isLastChunk = false;
  _fileId.clear();
  _chunkId = 0;
  _chunkSize = kDefaultChunkSize;
  _byteOffset = 0;
  _totalFileSize = 0;
  _bytesUploadedTillNow = 0;
  _fileMap = {};
  _metadata = {};
  _queryParams = {};
}

bool ChunkUploaderTask::unpackInputContext(ErrorPtr* error) {
  initializeIVars();
  const Dictionary input = takeInput();
  url_ = input[keys::kUrl].textValue();
  headers_ = input[keys::kHeaders].dictionaryValue();
  _metadata = input[keys::kMetadata].dictionaryValue();
  _fileId = input[keys::kFileId].textValue();
  _metadata.set(keys::kFileId, input[keys::kFileId]);
  passFileIdToCommit(input);
  options_ = optionalDictionary(input[keys::kOptions]);
  _fileMap = input[keys::kFile].dictionaryValue();
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
  const Value* offset = input.find(keys::kBytesOffset);
  if (offset != nullptr) _byteOffset = offset->integerValue();
  if (!unpackChunkSize(input, error)) return false;
  if (!unpackContent(offset == nullptr, error)) return false;
  // From the place in the file, so that a repeated chunk has the number that it had.
  _chunkId = _byteOffset / _chunkSize + 1;

  const bool inChunks = input[keys::kChunkUpload].boolValue();
  if (_fileMap.contains(keys::kFilePath)) {
    takeChunkOfFile(inChunks);
  } else {
    takeChunkOfRawBytes(inChunks);
  }
  return true;
}

/// The commit reads the identifier from the upload parameters' metadata.
void ChunkUploaderTask::passFileIdToCommit(const Dictionary& input) {
  Dictionary uploadParams = input[keys::kUploadParams].dictionaryValue();
  Dictionary metadata = uploadParams[keys::kMetadata].dictionaryValue();
  metadata.set(keys::kFileId, input[keys::kFileId]);
  uploadParams.set(keys::kMetadata, std::move(metadata));
  _inputContext.set(keys::kUploadParams, std::move(uploadParams));
}

bool ChunkUploaderTask::unpackChunkSize(const Dictionary& input, ErrorPtr* error) {
  const Dictionary uploadParams = input[keys::kUploadParams].dictionaryValue();
  _chunkSize = options_.value_or(Dictionary{})[keys::kChunkSize].integerValue();
  if (_chunkSize < 1) _chunkSize = uploadParams[keys::kChunkSize].integerValue();
  if (_chunkSize >= 1) return true;
  *error = unusableUploadParameter(kNoChunkSize);
  return false;
}

bool ChunkUploaderTask::unpackContent(bool isFirstChunk, ErrorPtr* error) {
  // Opened with the first chunk and kept: chunks of a file that is
  // replaced meanwhile must not be mixed.
  if (isFirstChunk || content_.empty()) {
    Result<Data> content = contentOf(_fileMap);
    if (!content) {
      *error = content.error();
      return false;
    }
    content_ = std::move(content).value();
  }
  _totalFileSize = static_cast<std::int64_t>(content_.size());
  if (_byteOffset >= 0 && _byteOffset <= _totalFileSize) return true;
  *error = unusableUploadParameter(kOffsetOutside);
  return false;
}

void ChunkUploaderTask::takeChunkOfFile(bool inChunks) {
  if (!inChunks || _totalFileSize <= _chunkSize) {
    _dataBytes = content_;
    _isLastChunk = true;
    return;
  }
  const std::int64_t length = std::min(_chunkSize, _totalFileSize - _byteOffset);
  _dataBytes =
      content_.slice(static_cast<std::uint64_t>(_byteOffset), static_cast<std::uint64_t>(length));
  _byteOffset += length;
  _isLastChunk = _byteOffset >= _totalFileSize;
}

void ChunkUploaderTask::takeChunkOfRawBytes(bool inChunks) {
  const std::int64_t rest = _totalFileSize - _byteOffset;
  const std::int64_t length = std::min(_chunkSize, rest);
  _isLastChunk = !inChunks || _chunkSize >= rest;
  if (!_isLastChunk || isSafe()) {
    const std::int64_t taken = _isLastChunk ? rest : length;
    _dataBytes =
        content_.slice(static_cast<std::uint64_t>(_byteOffset), static_cast<std::uint64_t>(taken));
  } else {
    // All the bytes once more, unlike a file's last chunk: existing services count on it.
    _dataBytes = content_;
  }
  _byteOffset += length;
}

void ChunkUploaderTask::generateQueryParamsForCurrentChunk() {
  _queryParams.set(kQueryChunkSequence, std::to_string(_chunkId));
  _queryParams.set(keys::kFileNamespace, _metadata[keys::kFileNamespace]);
  _queryParams.set(keys::kSecurityKey, _metadata[keys::kSecurityKey]);
}

void ChunkUploaderTask::execute() {
  ErrorPtr error;
  if (!unpackInputContext(&error)) {
    _outputContext.set(keys::kIsLastChunk, _isLastChunk);
    return fail(error);
  }
  const Dictionary input = inputContext();
  send(makeRequest(input), input[keys::kMethod].textValue());
}

ChunkUploaderTask::ChunkRequest ChunkUploaderTask::makeRequest(const Dictionary& input) {
  ChunkRequest request;
  request.headers = headers_;
  if (input[keys::kDomain] == Value(kMiddlewareDomain)) {
    generateQueryParamsForCurrentChunk();
    request.repeat = platform::Repeat::kAlways;  // the service knows it by its number
  } else {
    // Another server: it gets neither the token nor what only the service understands.
    request.headers = BinaryNetworkUtils::withoutHeaders(
        headersForStore(input[keys::kCommitUrl].textValue()), {kIgnoreMapperResponseFiltering});
  }
  addContent(request, input[keys::kUploadMode].textValue());
  return request;
}

void ChunkUploaderTask::addContent(ChunkRequest& request, std::string_view uploadMode) const {
  using AddContent = void (ChunkUploaderTask::*)(ChunkRequest&) const;
  // All modes. This is the place to add one.
  static constexpr std::array<std::pair<std::string_view, AddContent>, 2> kUploadModes = {{
      {kUploadModeMultipart, &ChunkUploaderTask::addMultipartContent},
      {kUploadModeBinary, &ChunkUploaderTask::addRawContent},
  }};
  for (const auto& [name, add] : kUploadModes) {
    if (name == uploadMode) return (this->*add)(request);
  }
}

void ChunkUploaderTask::addMultipartContent(ChunkRequest& request) const {
  request.type = RequestType::kMultipart;
  const std::string disposition =
      platform::formDataDisposition(kPartName, _metadata[keys::kFileName].textValue());
  // Appended: compilers disagree on whether Array{part} is a list of one or a copy (CWG 2137).
  Array parts;
  parts.append(Array{Dictionary{{kContentType, kContentTypeOctetStream}},
                     Dictionary{{kPartContent, _dataBytes}},
                     Dictionary{{kContentDisposition, disposition}}});
  request.multipartBody = Dictionary{{kMultipartParts, std::move(parts)}};
}

void ChunkUploaderTask::addRawContent(ChunkRequest& request) const {
  BinaryNetworkUtils::setHeader(request.headers, kContentType, kContentTypeOctetStream);
  request.rawBody = _dataBytes;
}

void ChunkUploaderTask::send(const ChunkRequest& request, const std::string& method) {
  const bool hasBytes =
      method == kUploadMethodPut ? request.rawBody.isPresent() : !request.multipartBody.empty();
  if (isSafe() && !hasBytes && (method == kUploadMethodPut || method == kUploadMethodPost)) {
    return fail(unusableUploadParameter(std::string(kSendsNoBytes) + method));
  }
  Dictionary options = requestOptions(settings_->limits.small);
  options.set(platform::kRepeat, std::make_shared<platform::RepeatValue>(request.repeat));
  TaskCallback sent = completion(&ChunkUploaderTask::processNetworkResponse);
  if (method == kUploadMethodPut) {
    BinaryNetworkUtils::PUT(*url_, _queryParams, request.headers, request.type, request.rawBody,
                            options, std::move(sent), AnswerKind::kAnything);
  } else if (method == kUploadMethodPost) {
    BinaryNetworkUtils::POST(*url_, _queryParams, request.headers, request.type,
                             request.multipartBody, options, std::move(sent),
                             AnswerKind::kAnything);
  } else if (isSafe()) {
    fail(unusableUploadParameter(std::string(kUnknownMethod) + method));
  }
  // Otherwise the upload ends here in silence: with the completion goes what kept its tasks alive.
}

void ChunkUploaderTask::processNetworkResponse(const Dictionary& response,
                                               const NetworkErrorPtr& error) {
  _outputContext.set(keys::kIsLastChunk, _isLastChunk);
  if (error != nullptr) {
    const bool isFirst = binaryCallback_ != nullptr && binaryCallback_->noteEnd();
    setState(TaskState::Errored);
    // The cancellation has told the end already, unless this came first.
    if (isFirst || error->code() != kCodeOperationCancelled) reportFailure(error);
    return;
  }
  const Dictionary input = inputContext();
  _outputContext.addEntries(input);
  addResponseForNextTask(response, kCallersOwnEntries);
  // Once more, since a response that has an entry of this name must not keep the loop going.
  _outputContext.set(keys::kIsLastChunk, _isLastChunk);
  _outputContext.set(keys::kBytesOffset, _byteOffset);
  _outputContext.set(keys::kCommitUrl, input[keys::kCommitUrl]);
  reportProgress();
  // Closes the file, which would stay open as long as the task is kept.
  if (_isLastChunk) content_ = Data();
  // The loop asks for the next chunk on this thread.
  const platform::DeliveryHold hold(platform::DeliveryHold::Then::kHere);
  setState(TaskState::Ended);
}

void ChunkUploaderTask::reportProgress() {
  _bytesUploadedTillNow =
      (_chunkId - 1) * _chunkSize + static_cast<std::int64_t>(_dataBytes.size());
  BinaryCallbackUtils::executeProgressCallback(
      binaryCallback_,
      _isLastChunk ? OperationState::kLastChunkUploaded : OperationState::kChunkUploaded,
      Dictionary{{keys::kChunkId, _chunkId},
                 {keys::kChunkSize, _chunkSize},
                 {keys::kIsLastChunk, _isLastChunk},
                 {keys::kTotalBytesToUpload, _totalFileSize},
                 {keys::kBytesUploadedTillNow, _bytesUploadedTillNow}});
}

}  // namespace varo::binary
