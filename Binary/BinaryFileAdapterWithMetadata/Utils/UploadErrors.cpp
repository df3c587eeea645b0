#include "Binary/BinaryFileAdapterWithMetadata/Utils/UploadErrors.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Text.h"

namespace varo::binary {

ErrorPtr uploadError(std::int32_t code, std::string_view message, std::string_view detail) {
  return CommonUtils::generateErrorWith(
      kUploadErrorDomain, code, platform::formatMessage(kMessageAndDetail, {message, detail}));
}

ErrorPtr missingUploadParameter(std::string_view detail) {
  return uploadError(kCodeUploadMissingParameter, kUploadMissingParameter, detail);
}

ErrorPtr uploadParameterOfWrongType(std::string_view detail) {
  return uploadError(kCodeUploadInvalidParameterDataType, kUploadInvalidParameterDataType, detail);
}

ErrorPtr unusableUploadParameter(std::string_view detail) {
  return uploadError(kCodeUploadInvalidParameterValue, kUploadInvalidParameterValue, detail);
}

}  // namespace varo::binary
