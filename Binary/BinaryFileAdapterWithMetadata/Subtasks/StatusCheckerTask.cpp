#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/StatusCheckerTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingSchedule.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"

#include <algorithm>
#include <memory>

namespace varo::binary {

StatusCheckerTask::StatusCheckerTask(ErrorPtr* error) : BinaryBaseTask(error) { initializeIvars(); }

std::string_view StatusCheckerTask::errorDomain() const noexcept { return kDeleteErrorDomain; }

void StatusCheckerTask::initializeIvars() {
  _pollingUrl.clear();
  _currentIteration = 1;
  _headers = {};
}

void StatusCheckerTask::unpackInputContext() {
  initializeIvars();
  const Dictionary input = takeInput();
  _pollingUrl = input[keys::kPollingUrl].textValue();
  _headers.set(kIgnoreMapperResponseFiltering, kTrue);
  for (const auto& header : input[keys::kHeaders].dictionaryValue()) {
    BinaryNetworkUtils::setHeader(_headers, header.key, header.value);
  }
  _queryParams = input[keys::kQueryParams].dictionaryValue();
  _pollingSuccessIndicators = input[keys::kPollingSuccessIndicators].dictionaryValue();
  if (const Value* iteration = input.find(keys::kCurrentIteration)) {
    _currentIteration = iteration->integerValue();
  }
  options_ = optionalDictionary(input[keys::kOptions]);
}

void StatusCheckerTask::execute() {
  unpackInputContext();
  // The parameters were part of an address that the service gave, and are encoded already.
  BinaryNetworkUtils::GET(BinaryNetworkUtils::appendQueryOfUrl(_pollingUrl, _queryParams), {},
                          _headers, requestOptions(settings_->limits.small),
                          kOperationTypeStatusChecker,
                          completion(&StatusCheckerTask::processResponse));
}

void StatusCheckerTask::processResponse(const Dictionary& response, const NetworkErrorPtr& error) {
  if (error != nullptr) return raiseError(error);
  const bool status = isFinished(response);
  _outputContext.set(keys::kPollingStatus, status);
  Dictionary entries = response;
  // Existing services may end the loop, or keep it going, with an entry of this name.
  if (isSafe()) entries.remove(keys::kPollingStatus);
  _outputContext.addEntries(entries);
  if (!status) {
    logger().logInfo("%@%ld", kServiceStillWorking, _currentIteration);
  }
  if (!status && _currentIteration == polling::kMaxStatusRequests) {
    return raiseError(std::make_shared<const Error>(std::string(kRetriesExceededErrorDomain),
                                                    kCodeHTTPRequestFailed, Dictionary{}));
  }
  setState(TaskState::Ended);
}

bool StatusCheckerTask::isFinished(const Dictionary& response) const {
  return std::all_of(_pollingSuccessIndicators.begin(), _pollingSuccessIndicators.end(),
                     [&response](const Dictionary::Entry& indicator) {
                       return response[indicator.key] == indicator.value;
                     });
}

}  // namespace varo::binary
