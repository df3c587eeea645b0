#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryUpdaterTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Common/VROCommonUtility.h"

#include <string_view>

namespace varo::binary {

using platform::RequestType;

namespace {

namespace texts = log_texts::binary_updater_task;

}  // namespace

BinaryUpdaterTask::BinaryUpdaterTask(ErrorPtr error) : BinaryBaseTask(&error) {
  logFailedInit(log_texts::kBaseInitFailed, error);
}

std::string_view BinaryUpdaterTask::errorDomain() const noexcept { return kUpdateErrorDomain; }

void BinaryUpdaterTask::unpackInputContext() {
  const Dictionary input = takeInput();
  unpackFileRequest(input);
  _metadata = input[keys::kMetadata].dictionaryValue();
  _fileId = _metadata[keys::kFileId].textValue();
}

void BinaryUpdaterTask::execute() {
  unpackInputContext();
  ErrorPtr error;
  const auto body = platform::VROCommonUtility::getJSONStringFromNSDictionary(_metadata, &error);
  if (!body) {
    logger().logError(texts::kUpdateFailed, error);
    // The callback first: the reverse of all other failures, and what callers count on.
    reportFailure(error);
    raiseError(error);
    return;
  }
  BinaryNetworkUtils::PUT(*url_, {}, headers_, RequestType::kJson, *body,
                          requestOptions(settings_->limits.small),
                          completion(&BinaryUpdaterTask::processResponse));
}

void BinaryUpdaterTask::processResponse(const Dictionary& response, const NetworkErrorPtr& error) {
  if (error != nullptr) return fail(error);
  _outputContext.addEntries(response);
  _outputContext.set(keys::kRequestContext, _metadata);
  succeed();
}

}  // namespace varo::binary
