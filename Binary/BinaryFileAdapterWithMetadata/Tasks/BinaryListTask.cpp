#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryListTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"

namespace varo::binary {

BinaryListTask::BinaryListTask(bool invokeCallbackOnSuccess, ErrorPtr error)
    : BinaryBaseTask(&error), _invokeCallbackOnSuccess(invokeCallbackOnSuccess) {
  logFailedInit(log_texts::kBaseInitFailed, error);
}

std::string_view BinaryListTask::errorDomain() const noexcept {
  return _invokeCallbackOnSuccess ? BinaryBaseTask::errorDomain() : kDownloadErrorDomain;
}

void BinaryListTask::unpackInputcontext() {
  const Dictionary input = takeInput();
  unpackFileRequest(input);
  if (const Value* filter = input.find(keys::kFilter)) filters_ = filter->textValue();
  if (filters_) _queryParams.set(kQueryFilter, *filters_);
}

void BinaryListTask::execute() {
  unpackInputcontext();
  BinaryNetworkUtils::GET(*url_, _queryParams, headers_, requestOptions(settings_->limits.list),
                          kOperationTypeList, completion(&BinaryListTask::processResponse));
}

void BinaryListTask::processResponse(const Dictionary& response, const NetworkErrorPtr& error) {
  if (error != nullptr) {
    // Of a look-up who started the download tells as well. Existing callers know both reports.
    const bool isOthersToTell =
        !_invokeCallbackOnSuccess && (isSafe() || error->code() == kCodeOperationCancelled);
    return isOthersToTell ? raiseError(error) : fail(error);
  }
  if (_invokeCallbackOnSuccess) {
    _outputContext.addEntries(response);
  } else {
    addResponseForNextTask(response, {keys::kCallback, keys::kOptions});
    if (options_) _outputContext.set(keys::kOptions, *options_);
  }
  if (filters_) _outputContext.set(keys::kRequestContext, *filters_);
  const Value queryParams = _inputContext.get(keys::kQueryParamsForDownload);
  if (queryParams.isPresent()) _outputContext.set(keys::kQueryParamsForDownload, queryParams);
  if (_invokeCallbackOnSuccess) return succeed();
  setState(TaskState::Ended);
}

}  // namespace varo::binary
