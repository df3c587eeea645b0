#include "Binary/Binary/UploadTask/UploaderTask.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/UploadTask/UploadLogTexts.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <memory>

namespace varo::binary {

using platform::HttpResponseInfo;
using platform::NetworkCallback;

namespace {

namespace texts = log_texts::uploader_task;

constexpr int kOk = 200;
constexpr int kCreated = 201;
constexpr int kMultipleChoices = 300;

constexpr std::string_view kTemplateNotDictionary =
    "the upload template is no JSON object once it is filled";

std::optional<Dictionary> optionalDictionary(const Value& value) {
  return value.isDictionary() ? std::optional(*value.dictionary()) : std::nullopt;
}

bool isSuccess(int status, const OperationSettings& settings) {
  if (settings.isSafe()) return status >= kOk && status < kMultipleChoices;
  return status == kOk || status == kCreated;
}

/// Missing where that is no JSON.
Value filledTemplate(const TemplateUtil& text, const Dictionary& params) {
  return CommonUtils::parseJsonString(
      text.tryPopulateJSONTemplate(TemplateUtil::escapedForJson(params)),
      platform::kFilledJsonLimits);
}

/// Empty, which no request accepts, where the template names none.
Result<std::string> urlFrom(const Dictionary& filled, const std::optional<Dictionary>& options) {
  const Value& endpoint = filled[kTemplateParamEndpointUrl];
  if (CommonUtils::isGiven(endpoint)) return endpoint.textValue();
  const auto address = TemplateUtil::endPointAtItsDomain(filled, options);
  if (!address) return address.error();
  return address->value_or(std::string());
}

bool isAt(const std::string& url, const Value& server) {
  return server.isText() && BinaryNetworkUtils::addressAtServer(url, *server.text()).ok();
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
  if (settings()->isSafe()) {
    raise(kCodeUploadIOFailure, kUploadIOFailure, bytes.error());
    return false;
  }
  logger().logError(texts::kFileCountsAsEmpty, bytes.error());
  fileData_ = Data();
  return true;
}

/// False if an error was raised.
bool UploaderTask::extractTemplate() {
  const Dictionary input = inputContext();
  const std::optional<Dictionary> options = optionalDictionary(input[keys::kOptions]);
  const TemplateUtil text(input[upload::kTemplateString].textValue());
  const Value parsed = filledTemplate(text, uploadParams_);
  if (!parsed.isDictionary() && settings()->isSafe()) {
    raise(kCodeUploadInvalidParameterValue, kUploadInvalidParameterValue, kTemplateNotDictionary);
    return false;
  }
  const Dictionary filled = parsed.dictionaryValue();
  requestBody_ = filled[upload::kRequestBody].dictionaryValue();
  const Result<std::string> url = urlFrom(filled, options);
  if (!url) {
    raise(kCodeMissingServerUrl, kUploadFailure, url.error());
    return false;
  }
  url_ = *url;
  headers_ = filled[keys::kHeaders].dictionaryValue();
  if (mayHaveToken(input, options)) {
    headers_ = TemplateUtil::injectVaroAuthorizationInto(std::move(headers_), options);
  }
  if (BinaryLogger::isEnabled(LogLevel::kDebug)) logTemplate(text, options);
  // Before the request is signed: an upload that cannot be signed has started, and then fails.
  if (const auto& started = blocks_.onBytesUploadStartedCompletionBlock) {
    callBlock([&] { started->function()(name(), input[keys::kUploadParams]); });
  }
  return true;
}

bool UploaderTask::mayHaveToken(const Dictionary& input,
                                const std::optional<Dictionary>& options) const {
  // The template comes from a server, so it could name any address to send the token to.
  if (!settings()->isSafe()) return true;
  return isAt(url_, input[kURL]) || (options && isAt(url_, (*options)[kTemplateParamDomain]));
}

/// A secret may be filled in anywhere, so this fills the template without the secrets.
void UploaderTask::logTemplate(const TemplateUtil& text,
                               const std::optional<Dictionary>& options) const {
  Dictionary params;
  for (const auto& entry : uploadParams_) {
    params.set(entry.key,
               platform::isSecretKey(entry.key) ? Value(platform::kRedacted) : entry.value);
  }
  const Dictionary filled = filledTemplate(text, params).dictionaryValue();
  if (const Value& requestBody = filled[upload::kRequestBody]; CommonUtils::isGiven(requestBody)) {
    logger().logDebug(texts_.requestBody, platform::redactSecrets(requestBody.description()));
  }
  const Result<std::string> url = urlFrom(filled, options);
  if (url) logger().logDebug(texts_.url, platform::redactUrl(*url));
}

NetworkCallback UploaderTask::completion() {
  // The request holds the task: nobody else may while it waits for the response. What is thrown
  // here ends the task, which would otherwise never end.
  return [self = self<UploaderTask>()](const std::optional<Data>& data, const Dictionary& response,
                                       const NetworkErrorPtr& error) {
    self->guarded([&] { self->processAnswer(data, response, error); });
  };
}

void UploaderTask::processAnswer(const std::optional<Data>& data, const Dictionary& response,
                                 const ErrorPtr& error) {
  if (const auto failure = CommonUtils::validateResponseforTask(ID(), kBytesUploaderErrorDomain,
                                                                response, data, error)) {
    return raiseError(failure);
  }
  processNetworkResponse(response, data);
}

void UploaderTask::processNetworkResponse(const Dictionary& response,
                                          const std::optional<Data>& withData) {
  const auto info = response[platform::kHttpResponse].objectAs<HttpResponseInfo>();
  const int status = info != nullptr ? info->statusCode() : 0;
  if (!isSuccess(status, *settings())) return raiseUnexpectedStatus(status, withData);
  const Result<std::string> details = CommonUtils::responseText(withData);
  if (!details) {
    if (settings()->isSafe()) {
      return raise(kCodeUploadFailure, kUploadFailure, details.error());
    }
    logger().logError(texts::kAnswerCountsAsEmpty, details.error());
  }
  logger().logDebug(texts_.completed);
  _outputContext.set(upload::kFileDetails, details ? *details : std::string());
  setState(TaskState::Ended);
}

void UploaderTask::raiseUnexpectedStatus(int status, const std::optional<Data>& body) {
  logger().logError(texts_.unexpectedStatus, status);
  const auto error =
      CommonUtils::getErrorForTask(ID(), texts_.domain, kCodeUploadUnexpectedHTTPResponseCode,
                                   kUploadUnexpectedHTTPResponseCode, std::nullopt);
  if (!settings()->isSafe()) return raiseError(error);
  Dictionary userInfo = error->userInfo();
  userInfo.set(kHttpStatusCode, status);
  if (body) {
    // The store may repeat what it was sent, keys and signatures among it; the excerpt leaves out
    // what has the name of a secret here.
    Dictionary sent = uploadParams_;
    sent.addEntries(headers_);
    userInfo.set(kResponseBody, platform::excerptOf(*body, sent));
  }
  raiseError(std::make_shared<const VSTaskError>(error->taskID(), error->domain(), error->code(),
                                                 std::move(userInfo)));
}

void UploaderTask::raise(std::int32_t code, std::string_view message, std::string_view detail,
                         const ErrorPtr& cause) {
  raiseError(CommonUtils::getErrorForTask(
      ID(), texts_.domain, code, platform::formatMessage(kMessageAndDetail, {message, detail}),
      std::nullopt, cause));
}

void UploaderTask::raise(std::int32_t code, std::string_view message, const ErrorPtr& cause) {
  raise(code, message, cause->localizedDescription(), cause);
}

OperationSettings::Ptr UploaderTask::settings() const {
  return OperationSettings::of(inputContext());
}

Dictionary UploaderTask::requestOptions() const {
  const auto all = settings();
  return OperationSettings::forRequest(all, {}, all->limitsOf(all->limits.small));
}

}  // namespace varo::binary
