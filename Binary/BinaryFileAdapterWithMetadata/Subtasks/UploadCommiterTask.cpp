#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/UploadCommiterTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/Text.h"

#include <string_view>
#include <utility>

namespace varo::binary {

using platform::RequestType;
using platform::VROCommonUtility;

namespace {

namespace texts = log_texts::upload_commiter_task;

/// The response's headers without those that say nothing about the stored object.
Dictionary objectHeaders(const Dictionary& responseHeaders) {
  return BinaryNetworkUtils::withoutHeaders(
      responseHeaders, {"x-pelmar-integrity", "x-pelmar-passthrough", "x-pelmar-requestid",
                        "access-control-allow-methods", "access-control-allow-origin",
                        "access-control-expose-headers", "connection"});
}

}  // namespace

UploadCommiterTask::UploadCommiterTask(ErrorPtr* error) : BinaryBaseTask(error) {}

std::string_view UploadCommiterTask::errorDomain() const noexcept { return kUploadErrorDomain; }

void UploadCommiterTask::unpackInputContext() {
  const Dictionary input = takeInput();
  const Dictionary uploadParams = input[keys::kUploadParams].dictionaryValue();
  url_ = input[keys::kCommitUrl].textValue();
  options_ = optionalDictionary(input[keys::kOptions]);
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
  headers_.addEntries(uploadParams[keys::kHeaders].dictionaryValue());
  // The service commits with PATCH. This header lets it travel as a PUT.
  BinaryNetworkUtils::setHeader(headers_, kHttpMethodOverride, kMethodPatch);
  BinaryNetworkUtils::setHeader(headers_, kContentType, kContentTypeJson);
  _metadata = uploadParams[keys::kMetadata].dictionaryValue();
  _metadata.remove(keys::kFileName);
  _metadata.remove(keys::kRelativePath);
  replaceCommitProperties(input[kResponseHeaders]);
}

void UploadCommiterTask::replaceCommitProperties(const Value& responseHeaders) {
  ErrorPtr error;
  const Value given = _metadata[keys::kCommitProperties];
  if (given.isMissing() || given.isDictionary()) {
    Dictionary properties = given.dictionaryValue();
    // The ETag among them shows the service that the store has the bytes.
    properties.addEntries(objectHeaders(responseHeaders.dictionaryValue()));
    _metadata.set(keys::kCommitProperties, properties);
    auto json = VROCommonUtility::getJSONStringFromNSDictionary(properties, &error);
    if (json) return _metadata.set(keys::kCommitProperties, *std::move(json));
  } else {
    error = CommonUtils::generateErrorWith(
        kUploadErrorDomain, kCodeUploadInvalidParameterDataType,
        platform::formatMessage(kMessageAndDetail,
                                {kUploadInvalidParameterDataType, keys::kCommitProperties}));
  }
  logger().logError(texts::kCommitPropertiesNotJson, error);
  reportFailure(error);
}

void UploadCommiterTask::execute() {
  unpackInputContext();
  ErrorPtr error;
  const auto body = VROCommonUtility::getJSONStringFromNSDictionary(_metadata, &error);
  if (!body) {
    logger().logError(texts::kMetadataNotJson, error);
    reportFailure(error);
  }
  Dictionary options = requestOptions(settings_->limits.small);
  // A PUT that stands for a PATCH: a second commit finds a file that is committed already.
  options.set(platform::kRepeat,
              std::make_shared<platform::RepeatValue>(platform::Repeat::kUnlessReceived));
  // A commit that has failed to become JSON still goes out, with no body: the service counts on it.
  BinaryNetworkUtils::PUT(*url_, {}, headers_, RequestType::kJson, body ? Value(*body) : Value(),
                          options, completion(&UploadCommiterTask::processResponse));
}

void UploadCommiterTask::processResponse(const Dictionary& response, const NetworkErrorPtr& error) {
  if (error != nullptr) {
    logger().logError(texts::kCommitFailed, error);
    return fail(error);
  }
  _outputContext.addEntries(response);
  _outputContext.set(keys::kCommitProperties, _metadata[keys::kCommitProperties]);
  _metadata.remove(keys::kCommitProperties);
  _outputContext.set(keys::kRequestContext, _metadata);
  succeed();
}

}  // namespace varo::binary
