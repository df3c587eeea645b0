#include "Binary/Binary/UploadTask/UploadTemplateGetterTask.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/UploadTask/UploadLogTexts.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <memory>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::HttpResponseInfo;
using platform::RequestType;
using platform::VRONetworkUtility;

namespace {

namespace texts = log_texts::upload_template_getter_task;

constexpr int kOk = 200;

}  // namespace

UploadTemplateGetterTask::UploadTemplateGetterTask(std::string name)
    : VSTask(std::move(name)), uploadFileName_(this->name()) {}

void UploadTemplateGetterTask::execute() {
  unpackInputContext();
  invokePostCall();
}

void UploadTemplateGetterTask::unpackInputContext() {
  const Dictionary input = inputContext();
  settings_ = OperationSettings::of(input);
  url_ = input[kURL].textValue();
  headers_ = input[keys::kHeaders].dictionaryValue();
  localFilePath_ = input[kFilePath];
  fileContent_ = input[keys::kRawBytes];
  unpackUploadParams(input);
}

UploadBlocks UploadTemplateGetterTask::blocks() const {
  const Dictionary input = inputContext();
  return {input[upload::kOnBytesUploadStarted].objectAs<OnBytesUploadStarted>(),
          input[upload::kOnByteChunkUploadCompleted].objectAs<OnByteChunkUploadCompleted>(),
          input[upload::kOnBytesUploadCompleted].objectAs<OnBytesUploadCompleted>(),
          input[upload::kOnUploadFailure].objectAs<OnUploadFailure>()};
}

void UploadTemplateGetterTask::unpackUploadParams(const Dictionary& input) {
  const Value& params = input[keys::kUploadParams];
  if (params.isMissing()) return;
  const Dictionary given = params.dictionaryValue();
  uploadParams_ = given;  // empty for one that is null
  const Value& fileName = given[upload::kFileName];
  if (CommonUtils::isGiven(fileName)) uploadFileName_ = fileName.textValue();
}

void UploadTemplateGetterTask::invokePostCall() {
  Dictionary options =
      OperationSettings::forRequest(settings_, {}, settings_->limitsOf(settings_->limits.small));
  // It asks, and makes nothing.
  options.set(platform::kRepeat,
              std::make_shared<platform::RepeatValue>(platform::Repeat::kAlways));
  // The request holds the task until the response is here; a throw in between ends the task.
  VRONetworkUtility::POST(url_, {}, headers_, RequestType::kJson, uploadParams_, options,
                          [self = self<UploadTemplateGetterTask>()](const std::optional<Data>& data,
                                                                    const Dictionary& response,
                                                                    const NetworkErrorPtr& error) {
                            self->guarded([&] { self->processAnswer(data, response, error); });
                          });
}

void UploadTemplateGetterTask::processAnswer(const std::optional<Data>& data,
                                             const Dictionary& response, const ErrorPtr& error) {
  if (const auto failure = CommonUtils::validateResponseforTask(ID(), kBytesUploaderErrorDomain,
                                                                response, data, error)) {
    return raiseError(failure);
  }
  processNetworkResponse(response, data);
}

void UploadTemplateGetterTask::processNetworkResponse(const Dictionary& response,
                                                      const std::optional<Data>& withData) {
  const auto info = response[platform::kHttpResponse].objectAs<HttpResponseInfo>();
  const int status = info != nullptr ? info->statusCode() : 0;
  if (status != kOk) {
    logger().logError(texts::kUnexpectedStatus, status);
    // A response may repeat what was posted, the keys of an object store among it.
    Dictionary sent = uploadParams_.dictionaryValue();
    sent.addEntries(headers_);
    const std::string answer = platform::excerptOf(withData.value_or(Data()), sent);
    Dictionary told;
    if (settings_->isSafe()) {
      told = {{std::string(kHttpStatusCode), status}, {std::string(kResponseBody), answer}};
    }
    return raise(
        kCodeUploadUnexpectedHTTPResponseCode,
        platform::formatMessage(kMessageAndDetail, {kUploadUnexpectedHTTPResponseCode, answer}),
        std::move(told));
  }
  if (settings_->isSafe() && withData.value_or(Data()).empty()) {
    return raise(kCodeEmptyBodyReceived, kEmptyBodyReceived);
  }
  logger().logInfo(texts::kSuccessful);
  _outputContext.set(
      upload::kRedirectionTemplate,
      CommonUtils::jsonObjectFromData(withData.value_or(Data()), settings_->limits.smallJson()));
  _outputContext.set(upload::kTemplateString, CommonUtils::getResponseString(withData));
  _outputContext.set(upload::kFileName, uploadFileName_);
  _outputContext.set(keys::kUploadParams, uploadParams_);
  _outputContext.set(keys::kRawBytes, fileContent_);
  _outputContext.set(kFilePath, localFilePath_);
  setState(TaskState::Ended);
}

void UploadTemplateGetterTask::raise(std::int32_t code, std::string_view message,
                                     Dictionary userInfo) {
  userInfo.set(std::string(platform::kErrorMessageKey), message);
  raiseError(std::make_shared<const VSTaskError>(
      ID(), name(), std::string(kUploadTemplateErrorDomain), code, std::move(userInfo)));
}

}  // namespace varo::binary
