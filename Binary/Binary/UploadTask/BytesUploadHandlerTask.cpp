#include "Binary/Binary/UploadTask/BytesUploadHandlerTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/UploadTask/UploadLogTexts.h"
#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

namespace varo::binary {

using platform::RequestType;
using platform::VRONetworkUtility;

constinit const UploaderTask::Texts BytesUploadHandlerTask::kTexts = {
    .domain = kBytesUploaderErrorDomain,
    .noUploadParams = log_texts::bytes_upload_handler_task::kNoUploadParams,
    .requestBody = log_texts::bytes_upload_handler_task::kRequestBody,
    .url = log_texts::bytes_upload_handler_task::kUrl,
    .completed = log_texts::bytes_upload_handler_task::kCompleted,
    .unexpectedStatus = log_texts::bytes_upload_handler_task::kUnexpectedStatus};

BytesUploadHandlerTask::BytesUploadHandlerTask(std::string name, const platform::Clock& clock)
    : UploaderTask(std::move(name), kTexts), clock_(clock) {}

bool BytesUploadHandlerTask::prepareRequest() {
  if (redirectionTemplate_[kTemplateParamAuth] != Value(kAuthHmacDigest)) return true;
  const auto all = settings();
  S3HMACGenerator signer(uploadParams_, redirectionTemplate_, fileData_, S3OperationType::kUpload,
                         all->clock != nullptr ? *all->clock : clock_);
  auto signedHeaders = signer.getRequestHeaders(S3OperationType::kUpload);
  if (!signedHeaders) {
    raise(kCodeUploadFailure, kUploadFailure, signedHeaders.error());
    return false;
  }
  headers_ = std::move(signedHeaders).value();
  return true;
}

void BytesUploadHandlerTask::uploadFile() {
  VRONetworkUtility::PUT(url_, {}, headers_, RequestType::kRaw, fileData_, requestOptions(),
                         completion());
}

}  // namespace varo::binary
