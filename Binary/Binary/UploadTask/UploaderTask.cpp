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
using platform::DictionaryEntry;
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
constexpr std::string_view kAnswerCountsAsEmpty =
    "The answer can't be read and counts as empty : %@";
constexpr std::string_view kTemplateNotDictionary =
    "the upload template is no JSON object once it is filled";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

std::optional<Dictionary> optionalDictionary(const Value& value) {
  return value.isDictionary() ? std::optional(*value.dictionary()) : std::nullopt;
}

/// Missing where that is no JSON.
Value filledTemplate(const TemplateUtil& text, const Dictionary& params) {
  return CommonUtils::parseJsonString(
      text.tryPopulateJSONTemplate(TemplateUtil::escapedForJson(params)));
}

std::string urlFrom(const Dictionary& filled, const std::optional<Dictionary>& options) {
  const Value& endpoint = filled[kTemplateParamEndpointUrl];
  if (CommonUtils::isGiven(endpoint)) return endpoint.textValue();
  return TemplateUtil::endPointURLFrom(filled, options).value_or(std::string());
}

}  // namespace

UploaderTask::UploaderTask(std::string name, const Texts& texts)
    : VSTask(std::move(name)), texts_(texts) {}

void UploaderTask::execute() {
  if (!unpackInputContext()) return;
  if (extractTemplate() && prepareRequest()) uploadFile();
}

bool UploaderTask::unpackInputContext() {
  const Dictionary input = inputContext();
  if (input.contains(keys::kUploadParams)) {
    uploadParams_ = input[keys::kUploadParams].dictionaryValue();
  } else {
    logger().logInfo(texts_.noUploadParams);
  }
  redirectionTemplate_ = input[upload::kRedirectionTemplate].dictionaryValue();
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

/// False if an error was raised.
bool UploaderTask::extractTemplate() {
  const Dictionary input = inputContext();
  const std::optional<Dictionary> options = optionalDictionary(input[keys::kOptions]);
  const TemplateUtil text(input[upload::kTemplateString].textValue());
  const Value parsed = filledTemplate(text, uploadParams_);
  if (!parsed.isDictionary() && transferPolicy() == TransferPolicy::kSafe) {
    raise(kCodeUploadInvalidParameterValue, kUploadInvalidParameterValue, kTemplateNotDictionary);
    return false;
  }
  const Dictionary filled = parsed.dictionaryValue();
  requestBody_ = filled[upload::kRequestBody].dictionaryValue();
  url_ = urlFrom(filled, options);
  headers_ =
      TemplateUtil::injectVaroAuthorizationInto(filled[keys::kHeaders].dictionaryValue(), options);
  if (BinaryLogger::isEnabled(LogLevel::kDebug)) logTemplate(text, options);
  if (const auto& started = blocks_.onBytesUploadStartedCompletionBlock) {
    callBlock([&] { started->function()(name(), input[keys::kUploadParams]); });
  }
  return true;
}

/// A secret may be filled in anywhere, so this fills the template without the secrets.
void UploaderTask::logTemplate(const TemplateUtil& text,
                               const std::optional<Dictionary>& options) const {
  Dictionary params;
  for (const DictionaryEntry& entry : uploadParams_) {
    params.set(entry.key,
               platform::isSecretKey(entry.key) ? Value(platform::kRedacted) : entry.value);
  }
  const Dictionary filled = filledTemplate(text, params).dictionaryValue();
  if (const Value& requestBody = filled[upload::kRequestBody]; CommonUtils::isGiven(requestBody)) {
    logger().logDebug(texts_.requestBody, platform::redactSecrets(requestBody.description()));
  }
  logger().logDebug(texts_.url, platform::redactUrl(urlFrom(filled, options)));
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
  const Result<std::string> details = CommonUtils::responseText(withData);
  if (!details) {
    if (transferPolicy() == TransferPolicy::kSafe) {
      return raise(kCodeUploadFailure, kUploadFailure, details.error()->localizedDescription());
    }
    logger().logError(kAnswerCountsAsEmpty, details.error());
  }
  logger().logDebug(texts_.completed);
  _outputContext.set(upload::kFileDetails, details ? *details : std::string());
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
