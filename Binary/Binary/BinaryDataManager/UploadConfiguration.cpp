#include "Binary/Binary/BinaryDataManager/UploadConfiguration.h"

#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/UploadErrors.h"

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
constexpr std::string_view kTwoBytes = "Both FilePath and RawBytes cannot be specified";
constexpr std::string_view kRawBytesNotData = "Invalid datatype found for rawData";
constexpr std::string_view kHeadersNotDictionary = "Invalid datatype found for headers";
constexpr std::string_view kUploadParamsNotDictionary = "Invalid datatype found for uploadParams";

ErrorPtr validateUrl(const Value& url) {
  logger().logInfo(texts::kValidatingUrl);
  if (url.isMissing()) return missingUploadParameter(kUrlMissing);
  if (!url.isText()) return uploadParameterOfWrongType(kUrlNotText);
  if (url.text()->empty()) return unusableUploadParameter(kUrlEmpty);
  logger().logInfo(texts::kValidatedUrl);
  return nullptr;
}

ErrorPtr validateFilePath(const Value& filePath) {
  logger().logInfo(texts::kValidatingFilePath);
  if (!filePath.isText()) return uploadParameterOfWrongType(kUrlNotText);
  const std::string& path = *filePath.text();
  // The system would end the name there, and find another file.
  if (path.find('\0') != std::string::npos) return unusableUploadParameter(kFileNotFound);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return unusableUploadParameter(kFileNotFound);
  // Pipes, sockets and devices have no size. A directory has one, and is not read later.
  if (status.st_size == 0 && !S_ISDIR(status.st_mode)) {
    return uploadParameterOfWrongType(kNoDataInFile);
  }
  logger().logInfo(texts::kValidatedFilePath);
  return nullptr;
}

ErrorPtr validateRawBytes(const Value& rawBytes) {
  logger().logInfo(log_texts::kValidatingRawData);
  if (!rawBytes.isData()) return uploadParameterOfWrongType(kRawBytesNotData);
  if (rawBytes.data()->empty()) return unusableUploadParameter(kRawDataNull);
  logger().logInfo(texts::kValidatedRawBytes);
  return nullptr;
}

ErrorPtr validateBytes(const Value& filePath, const Value& rawBytes) {
  if (filePath.isMissing() && rawBytes.isMissing()) return missingUploadParameter(kNoUploadSource);
  if (filePath.isPresent() && rawBytes.isPresent()) return unusableUploadParameter(kTwoBytes);
  return filePath.isPresent() ? validateFilePath(filePath) : validateRawBytes(rawBytes);
}

/// Of an entry that may be absent.
ErrorPtr validateDictionary(const Value& value, std::string_view start, std::string_view absent,
                            std::string_view error) {
  logger().logInfo(start);
  if (value.isPresent() && !value.isDictionary()) return uploadParameterOfWrongType(error);
  if (value.isMissing()) logger().logInfo(absent);
  return nullptr;
}

}  // namespace

ErrorPtr checkUploadConfiguration(const std::optional<Dictionary>& configuration) {
  logger().logInfo(texts::kValidatingInputs);
  if (!configuration || configuration->empty()) {
    return missingUploadParameter(kInvalidConfiguration);
  }
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
