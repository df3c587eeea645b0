#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/FileMetadataCreatorTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/Text.h"

#include <string_view>

namespace varo::binary {

using platform::RequestType;

namespace {

namespace texts = log_texts::file_metadata_creator_task;

constexpr std::string_view kNoTemplate = "the response to the creation has no upload_template";

}  // namespace

FileMetadataCreatorTask::FileMetadataCreatorTask(ErrorPtr* error) : BinaryBaseTask(error) {}

std::string_view FileMetadataCreatorTask::errorDomain() const noexcept {
  return kUploadErrorDomain;
}

void FileMetadataCreatorTask::unpackInputContext() {
  const Dictionary input = takeInput();
  const Dictionary uploadParams = input[keys::kUploadParams].dictionaryValue();
  url_ = input[keys::kUrl].textValue().append(kObjectsFileSuffix);
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
  headers_.addEntries(uploadParams[keys::kHeaders].dictionaryValue());
  BinaryNetworkUtils::setHeader(headers_, kIgnoreMapperResponseFiltering, kTrue);
  BinaryNetworkUtils::setHeader(headers_, kContentType, kContentTypeJson);
  _metadata = uploadParams[keys::kMetadata].dictionaryValue();
  ErrorPtr error;
  _bodyString = platform::VROCommonUtility::getJSONStringFromNSDictionary(_metadata, &error);
  if (!_bodyString) {
    logger().logError(texts::kMetadataNotJson);
    reportFailure(error);
    raiseError(error);
    return;
  }
  _fileMap = uploadParams[keys::kFile].dictionaryValue();
  options_ = optionalDictionary(input[keys::kOptions]);
}

void FileMetadataCreatorTask::execute() {
  // Where unpacking fails the request still goes out, with no body: the service counts on it.
  unpackInputContext();
  BinaryCallbackUtils::executeProgressCallback(binaryCallback_, OperationState::kUploadStarted, {});
  if (settings_->resumed) {
    _outputContext.set(keys::kBytesOffset, settings_->resumed->offset);
    return processResponse(settings_->resumed->creation, nullptr);
  }
  BinaryNetworkUtils::POST(*url_, {}, headers_, RequestType::kJson,
                           _bodyString ? Value(*_bodyString) : Value(),
                           requestOptions(settings_->limits.small),
                           completion(&FileMetadataCreatorTask::processResponse));
}

void FileMetadataCreatorTask::processResponse(const Dictionary& response,
                                              const NetworkErrorPtr& error) {
  if (error != nullptr) {
    logger().logError(texts::kRequestFailed, error);
    return fail(error);
  }
  std::optional<std::string> json;
  if (const std::string* text = response[keys::kUploadTemplate].text()) json = *text;
  ErrorPtr parseError;
  const auto uploadTemplate = BinaryNetworkUtils::getTemplate(json, &parseError);
  if (parseError != nullptr) {
    logger().logError(texts::kTemplateNotParsed, parseError);
    return fail(parseError);
  }
  if (!uploadTemplate && isSafe()) {
    // Without a template there is no method either, which would end the upload in silence.
    return fail(CommonUtils::generateErrorWith(
        kUploadErrorDomain, kCodeUploadJSONParsingError,
        platform::formatMessage(kMessageAndDetail, {kUploadJSONParsingError, kNoTemplate})));
  }
  if (const ErrorPtr refusal =
          copyDataToOutputContext(response, uploadTemplate.value_or(Dictionary{}))) {
    return fail(refusal);
  }
  if (settings_->onRecordMade) settings_->onRecordMade(response);
  setState(TaskState::Ended);
}

ErrorPtr FileMetadataCreatorTask::copyDataToOutputContext(const Dictionary& response,
                                                          const Dictionary& andTemplate) {
  auto url = BinaryNetworkUtils::fileOperationUrlAtItsServer(andTemplate, url_);
  if (!url) return url.error();
  // A response may name another address to commit at, but not another server.
  const Value& commitUrl = response[keys::kCommitUrl];
  if (commitUrl.isPresent()) {
    const auto checked = BinaryNetworkUtils::addressAtServer(commitUrl.textValue(), *url_);
    if (!checked) return checked.error();
  }
  _outputContext.set(keys::kMetadata, _metadata);
  _outputContext.set(keys::kCommitUrl, *url_);
  _outputContext.set(keys::kHeaders, headers_);
  _outputContext.set(keys::kOptions, options_ ? Value(*options_) : Value());
  _outputContext.set(keys::kFile, _fileMap);
  _outputContext.set(keys::kCallback, binaryCallback_);
  addResponseForNextTask(response, kCallersOwnEntries);
  _outputContext.set(keys::kDomain, andTemplate[kTemplateParamDomain]);
  _outputContext.set(keys::kUrl, std::move(url).value());
  _outputContext.set(keys::kUploadMode, andTemplate[keys::kUploadMode]);
  const Value* chunkUpload = andTemplate.find(keys::kChunkUpload);
  _outputContext.set(keys::kChunkUpload, chunkUpload == nullptr || chunkUpload->boolValue());
  _outputContext.set(keys::kMethod, andTemplate[keys::kMethod]);
  return nullptr;
}

}  // namespace varo::binary
