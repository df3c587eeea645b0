#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Platform/Foundation/Redaction.h"

namespace varo::binary {

BinaryBaseTask::BinaryBaseTask(ErrorPtr* /*error*/) {}

void BinaryBaseTask::unpackFileRequest(const Dictionary& input) {
  url_ = input[keys::kUrl].textValue().append(kObjectsFileSuffix);
  headers_ = Dictionary{{kContentType, kContentTypeJson}};
  for (const auto& header : input[keys::kHeaders].dictionaryValue()) {
    BinaryNetworkUtils::setHeader(headers_, header.key, header.value);
  }
  options_ = optionalDictionary(input[keys::kOptions]);
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
}

Dictionary BinaryBaseTask::takeInput() {
  Dictionary input = inputContext();
  settings_ = OperationSettings::of(input);
  return input;
}

std::string_view BinaryBaseTask::errorDomain() const noexcept {
  return kBinaryNetworkUtilsErrorDomain;
}

Dictionary BinaryBaseTask::requestOptions(std::uint64_t answerLimit) const {
  return OperationSettings::forRequest(settings_, options_.value_or(Dictionary{}),
                                       settings_->limitsOf(answerLimit));
}

Dictionary BinaryBaseTask::headersForStore(std::string_view serviceUrl) const {
  Dictionary headers = BinaryNetworkUtils::withoutHeaders(headers_, {kVaroAuthorization});
  if (!isSafe() || BinaryNetworkUtils::addressAtServer(url_.value_or(std::string()), serviceUrl)) {
    return headers;
  }
  Dictionary others;
  for (const auto& header : headers) {
    if (!platform::isSecretKey(header.key)) others.set(header.key, header.value);
  }
  return others;
}

NetworkErrorPtr BinaryBaseTask::causeOf(const NetworkErrorPtr& error) const {
  if (error == nullptr || !settings_->cancellation.stop_requested()) return error;
  return std::make_shared<const NetworkError>(
      std::string(errorDomain()), kCodeOperationCancelled,
      Dictionary{{std::string(platform::kLocalizedDescriptionKey), kOperationCancelled}},
      error->callStack());
}

void BinaryBaseTask::logFailedInit(std::string_view message, const ErrorPtr& error) {
  if (error != nullptr) logger().logFatal(message, error);
}

void BinaryBaseTask::reportFailure(const ErrorPtr& error) {
  BinaryCallbackUtils::executeFailureCallback(binaryCallback_, error);
}

void BinaryBaseTask::fail(const ErrorPtr& error) {
  // Noted first: whoever hears of the task's end must not take this one for untold.
  const bool isFirst = binaryCallback_ != nullptr && binaryCallback_->noteEnd();
  raiseError(error);
  if (isFirst || error->code() != kCodeOperationCancelled) reportFailure(error);
}

void BinaryBaseTask::succeed() {
  // Taken before the end: whoever hears of that may change the context.
  const Value result = outputContext();
  if (binaryCallback_ != nullptr) binaryCallback_->noteEnd();
  setState(TaskState::Ended);
  BinaryCallbackUtils::executeSuccessCallback(binaryCallback_, result);
}

void BinaryBaseTask::addResponseForNextTask(Dictionary response,
                                            std::initializer_list<const char*> callersOwn) {
  // The response comes from a server, which must not replace what the caller gave.
  for (const char* own : callersOwn) response.remove(own);
  _outputContext.addEntries(response);
}

std::optional<Dictionary> BinaryBaseTask::optionalDictionary(const Value& value) {
  const Dictionary* dictionary = value.dictionary();
  return dictionary != nullptr ? std::optional(*dictionary) : std::nullopt;
}

}  // namespace varo::binary
