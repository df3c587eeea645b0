#include "Binary/Binary/UploadTask/UploaderTask.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <memory>

namespace varo::binary {

using platform::Data;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::HttpResponseInfo;
using platform::LogLevel;
using platform::NetworkCallback;
using platform::NetworkErrorPtr;
using platform::Result;
using platform::TaskState;
using platform::Value;
using platform::VSTaskError;

namespace {

constexpr int kOk = 200;
constexpr int kCreated = 201;

constexpr std::string_view kFileCountsAsEmpty = "The file can't be read and counts as empty : %@";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

std::optional<Dictionary> optionalDictionary(const Value& value) {
  return value.isDictionary() ? std::optional(*value.dictionary()) : std::nullopt;
}

}  // namespace

UploaderTask::UploaderTask(std::string name, const Texts& texts)
    : VSTask(std::move(name)), texts_(texts) {}

void UploaderTask::execute() {
  if (!unpackInputContext()) return;
  extractTemplate();
  if (prepareRequest()) uploadFile();
}

bool UploaderTask::unpackInputContext() {
  const Dictionary input = inputContext();
  if (input.contains(keys::kUploadParams)) {
    uploadParams_ = input[keys::kUploadParams].dictionaryValue();
  } else {
    logger().logInfo(texts_.noUploadParams);
  }
  redirectionTemplate_ = input[upload::kRedirectionTemplate].dictionaryValue();
  uploadFileName_ = input[upload::kFileName].textValue();
  localFilePath_ = input[kFilePath].textValue();
  isErrorRaised_ = false;
  const Data* rawBytes = input[keys::kRawBytes].data();
  if (rawBytes == nullptr) return readFile();
  fileData_ = *rawBytes;
  return true;
}

bool UploaderTask::readFile() {
  Result<Data> bytes = Data::fromFile(localFilePath_);
  if (bytes) {
    fileData_ = std::move(bytes).value();
    return true;
  }
  if (transferPolicy() == TransferPolicy::kSafe) {
    raise(kCodeUploadIOFailure, kUploadIOFailure, bytes.error()->localizedDescription());
    return false;
  }
  logger().logError(kFileCountsAsEmpty, bytes.error());
  fileData_ = Data();
  return true;
}

void UploaderTask::extractTemplate() {
  const Dictionary input = inputContext();
  const std::optional<Dictionary> options = optionalDictionary(input[keys::kOptions]);
  const TemplateUtil text(input[upload::kTemplateString].textValue());
  const Dictionary filled =
      CommonUtils::parseJsonString(text.tryPopulateJSONTemplate(uploadParams_)).dictionaryValue();
  if (filled.contains(upload::kRequestBody)) {
    requestBody_ = filled[upload::kRequestBody].dictionaryValue();
    if (BinaryLogger::isEnabled(LogLevel::kDebug)) {
      logger().logDebug(texts_.requestBody,
                        platform::redactSecrets(Value(requestBody_).description()));
    }
  }
  if (filled.contains(keys::kHeaders)) headers_ = filled[keys::kHeaders].dictionaryValue();
  url_ = filled.contains(upload::kEndpointUrl)
             ? filled[upload::kEndpointUrl].textValue()
             : TemplateUtil::endPointURLFrom(filled, options).value_or(std::string());
  headers_ = TemplateUtil::injectVaroAuthorizationInto(headers_, options);
  if (BinaryLogger::isEnabled(LogLevel::kDebug)) {
    logger().logDebug(texts_.url, platform::redactSecrets(url_));
  }
  const auto& started = blocks_.onBytesUploadStartedCompletionBlock;
  if (started) callBlock([&] { started(name(), input[keys::kUploadParams]); });
}

NetworkCallback UploaderTask::completion() {
  return [self = self<UploaderTask>()](const std::optional<Data>& data, const Dictionary& response,
                                       const NetworkErrorPtr& error) {
    self->guarded([&] { self->processAnswer(data, response, error); });
  };
}

void UploaderTask::processAnswer(const std::optional<Data>& data, const Dictionary& response,
                                 const ErrorPtr& error) {
  if (const auto failure = CommonUtils::validateResponseforTask(
          ID(), upload::kBackendUploaderDomain, response, data, error)) {
    return raiseError(failure);
  }
  processNetworkResponse(response, data);
  checkForErrors(error);
}

void UploaderTask::processNetworkResponse(const Dictionary& response,
                                          const std::optional<Data>& withData) {
  const auto info = response[platform::kHttpResponse].objectAs<HttpResponseInfo>();
  const int status = info != nullptr ? info->statusCode() : 0;
  if (status != kOk && status != kCreated) return raiseUnexpectedStatus(status, withData);
  logger().logDebug(texts_.completed);
  _outputContext.set(upload::kFileDetails, CommonUtils::getResponseString(withData));
  setState(TaskState::Ended);
}

void UploaderTask::raiseUnexpectedStatus(int status, const std::optional<Data>& body) {
  logger().logError(texts_.unexpectedStatus, status);
  isErrorRaised_ = true;
  const auto error =
      CommonUtils::getErrorForTask(ID(), texts_.domain, kCodeUploadUnexpectedHTTPResponseCode,
                                   kUploadUnexpectedHTTPResponseCode, std::nullopt);
  if (transferPolicy() != TransferPolicy::kSafe) return raiseError(error);
  Dictionary userInfo = error->userInfo();
  CommonUtils::addAnswer(userInfo, status, body);
  raiseError(std::make_shared<const VSTaskError>(error->taskID(), error->domain(), error->code(),
                                                 std::move(userInfo)));
}

void UploaderTask::checkForErrors(const ErrorPtr& error) {
  if (error == nullptr) return;
  logger().logError(texts_.requestFailed);
  if (!isErrorRaised_) raise(kCodeUploadFailure, kUploadFailure, error->localizedDescription());
}

void UploaderTask::raise(std::int32_t code, std::string_view message, std::string_view detail) {
  isErrorRaised_ = true;
  raiseError(CommonUtils::getErrorForTask(
      ID(), texts_.domain, code, platform::formatMessage(kMessageAndDetail, {message, detail}),
      std::nullopt));
}

}  // namespace varo::binary
