#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpCookieStore.h"

#include <string_view>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::binary_delete_task;

constexpr std::string_view kNoPollApi =
    "The service accepted the delete for later, but its response has no \"poll_api\" to ask for "
    "its status";
constexpr std::string_view kNoService =
    "The service accepted the delete for later, but its URL has no \"services\" to ask for its "
    "status";

NetworkErrorPtr operationError(Dictionary userInfo) {
  return std::make_shared<const NetworkError>(std::string(kNetworkOperationErrorDomain),
                                              kCodeHTTPRequestFailed, std::move(userInfo),
                                              platform::currentCallStack());
}

NetworkErrorPtr operationError(std::string_view description) {
  return operationError(Dictionary{{std::string(platform::kLocalizedDescriptionKey), description}});
}

}  // namespace

BinaryDeleteTask::BinaryDeleteTask(platform::Random& random, platform::Sleeper& sleeper,
                                   ErrorPtr error)
    : BinaryBaseTask(&error) {
  logFailedInit(texts::kInitFailed, error);
  if (error != nullptr) return;
  setupSubTasksWithError(&error, random, sleeper);
  logFailedInit(texts::kSetupFailed, error);
}

std::string_view BinaryDeleteTask::errorDomain() const noexcept { return kDeleteErrorDomain; }

void BinaryDeleteTask::setupSubTasksWithError(ErrorPtr* error, platform::Random& random,
                                              platform::Sleeper& sleeper) {
  const auto polling = std::make_shared<PollingTask>(error, random, sleeper);
  addSubtask(polling);
  _pollingTask = polling;
}

void BinaryDeleteTask::unpackInputContext() {
  const Dictionary input = takeInput();
  url_ = input[keys::kUrl].textValue().append(kObjectsFileSuffix);
  headers_ = Dictionary{{kIgnoreMapperResponseFiltering, kTrue}};
  for (const auto& header : input[keys::kHeaders].dictionaryValue()) {
    BinaryNetworkUtils::setHeader(headers_, header.key, header.value);
  }
  BinaryNetworkUtils::setHeader(headers_, kContentType, kContentTypeJson);
  options_ = optionalDictionary(input[keys::kOptions]);
  if (const Value* context = input.find(keys::kRequestContext)) {
    _requestContext = context->dictionaryValue();
  }
  const std::string filter = BinaryCommonUtils::generateFilterStringWithMetadata(_requestContext);
  _filter = platform::trimmed(filter);
  _queryParams.set(kQueryFilter, _filter);
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
}

void BinaryDeleteTask::execute() {
  platform::HttpCookieStore::sharedStore().setAcceptPolicy(platform::CookieAcceptPolicy::kAlways);
  unpackInputContext();
  BinaryNetworkUtils::DELETE(*url_, _queryParams, headers_, requestOptions(settings_->limits.small),
                             completion(&BinaryDeleteTask::processResponse));
}

void BinaryDeleteTask::processResponse(const Dictionary& response, const NetworkErrorPtr& error) {
  if (error != nullptr) return fail(error);
  _outputContext.addEntries(response);
  _outputContext.set(keys::kRequestContext, _requestContext);
  if (response[kHttpStatusCode].textValue() == kHttpStatusAccepted) return poll(response);
  succeed();
}

void BinaryDeleteTask::poll(const Dictionary& response) {
  const std::string* pollApi = response[kPollApi].text();
  if (pollApi == nullptr || pollApi->empty()) return fail(operationError(kNoPollApi));
  if (url_->find(kServices) == std::string::npos) return fail(operationError(kNoService));
  auto address = BinaryNetworkUtils::addressAtServer(
      BinaryNetworkUtils::extractPollingUrl(url_, *pollApi), *url_);
  if (!address) return fail(address.error());

  const auto polling = _pollingTask.lock();
  polling->subscribeForTaskUpdates(shared_from_this());
  runSubtask(polling,
             {{keys::kPollingUrl, std::move(address).value()},
              {keys::kQueryParams, BinaryNetworkUtils::extractQueryParams(*pollApi)},
              {keys::kPollingSuccessIndicators, Dictionary{{kPollStatus, kPollStatusDone}}},
              {keys::kHeaders, headers_},
              {kOperationSettings, OperationSettings::value(settings_)}});
}

void BinaryDeleteTask::task(const std::shared_ptr<VSTask>& task, TaskState /*from*/, TaskState to,
                            const Dictionary& context) {
  const auto polling = std::dynamic_pointer_cast<PollingTask>(task);
  if (polling == nullptr) return;
  guarded([&] {
    if (to == TaskState::Ended) pollingEnded(*polling);
    if (to == TaskState::Errored) pollingFailed(*polling, context);
  });
}

void BinaryDeleteTask::pollingEnded(const VSTask& polling) {
  _outputContext.addEntries(polling.outputContext());
  for (const char* aboutPolling : {keys::kPollingStatus, kPollApi, kPollStatus}) {
    _outputContext.remove(aboutPolling);
  }
  // The callback first: the reverse of an end without polling, and what callers count on.
  BinaryCallbackUtils::executeSuccessCallback(binaryCallback_, outputContext());
  setState(TaskState::Ended);
}

void BinaryDeleteTask::pollingFailed(const VSTask& polling, const Dictionary& context) {
  _outputContext.addEntries(polling.outputContext());
  const std::string key(platform::kTaskErrors);
  const Value& errors = context[key];
  ErrorPtr cause;
  if (errors.array() != nullptr && !errors.array()->empty()) cause = (*errors.array())[0].error();
  if (cause != nullptr && cause->code() == kCodeOperationCancelled) return fail(cause);
  fail(operationError(
      Dictionary{{key, errors}, {std::string(platform::kUnderlyingError), Value(cause)}}));
}

void BinaryDeleteTask::subtaskFinished(const std::shared_ptr<VSTask>& /*subtask*/,
                                       TaskState /*state*/) {}

}  // namespace varo::binary
