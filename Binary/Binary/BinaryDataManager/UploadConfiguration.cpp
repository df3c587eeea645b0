#include "Binary/Binary/BinaryDataManager/UploadConfiguration.h"

#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Text.h"

#include <string>
#include <string_view>
#include <sys/stat.h>

namespace varo::binary {
namespace {

namespace texts = log_texts::upload_configuration;

constexpr std::string_view kInvalidConfiguration = "Invalid parameter received for uploadConfig";
constexpr std::string_view kUrlMissing = "Could not find Url";
/// Of a file path that is no text, too.
constexpr std::string_view kUrlNotText = "Invalid datatype found for Url";
constexpr std::string_view kUrlEmpty = "Empty url string";
constexpr std::string_view kNoBytes = "Either FilePath or RawBytes needs to be specified";
constexpr std::string_view kTwoBytes = "Both FilePath and RawBytes cannot be specified";
constexpr std::string_view kFileEmpty = "No data present in given file";
constexpr std::string_view kFileMissing = "Could not find File at given FilePath";
constexpr std::string_view kRawBytesNotData = "Invalid datatype found for rawData";
constexpr std::string_view kRawBytesEmpty = "Null value found for rawData";
constexpr std::string_view kHeadersNotDictionary = "Invalid datatype found for headers";
constexpr std::string_view kUploadParamsNotDictionary = "Invalid datatype found for uploadParams";

ErrorPtr uploadError(std::int32_t code, std::string_view message, std::string_view detail) {
  return CommonUtils::generateErrorWith(
      kUploadErrorDomain, code, platform::formatMessage(kMessageAndDetail, {message, detail}));
}

ErrorPtr missing(std::string_view detail) {
  return uploadError(kCodeUploadMissingParameter, kUploadMissingParameter, detail);
}

ErrorPtr wrongType(std::string_view detail) {
  return uploadError(kCodeUploadInvalidParameterDataType, kUploadInvalidParameterDataType, detail);
}

ErrorPtr wrongValue(std::string_view detail) {
  return uploadError(kCodeUploadInvalidParameterValue, kUploadInvalidParameterValue, detail);
}

ErrorPtr validateUrl(const Value& url) {
  logger().logInfo(texts::kValidatingUrl);
  if (url.isMissing()) return missing(kUrlMissing);
  if (!url.isText()) return wrongType(kUrlNotText);
  if (url.text()->empty()) return wrongValue(kUrlEmpty);
  logger().logInfo(texts::kValidatedUrl);
  return nullptr;
}

ErrorPtr validateFilePath(const Value& filePath) {
  logger().logInfo(texts::kValidatingFilePath);
  if (!filePath.isText()) return wrongType(kUrlNotText);
  const std::string& path = *filePath.text();
  // The system would end the name there, and find another file.
  if (path.find('\0') != std::string::npos) return wrongValue(kFileMissing);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return wrongValue(kFileMissing);
  // Pipes, sockets and devices have no size. A directory has one, and is not read later.
  if (status.st_size == 0 && !S_ISDIR(status.st_mode)) return wrongType(kFileEmpty);
  logger().logInfo(texts::kValidatedFilePath);
  return nullptr;
}

ErrorPtr validateRawBytes(const Value& rawBytes) {
  logger().logInfo(texts::kValidatingRawBytes);
  if (!rawBytes.isData()) return wrongType(kRawBytesNotData);
  if (rawBytes.data()->empty()) return wrongValue(kRawBytesEmpty);
  logger().logInfo(texts::kValidatedRawBytes);
  return nullptr;
}

ErrorPtr validateBytes(const Value& filePath, const Value& rawBytes) {
  if (filePath.isMissing() && rawBytes.isMissing()) return missing(kNoBytes);
  if (filePath.isPresent() && rawBytes.isPresent()) return wrongValue(kTwoBytes);
  return filePath.isPresent() ? validateFilePath(filePath) : validateRawBytes(rawBytes);
}

/// Of an entry that may be absent.
ErrorPtr validateDictionary(const Value& value, std::string_view start, std::string_view absent,
                            std::string_view error) {
  logger().logInfo(start);
  if (value.isPresent() && !value.isDictionary()) return wrongType(error);
  if (value.isMissing()) logger().logInfo(absent);
  return nullptr;
}

}  // namespace

ErrorPtr checkUploadConfiguration(const std::optional<Dictionary>& configuration) {
  logger().logInfo(texts::kValidatingInputs);
  if (!configuration || configuration->empty()) return missing(kInvalidConfiguration);
  const Dictionary& input = *configuration;
  if (ErrorPtr error = validateUrl(input[kURL])) return error;
  if (ErrorPtr error = validateBytes(input[kFilePath], input[keys::kRawBytes])) return error;
  if (ErrorPtr error = validateDictionary(input[keys::kHeaders], texts::kValidatingHeaders,
                                          texts::kNoHeaders, kHeadersNotDictionary)) {
    return error;
  }
  return validateDictionary(input[keys::kUploadParams], texts::kValidatingUploadParams,
                            texts::kNoUploadParams, kUploadParamsNotDictionary);
}

}  // namespace varo::binary
