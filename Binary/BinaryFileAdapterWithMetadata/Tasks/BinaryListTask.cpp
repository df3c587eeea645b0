#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryListTask.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"

namespace varo::binary {

using platform::Dictionary;
using platform::NetworkErrorPtr;
using platform::TaskState;
using platform::Value;

BinaryListTask::BinaryListTask(bool invokeCallbackOnSuccess)
    : _invokeCallbackOnSuccess(invokeCallbackOnSuccess) {}

void BinaryListTask::unpackInputcontext() {
  const Dictionary input = inputContext();
  unpackFileRequest(input);
  if (const Value* filter = input.find(keys::kFilter)) filters_ = filter->textValue();
  if (filters_) _queryParams.set(kQueryFilter, *filters_);
}

void BinaryListTask::execute() {
  unpackInputcontext();
  BinaryNetworkUtils::GET(
      *url_, _queryParams, headers_, options_.value_or(Dictionary{}), kOperationTypeList,
      [self = self<BinaryListTask>()](const Dictionary& response, const NetworkErrorPtr& error) {
        self->processResponse(response, error);
      });
}

void BinaryListTask::processResponse(const Dictionary& response, const NetworkErrorPtr& error) {
  if (error != nullptr) return fail(error);
  if (_invokeCallbackOnSuccess) {
    _outputContext.addEntries(response);
  } else {
    addResponseForNextTask(response, {keys::kCallback, keys::kOptions});
    if (options_) _outputContext.set(keys::kOptions, *options_);
  }
  if (filters_) _outputContext.set(keys::kRequestContext, *filters_);
  const Value queryParams = _inputContext.get(keys::kQueryParamsForDownload);
  if (queryParams.isPresent()) _outputContext.set(keys::kQueryParamsForDownload, queryParams);
  setState(TaskState::Ended);
  if (_invokeCallbackOnSuccess) {
    BinaryCallbackUtils::executeSuccessCallback(binaryCallback_, outputContext());
  }
}

}  // namespace varo::binary
