#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/UploadErrors.h"
#include "Platform/Foundation/Base64.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <utility>

namespace varo::binary {
namespace {

namespace texts = log_texts::validation_utils;

using ParamType = ValidationUtils::ParamType;

constexpr std::string_view kEntryMissing = "%@: %@ could not be found in params";
constexpr std::string_view kEntryOfWrongType = "%@: Unexpected data type for : %@";
constexpr std::string_view kEntryEmpty = "%@: %@ param is empty";
constexpr std::string_view kOptionalEntryOfWrongType =
    "%@ and cannot be null. Unexpected data type for : %@";

constexpr std::string_view kNoUploadParams = "Null or empty value found for uploadParams";
constexpr std::string_view kRawBytesMissing = "Missing parameter rawBytes in the given input";
constexpr std::string_view kFilePathMissing = "Missing parameter filePath in the given input";
constexpr std::string_view kFilePathOfWrongType = "Invalid datatype found for FilePath";
constexpr std::string_view kFileIdNull = "file_id is null or undefined";
constexpr std::string_view kDeleteParamsNull = "deleteParams are null or undefined";
constexpr std::string_view kDeleteParamsEmpty =
    "deleteParams are empty, provide desired criteria for deleting binary files, for ex. fileId "
    "etc";

constexpr std::string_view kNotANumber = "%@ is not wholly a number : %@";
constexpr std::string_view kDeleteParams = "deleteParams";

/// A code and the message that goes with it.
struct Failure {
  std::int32_t code;
  std::string_view message;
};

constexpr Failure kUploadMissing{kCodeUploadMissingParameter, kUploadMissingParameter};
constexpr Failure kUploadJunkType{kCodeUploadInvalidParameterDataType,
                                  kUploadInvalidParameterDataType};
constexpr Failure kUploadJunkValue{kCodeUploadInvalidParameterValue, kUploadInvalidParameterValue};
constexpr Failure kUploadUnreadable{kCodeUploadIOFailure, kUploadIOFailure};
constexpr Failure kDownloadMissing{kCodeDownloadMissingParams, kDownloadMissingParams};
constexpr Failure kDownloadJunk{kCodeDownloadInvalidParams, kDownloadInvalidParams};
constexpr Failure kDownloadJunkValue{kCodeDownloadMissingParameterValue, kDownloadInvalidParams};
constexpr Failure kUpdateMissing{kCodeUpdateMissingParams, kUpdateMissingParams};
constexpr Failure kUpdateJunk{kCodeUpdateInvalidParams, kUpdateInvalidParams};

/// Where an entry stands: in the parameters or in their "metadata".
enum class Place { kParams, kMetadata };

struct EntryRule {
  std::string_view step;
  Place place;
  std::string_view name;
  ParamType type;
  std::string_view domain;
  std::optional<Failure> missing;  // none: the entry is optional
  Failure junk;
  std::string_view failureLog;
};

constexpr auto kMap = ParamType::kDictionary;
constexpr auto kText = ParamType::kString;

constexpr std::array kUploadRules = {
    EntryRule{texts::kValidatingUploadHeaders, Place::kParams, keys::kHeaders, kMap,
              kUploadErrorDomain, kUploadMissing, kUploadJunkType, texts::kUploadHeadersFailed},
    EntryRule{texts::kValidatingUploadMetadata, Place::kParams, keys::kMetadata, kMap,
              kUploadErrorDomain, kUploadMissing, kUploadJunkType, texts::kUploadMetadataFailed},
    EntryRule{texts::kValidatingFileName, Place::kMetadata, keys::kFileName, kText,
              kUploadErrorDomain, kUploadMissing, kUploadJunkType, texts::kFileNameFailed},
    EntryRule{texts::kValidatingFileNamespace, Place::kMetadata, keys::kFileNamespace, kText,
              kUploadErrorDomain, std::nullopt, kUploadJunkValue,
              texts::kUploadFileNamespaceFailed},
    EntryRule{texts::kValidatingSecurityKey, Place::kMetadata, keys::kSecurityKey, kText,
              kUploadErrorDomain, std::nullopt, kUploadJunkValue, texts::kUploadSecurityKeyFailed},
};

constexpr std::array kDownloadRules = {
    EntryRule{texts::kValidatingDownloadHeaders, Place::kParams, keys::kHeaders, kMap,
              kDownloadErrorDomain, kDownloadMissing, kDownloadJunk, texts::kDownloadHeadersFailed},
    EntryRule{texts::kValidatingDownloadMetadata, Place::kParams, keys::kMetadata, kMap,
              kDownloadErrorDomain, kDownloadMissing, kDownloadJunk,
              texts::kDownloadMetadataFailed},
    EntryRule{texts::kValidatingFileNamespace, Place::kMetadata, keys::kFileNamespace, kText,
              kDownloadErrorDomain, std::nullopt, kDownloadJunkValue,
              texts::kDownloadFileNamespaceFailed},
    EntryRule{texts::kValidatingSecurityKey, Place::kMetadata, keys::kSecurityKey, kText,
              kDownloadErrorDomain, std::nullopt, kDownloadJunkValue,
              texts::kDownloadSecurityKeyFailed},
    EntryRule{texts::kValidatingDownloadFileId, Place::kMetadata, keys::kFileId, kText,
              kDownloadErrorDomain, kDownloadMissing, kDownloadJunk, texts::kFileNameFailed},
};

constexpr std::array kUpdateRules = {
    EntryRule{texts::kValidatingUpdateHeaders, Place::kParams, keys::kHeaders, kMap,
              kUpdateHeadersErrorDomain, kUpdateMissing, kUpdateJunk, texts::kUpdateHeadersFailed},
    EntryRule{texts::kValidatingUpdateMetadata, Place::kParams, keys::kMetadata, kMap,
              kUpdateErrorDomain, kUpdateMissing, kUpdateJunk, texts::kUpdateMetadataFailed},
    EntryRule{texts::kValidatingUpdateFileId, Place::kMetadata, keys::kFileId, kText,
              kUpdateErrorDomain, kDownloadMissing, kDownloadJunk, texts::kFileNameFailed},
};

/// Sets the error, where the caller wants it, and answers "not valid".
bool fail(ErrorPtr* error, std::string_view domain, std::int32_t code, std::string_view text) {
  if (error != nullptr) *error = CommonUtils::generateErrorWith(domain, code, text);
  return false;
}

bool fail(ErrorPtr* error, std::string_view domain, const Failure& failure,
          std::string_view detail) {
  return fail(error, domain, failure.code,
              platform::formatMessage(kMessageAndDetail, {failure.message, detail}));
}

/// As `fail`, and logs the error into the placeholder of `logText`.
bool failLogged(ErrorPtr* error, std::string_view domain, const Failure& failure,
                std::string_view detail, std::string_view logText) {
  ErrorPtr made;
  (void)fail(&made, domain, failure, detail);
  logger().logError(logText, made);
  if (error != nullptr) *error = std::move(made);
  return false;
}

bool isOfType(const Value& value, ParamType type) {
  return type == ParamType::kString ? value.isText() : value.isDictionary();
}

bool satisfies(const Dictionary& params, const EntryRule& rule, ErrorPtr* error) {
  if (rule.missing) {
    return ValidationUtils::validateInnerMapParameter(params, rule.name, rule.domain, rule.type,
                                                      rule.missing->code, rule.missing->message,
                                                      rule.junk.code, rule.junk.message, error);
  }
  return ValidationUtils::validateInnerMapParameter(params, rule.name, rule.domain, rule.type,
                                                    rule.junk.code, rule.junk.message, error);
}

bool satisfiesAll(const Dictionary& params, std::span<const EntryRule> rules, ErrorPtr* error) {
  for (const EntryRule& rule : rules) {
    logger().logInfo(rule.step);
    ErrorPtr failure;
    const bool inParams = rule.place == Place::kParams;
    if (!satisfies(inParams ? params : params[keys::kMetadata].dictionaryValue(), rule, &failure)) {
      logger().logError(rule.failureLog, failure);
      if (error != nullptr) *error = failure;
      return false;
    }
  }
  return true;
}

bool areRawBytesValid(const Dictionary& file, ErrorPtr* error) {
  logger().logInfo(log_texts::kValidatingRawData);
  const Value* rawBytes = file.find(keys::kRawBytes);
  if (rawBytes == nullptr) return fail(error, kUploadErrorDomain, kUploadMissing, kRawBytesMissing);
  if (const platform::Data* bytes = rawBytes->data()) {
    return !bytes->empty() || fail(error, kUploadErrorDomain, kUploadJunkValue, kRawDataNull);
  }
  const std::string* text = rawBytes->text();
  if (text == nullptr) return fail(error, kUploadErrorDomain, kUploadJunkType, kRawDataNull);
  if (text->empty()) return fail(error, kUploadErrorDomain, kUploadJunkValue, kRawDataNull);
  return platform::base64::decode(*text).has_value() ||
         fail(error, kUploadErrorDomain, kUploadJunkType, kRawDataNull);
}

bool isFilePathValid(const Dictionary& file, ErrorPtr* error) {
  logger().logInfo(texts::kValidatingFilePath);
  const Value* filePath = file.find(keys::kFilePath);
  if (filePath == nullptr) return fail(error, kUploadErrorDomain, kUploadMissing, kFilePathMissing);
  const std::string* path = filePath->text();
  if (path == nullptr) {
    return fail(error, kUploadErrorDomain, kUploadJunkType, kFilePathOfWrongType);
  }
  const auto content = platform::Data::fromFile(*path);
  if (!content) {
    const bool missing = content.error()->code() == ENOENT || content.error()->code() == ENOTDIR;
    return fail(error, kUploadErrorDomain, kUploadUnreadable,
                missing ? kFileNotFound : content.error()->localizedDescription());
  }
  return !content->empty() || fail(error, kUploadErrorDomain, kUploadUnreadable, kNoDataInFile);
}

constexpr bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         static_cast<unsigned char>(c) > 127;
}

/// The UTF-8 forms of Unicode's spaces and separators beyond ASCII, where they are not a range.
constexpr std::array<std::string_view, 7> kUnicodeSpaces = {
    "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\xA8", "\xE2\x80\xA9",
    "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};

bool startsWithWhiteSpaceOrQuote(std::string_view text) {
  if (std::string_view(" \t\n\v\f\r\"").find(text.front()) != std::string_view::npos) return true;
  // U+2000 to U+200A; what ends a sequence is between 80 and BF.
  if (text.size() >= 3 && text.starts_with("\xE2\x80") &&
      static_cast<unsigned char>(text[2]) <= 0x8A) {
    return true;
  }
  return std::any_of(kUnicodeSpaces.begin(), kUnicodeSpaces.end(),
                     [text](std::string_view space) { return text.starts_with(space); });
}

/// Matches ((?:http|https)(?::\/{2}[\w]+)(?:[\/|\.]?)(?:[^\s"]*)) as a whole. What may follow the
/// first word character includes all that the two middle groups could take, so only the last
/// counts.
bool matchesUrlPattern(std::string_view url) {
  constexpr std::string_view kHttp = "http";
  constexpr std::string_view kSlashes = "://";
  if (!url.starts_with(kHttp)) return false;
  url.remove_prefix(kHttp.size());
  if (url.starts_with('s')) url.remove_prefix(1);
  if (!url.starts_with(kSlashes)) return false;
  url.remove_prefix(kSlashes.size());
  if (url.empty() || !isWordCharacter(url.front())) return false;
  for (; !url.empty(); url.remove_prefix(1)) {
    if (startsWithWhiteSpaceOrQuote(url)) return false;
  }
  return true;
}

}  // namespace

bool ValidationUtils::isValidUrl(std::string_view url, ErrorPtr* error) {
  return matchesUrlPattern(url) ||
         fail(error, kUrlValidationErrorDomain, kCodeMissingServerUrl, kMissingServerUrl);
}

bool ValidationUtils::validateUploadParamsWithUploadParams(
    const std::optional<Dictionary>& uploadParams, UploadInputType uploadInputType,
    ErrorPtr* error) {
  logger().logInfo(texts::kValidatingUploadParams);
  if (!uploadParams || uploadParams->empty()) {
    return fail(error, kUploadErrorDomain, kUploadMissing, kNoUploadParams);
  }
  if (!satisfiesAll(*uploadParams, kUploadRules, error)) return false;

  logger().logInfo(texts::kValidatingUploadType);
  const Dictionary file = (*uploadParams)[keys::kFile].dictionaryValue();
  if (!file.contains(keys::kFilePath) && !file.contains(keys::kRawBytes)) {
    return fail(error, kUploadErrorDomain, kUploadMissing, kNoUploadSource);
  }
  return uploadInputType == UploadInputType::kLocalFilePath ? isFilePathValid(file, error)
                                                            : areRawBytesValid(file, error);
}

bool ValidationUtils::validateDownloadParams(const std::optional<Dictionary>& downloadParams,
                                             ErrorPtr* error) {
  logger().logInfo(texts::kValidatingDownloadParams);
  if (!downloadParams) {
    // Callers know parameters that are missing by the text of an empty file, here and below.
    return failLogged(error, kDownloadErrorDomain, kDownloadJunk, kNoDataInFile,
                      texts::kDownloadParamsFailed);
  }
  return satisfiesAll(*downloadParams, kDownloadRules, error);
}

bool ValidationUtils::validateUpdateParams(const std::optional<Dictionary>& updateParams,
                                           ErrorPtr* error) {
  logger().logInfo(texts::kValidatingUpdateParams);
  if (!updateParams) {
    return failLogged(error, kUpdateErrorDomain, kUpdateJunk, kNoDataInFile,
                      texts::kUpdateParamsFailed);
  }
  return satisfiesAll(*updateParams, kUpdateRules, error);
}

bool ValidationUtils::validateFileIdForDeletion(const std::optional<std::string>& fileId,
                                                ErrorPtr* error) {
  if (!fileId) {
    logger().logError(texts::kDeleteParameterMissing, keys::kFileId);
    return fail(error, kDeleteErrorDomain, {kCodeDeleteMissingParams, kDeleteMissingParams},
                kFileIdNull);
  }
  if (fileId->empty()) {
    logger().logError(texts::kDeleteParameterEmpty, keys::kFileId);
    // Callers know this one under the downloads' domain.
    return fail(error, kDownloadErrorDomain, {kCodeDeleteInvalidParams, kDeleteInvalidParams},
                kFileIdNull);
  }
  return true;
}

bool ValidationUtils::validateDeleteParams(const std::optional<Dictionary>& deleteParams,
                                           ErrorPtr* error) {
  constexpr Failure kMissing{kCodeDeleteMissingParams, kDeleteMissingParams};
  if (!deleteParams) {
    logger().logError(texts::kDeleteParameterMissing, kDeleteParams);
    return fail(error, kDeleteErrorDomain, kMissing, kDeleteParamsNull);
  }
  if (deleteParams->empty()) {
    logger().logError(kDeleteParamsEmpty);
    return fail(error, kDeleteErrorDomain, kMissing, kDeleteParamsEmpty);
  }
  return true;
}

bool ValidationUtils::validateChunkSizes(const Dictionary& uploadParams,
                                         const std::optional<Dictionary>& options,
                                         ErrorPtr* error) {
  for (const Dictionary& given : {uploadParams, options.value_or(Dictionary{})}) {
    const std::string* text = given[keys::kChunkSize].text();
    if (text == nullptr || platform::parseInteger(*text)) continue;
    return failLogged(error, kUploadErrorDomain, kUploadJunkType,
                      platform::formatMessage(kNotANumber, {keys::kChunkSize, *text}),
                      texts::kChunkSizeFailed);
  }
  return true;
}

Dictionary ValidationUtils::fixChunkSizeIfNeeded(std::optional<Dictionary> uploadParams) {
  Dictionary params = std::move(uploadParams).value_or(Dictionary{});
  if (params[keys::kChunkSize].integerValue() < 1) params.set(keys::kChunkSize, kDefaultChunkSize);
  return params;
}

bool ValidationUtils::validateInnerMapParameter(
    const Dictionary& params, std::string_view paramName, std::string_view errorDomain,
    ParamType typeOfParam, std::int32_t errorCodeForMissingParameter,
    std::string_view errorMessageForMissingParameter, std::int32_t errorCodeForJunkValue,
    std::string_view errorMessageForJunkValue, ErrorPtr* error) {
  const Value* entry = params.find(paramName);
  if (entry == nullptr) {
    return fail(
        error, errorDomain, errorCodeForMissingParameter,
        platform::formatMessage(kEntryMissing, {errorMessageForMissingParameter, paramName}));
  }
  if (!isOfType(*entry, typeOfParam)) {
    return fail(error, errorDomain, errorCodeForJunkValue,
                platform::formatMessage(kEntryOfWrongType, {errorMessageForJunkValue, paramName}));
  }
  if (entry->isText() && entry->text()->empty()) {
    return fail(error, errorDomain, errorCodeForJunkValue,
                platform::formatMessage(kEntryEmpty, {errorMessageForJunkValue, paramName}));
  }
  return true;
}

bool ValidationUtils::validateInnerMapParameter(const Dictionary& params,
                                                std::string_view paramName,
                                                std::string_view errorDomain, ParamType typeOfParam,
                                                std::int32_t errorCodeForJunkValue,
                                                std::string_view errorMessageForJunkValue,
                                                ErrorPtr* error) {
  const Value* entry = params.find(paramName);
  if (entry == nullptr || isOfType(*entry, typeOfParam)) return true;
  return fail(
      error, errorDomain, errorCodeForJunkValue,
      platform::formatMessage(kOptionalEntryOfWrongType, {errorMessageForJunkValue, paramName}));
}

}  // namespace varo::binary
